// The attach protocol and the whole client against real JVMs.
#include "Expect.h"
#include "FakeAgent.h"
#include "JavaProcess.h"
#include "LogLines.h"
#include "client/attach/Attach.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <sys/un.h>

using namespace vdk;

namespace {

// For what a JVM on a busy machine does in the end; the waits of the program itself are --timeout.
constexpr int PatientMs = 120000;
const char Patient[] = " --timeout 120s ";

struct Release {
    const char* name;
    int protocol;
};

void PrintTo(const Release& release, std::ostream* out) {
    *out << release.name;
}

class RealJvm : public testing::TestWithParam<Release> {
protected:
    void SetUp() override {
        // The JVM tells on standard error what it takes from these.
        for (const char* name : {"JAVA_TOOL_OPTIONS", "JDK_JAVA_OPTIONS", "_JAVA_OPTIONS"}) {
            unsetenv(name);
        }
        homes = jdks(GetParam().name);
        if (homes.empty() || !JavaProcess::compile(dir)) {
            GTEST_SKIP() << "no JDK " << GetParam().name;
        }
    }

    std::vector<std::string> java(const std::vector<std::string>& options = {}) {
        std::vector<std::string> command = {homes[0] + "/bin/java"};
        command.insert(command.end(), options.begin(), options.end());
        command.insert(command.end(), {"-cp", dir.path, "Waiter"});
        return command;
    }

    // The program, once it runs.
    std::unique_ptr<JavaProcess> start(const std::vector<std::string>& options = {},
                                       const std::string& argument = "") {
        std::vector<std::string> command = java(options);
        if (!argument.empty()) {
            command.push_back(argument);
        }
        auto program = std::make_unique<JavaProcess>(command, dir.file("err"));
        EXPECT_TRUE(program->waitFor("ready")) << TempDir::read(dir.file("err"));
        return program;
    }

    // False if the programs were not built.
    bool hasPrograms() {
        client = builtFile("vdk");
        return !client.empty() && !builtFile("libvdkagent.so").empty();
    }

    // Runs the client's command on a JVM, which may be slow.
    Result vdk(const std::string& command, const std::string& pid, const std::string& options) {
        return run(client + " " + command + " " + pid + Patient + options + " 2>&1");
    }
    nlohmann::json json(const std::string& command, const std::string& pid,
                        const std::string& options, int code = 0) {
        Result result = vdk(command, pid, options + " --json");
        EXPECT_EQ(result.code, code) << result.out;
        return nlohmann::json::parse(result.out, nullptr, false);
    }

    Jvm find(int pid) {
        JvmFinder finder(processes, markers);
        return finder.find(std::to_string(pid));
    }

    TempDir dir;
    std::vector<std::string> homes;
    std::string client;
    ProcFs processes;
    MarkerSource markers;
};

TEST_P(RealJvm, isFoundWithItsMainClassAndVersion) {
    auto program = start();
    Jvm jvm = find(program->pid);
    EXPECT_EQ(jvm.mainName, "Waiter");
    EXPECT_EQ(jvm.kind, JvmKind::HotSpot);
    EXPECT_EQ(jvm.javaVersion.find(GetParam().name), 0u) << jvm.javaVersion;
    EXPECT_EQ(find(start({"-XX:-UsePerfData"})->pid).mainName, "Waiter");
}

TEST_P(RealJvm, answersRequestsOfBothVersions) {
    auto program = start();
    Attacher attacher(processes, find(program->pid), PatientMs);
    attacher.open();
    EXPECT_EQ(attacher.version(), GetParam().protocol);
    AttachReply properties = attacher.execute("properties", {});
    EXPECT_TRUE(properties.complete);
    EXPECT_NE(properties.text.find("java.version="), std::string::npos);

    LoadOutcome missing =
        parseLoadReply(attacher.execute("load", {"/nonexistent/lib.so", "true", "x=1"}));
    EXPECT_FALSE(missing.loaded);
    EXPECT_NE(missing.message.find("/nonexistent/lib.so"), std::string::npos) << missing.message;

    std::vector<std::string> tooLong = {"/nonexistent/lib.so", "true", std::string(5000, 'x')};
    if (GetParam().protocol == 1) {
        EXPECT_EQ(wordOf([&] { attacher.execute("load", tooLong); }), "attach.long");
    } else {
        LoadOutcome outcome = parseLoadReply(attacher.execute("load", tooLong));
        EXPECT_FALSE(outcome.loaded);
        EXPECT_NE(outcome.message.find("/nonexistent/lib.so"), std::string::npos)
            << outcome.message;
    }
    EXPECT_FALSE(std::filesystem::exists("/proc/" + std::to_string(program->pid) +
                                         "/cwd/.attach_pid" + std::to_string(program->pid)));
    EXPECT_EQ(program->finish(), 7);
    EXPECT_EQ(program->output, "ready\ndone\n"); // no thread dump
}

TEST_P(RealJvm, withAttachDisabledIsLeftAlone) {
    auto program = start({"-XX:+DisableAttachMechanism"});
    Jvm jvm = find(program->pid);
    if (hasPrograms()) {
        const auto doctor = json("doctor", std::to_string(program->pid), "", 1);
        EXPECT_EQ(doctor["checks"][0]["word"], "attach.disabled") << doctor;
    }
    EXPECT_EQ(wordOf([&] { Attacher attacher(processes, jvm); }), "attach.disabled");
    EXPECT_EQ(program->finish(), 7);
    EXPECT_EQ(program->output, "ready\ndone\n");
}

TEST_P(RealJvm, withReducedSignalsIsReachedOrLeftAlone) {
    auto program = start({"-Xrs"});
    Attacher attacher(processes, find(program->pid), PatientMs);
    std::string word = wordOf([&] {
        attacher.open();
        EXPECT_TRUE(attacher.execute("properties", {}).complete);
    });
    EXPECT_TRUE(word.empty() || word == "attach.quit") << word;
    EXPECT_EQ(program->finish(), 7); // never killed by the signal
}

TEST_P(RealJvm, stoppedJvmIsToldAtOnce) {
    auto program = start();
    Jvm jvm = find(program->pid);
    kill(program->pid, SIGSTOP);
    while (processes.status(program->pid)->state != "T") {
        usleep(1000);
    }
    EXPECT_EQ(wordOf([&] { Attacher attacher(processes, jvm); }), "attach.stopped");
    kill(program->pid, SIGCONT);
}

TEST_P(RealJvm, filesOfOthersInTheWayNeitherHangNorMislead) {
    auto program = start();
    std::string pid = std::to_string(program->pid);
    std::string socketFile = "/tmp/.java_pid" + pid;
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, socketFile.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(listen(listener, 1), 0);
    Attacher attacher(processes, find(program->pid), PatientMs);
    attacher.open();
    EXPECT_EQ(wordOf([&] { attacher.execute("properties", {}); }), "attach.file");
    close(listener);
    ASSERT_EQ(unlink(socketFile.c_str()), 0);

    std::string trigger = "/proc/" + pid + "/cwd/.attach_pid" + pid;
    ASSERT_EQ(mkfifo(trigger.c_str(), 0666), 0);
    attacher.open();
    EXPECT_TRUE(attacher.execute("properties", {}).complete);
    EXPECT_EQ(unlink(trigger.c_str()), 0) << "it was not ours to remove";
}

TEST_P(RealJvm, markerThatSomebodyForgedCountsForNothing) {
    // The area of this machine says that the JVM has an agent, on a port of this process.
    auto program = start();
    FakeAgent agent([](int, int connection) { FAIL() << "was dialled " << connection; });
    class Forged : public MarkerSource {
    public:
        std::vector<ProfiledMarker> read() override { return {marker}; }
        ProfiledMarker marker;
    } forged;
    forged.marker = {program->pid, agent.endpoint.port, "forged"};
    JvmFinder finder(processes, forged);
    EXPECT_FALSE(finder.find(std::to_string(program->pid)).isProfiled());
}

TEST_P(RealJvm, programIsWhatItIsWithoutTheAgentAfterAttach) {
    if (!hasPrograms()) {
        GTEST_SKIP() << "the agent was not built";
    }
    auto program = start({"-XX:+EnableDynamicAgentLoading"}, "busy");
    std::string pid = std::to_string(program->pid);
    EXPECT_GT(json("attach", pid, "sampling,debug=" + std::string(3000, 'n'))["port"], 0);
    EXPECT_EQ(json("attach", pid, "")["already"], true);
    // What can be done later is done, all else is refused: nothing is taken and left undone.
    EXPECT_EQ(vdk("sample stop", pid, "").code, 0);
    EXPECT_EQ(vdk("attach", pid, "sampling").code, 0);
    EXPECT_EQ(json("status", pid, "")["cpu"], "sampling");
    EXPECT_EQ(json("attach", pid, "port=10005", 1)["word"], "attach.present");
    EXPECT_EQ(vdk("retransform", pid, "--filter-file /nonexistent").code, 2);
    EXPECT_EQ(json("status", pid, "")["pid"], program->pid);
    Result top = vdk("top", pid, "--interval 100ms --json");
    EXPECT_EQ(top.code, 0);
    // One look after the other until the program was seen at work: it may have had no time before.
    Result work = run(client + " top " + pid + Patient +
                      "--interval 1s --count 200 --json | grep -m 1 -F Waiter.burn");
    EXPECT_EQ(work.code, 0) << top.out;
    std::string file = dir.file("saved.snapshot");
    Result snapshot =
        vdk("snapshot", pid, "--compressed --dir " + dir.path + "/snaps --out " + file);
    EXPECT_EQ(snapshot.code, 0) << snapshot.out;
    EXPECT_TRUE(std::filesystem::is_empty(dir.file("snaps"))) << "the JVM's copy went";
    Result report = run(client + " report " + file + " --json");
    ASSERT_EQ(report.code, 0);
    EXPECT_FALSE(nlohmann::json::parse(report.out)["methods"].empty());
    EXPECT_EQ(program->finish(), 7);
    EXPECT_EQ(program->output, "ready\ndone\n");
    EXPECT_EQ(TempDir::read(dir.file("err")), "");
}

TEST_P(RealJvm, programIsWhatItIsWithoutTheAgentUnderRun) {
    if (!hasPrograms()) {
        GTEST_SKIP() << "the agent was not built";
    }
    std::vector<std::string> command = {client, "run", "sampling", "--"};
    std::vector<std::string> program = java();
    command.insert(command.end(), program.begin(), program.end());
    JavaProcess process(command, dir.file("err"));
    ASSERT_TRUE(process.waitFor("ready"));
    Result dump = vdk("dump", std::to_string(process.pid), "");
    EXPECT_EQ(dump.code, 0);
    EXPECT_NE(dump.out.find("Waiter.main"), std::string::npos) << dump.out;
    EXPECT_EQ(process.finish(), 7);
    EXPECT_EQ(process.output, "ready\ndone\n");
    std::string err = TempDir::read(dir.file("err"));
    EXPECT_EQ(err.find("vdk: snapshot: "), 0u) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    std::filesystem::remove(err.substr(15, err.find('\n') - 15));
}

// Two JVMs of one script, which end together: each one's data is kept, and told where.
TEST_P(RealJvm, scriptUnderRunKeepsWhatItsJvmsMeasured) {
    if (!hasPrograms()) {
        GTEST_SKIP() << "the agent was not built";
    }
    std::string java = "echo x | " + homes[0] + "/bin/java -cp " + dir.path + " Waiter busy";
    dir.write("script", "#!/bin/sh\n" + java + " &\n" + java + "\nwait\n");
    std::filesystem::permissions(dir.file("script"), std::filesystem::perms::owner_all);
    dir.write("app.snapshot", "of an earlier run");
    Result script = run("cd " + dir.path + " && " + client +
                        " run sampling --out app.snapshot -- ./script 2>err");
    EXPECT_EQ(script.out.find("Picked up"), std::string::npos) << script.out;
    std::string err = TempDir::read(dir.file("err"));
    for (const char* name : {"app.snapshot", "app-1.snapshot"}) {
        EXPECT_NE(err.find("vdk: snapshot: " + dir.file(name) + "\n"), std::string::npos) << err;
        Result report = run(client + " report " + dir.file(name) + " --json");
        EXPECT_EQ(report.code, 0) << name;
        EXPECT_NE(report.out.find("\"session\": \"Waiter"), std::string::npos) << report.out;
    }
    Result silent = run("cd " + dir.path + " && " + client +
                        " run sampling --no-snapshot -- ./script 2>&1 | grep -v 'Picked up'");
    EXPECT_EQ(silent.out.find("vdk"), std::string::npos) << silent.out;
}

// One command: what it switched on is off again, each file has its own time alone, and Ctrl-C and
// the program's end still leave a file.
TEST_P(RealJvm, recordingIsAFileAndLeavesNothingOn) {
    if (!hasPrograms()) {
        GTEST_SKIP() << "the agent was not built";
    }
    auto program = start({"-XX:+EnableDynamicAgentLoading"}, "busy");
    const std::string pid = std::to_string(program->pid), file = dir.file("app.");
    const auto record = [&](const std::string& options) {
        return json("record", pid, options)["recordings"][0];
    };
    for (const char* place : {"before the agent", "with it"}) {
        const auto doctor = json("doctor", pid, "");
        EXPECT_EQ(doctor["good"], true) << place << doctor;
        EXPECT_EQ(doctor.dump().find("\"possible\":false"), std::string::npos) << place << doctor;
        EXPECT_EQ(vdk("attach", pid, "").code, 0);
    }
    const nlohmann::json first = record("--for 1s --sample --alloc --locks --out " + file + "html");
    EXPECT_GT(first["sampledCpuNs"], 0);
    EXPECT_EQ(first["hottest"][0]["name"], "Waiter.burn");
    const nlohmann::json second = record("--for 1s --out " + file + "snapshot");
    const nlohmann::json status = json("status", pid, "");
    EXPECT_EQ(status["cpu"], "off");
    EXPECT_EQ(status["active"].dump().find("allocations"), std::string::npos) << status;
    const int64_t both = first["usedCpuNs"].get<int64_t>() + second["usedCpuNs"].get<int64_t>();
    EXPECT_LE(both, json("report", pid, "")["usedCpuNs"].get<int64_t>()) << "no time is in both";
    const Result report = run(client + " report " + file + "snapshot --json");
    EXPECT_EQ(nlohmann::json::parse(report.out)["usedCpuNs"], second["usedCpuNs"]);

    const std::string diff = client + " diff " + file + "snapshot " + file + "snapshot --json";
    const Result same = run(diff + " --max-growth '*:0%' --out " + file + "diff.html");
    EXPECT_EQ(same.code, 0) << same.out;
    EXPECT_EQ(nlohmann::json::parse(same.out)["per"], "second");
    EXPECT_EQ(nlohmann::json::parse(same.out)["kinds"][0]["now"], second["hottest"][0]["total"]);
    EXPECT_EQ(run(diff + " --max-own 'Waiter:0%'").code, 1);

    // Ctrl-C ends it early. The JVM tells when sampling is on; samples come some time behind that.
    const std::string inBackground = client + " record " + pid + Patient + "--for 1h --json --out ";
    const std::string sampling = "until " + client + " status " + pid + Patient +
                                 "| grep -q 'cpu .*sampling'; do sleep 0.1; done; ";
    const Result interrupted =
        run(inBackground + file + "collapsed & " + sampling + "sleep 0.5; kill -INT $!; wait $!");
    EXPECT_EQ(interrupted.code, 0) << interrupted.out;
    EXPECT_NE(TempDir::read(file + "collapsed").find("Waiter.main"), std::string::npos);
    EXPECT_EQ(json("status", pid, "")["cpu"], "off");
    EXPECT_EQ(json("record", pid, "--out " + file + "png", 2)["word"], "usage");

    // The program ends while it is recorded.
    run(inBackground + file + "pb.gz > " + dir.file("ended") + " & " + sampling);
    EXPECT_EQ(program->finish(), 7);
    EXPECT_EQ(program->output, "ready\ndone\n");
    EXPECT_EQ(TempDir::read(dir.file("err")), "");
    run("until grep -q '^}' " + dir.file("ended") + "; do sleep 0.1; done");
    const auto ended = nlohmann::json::parse(TempDir::read(dir.file("ended")))["recordings"][0];
    EXPECT_EQ(ended["ended"], true);
    EXPECT_GT(ended["usedCpuNs"], 0);
    EXPECT_EQ(TempDir::read(file + "pb.gz").substr(0, 2), "\x1f\x8b");
}

TEST_P(RealJvm, programIsRecordedFromItsStartToItsEnd) {
    if (!hasPrograms()) {
        GTEST_SKIP() << "the agent was not built";
    }
    std::vector<std::string> command = {
        client, "record", "--wall", "--locks", "--out", dir.file("app.json"), "--"};
    std::vector<std::string> program = java();
    command.insert(command.end(), program.begin(), program.end());
    JavaProcess process(command, dir.file("err"));
    ASSERT_TRUE(process.waitFor("ready"));
    // Until it was seen at work: what a recording has before the end must still be there after it.
    const std::string pid = std::to_string(process.pid);
    const Result seen = run("until " + client + " report $(cat /proc/" + pid + "/task/" + pid +
                            "/children) --json 2>/dev/null | grep -q -F Waiter.main; do kill -0 " +
                            pid + " || exit 1; done 2>&1");
    EXPECT_EQ(seen.code, 0) << seen.out << TempDir::read(dir.file("err"));
    EXPECT_EQ(process.finish(), 7) << "the program's exit code";
    EXPECT_EQ(process.output, "ready\ndone\n");
    const std::string err = TempDir::read(dir.file("err"));
    EXPECT_NE(err.find("until its end"), std::string::npos) << err;
    EXPECT_NE(TempDir::read(dir.file("app.json")).find("Waiter.main"), std::string::npos);
    const Result nothing =
        run(client + " record --json --out " + dir.file("no.html") + " -- sh -c 'exit 3' 2>&1");
    EXPECT_EQ(nothing.code, 5) << nothing.out;
    EXPECT_NE(nothing.out.find("record.nothing"), std::string::npos) << nothing.out;
}

TEST_P(RealJvm, flightRecordingsAreReadWithAllTheirSamples) {
    client = builtFile("vdk");
    if (client.empty()) {
        GTEST_SKIP() << "vdk was not built";
    }
    // The launcher compiles it, so that there is something to see.
    dir.write("Hello.java", "class Hello { public static void main(String[] a) { } }");
    const std::string file = dir.file("x.jfr"), bin = homes[0] + "/bin/";
    run(bin + "java -Xlog:disable -XX:StartFlightRecording:settings=profile,filename=" + file +
        " " + dir.file("Hello.java") + " 2>&1");
    const std::string counted =
        run(bin + "jfr print --events jdk.ExecutionSample " + file + " | grep -c stackTrace").out;
    const Result report = run(client + " report " + file + " --json");
    EXPECT_EQ(report.code, 0) << report.out;
    const auto json = nlohmann::json::parse(report.out, nullptr, false);
    EXPECT_GT(json["totalSamples"], 0);
    EXPECT_EQ(std::to_string(json["totalSamples"].get<int>()) + "\n", counted);
    dir.write("cut.jfr", TempDir::read(file).substr(0, 500));
    EXPECT_EQ(run(client + " report " + dir.file("cut.jfr") + " 2>&1").code, 7);
}

TEST_P(RealJvm, heapIsCountedAndWrittenWithoutTheAgent) {
    std::string client = builtFile("vdk");
    if (client.empty()) {
        GTEST_SKIP() << "vdk was not built";
    }
    JavaProcess program(java(), dir.file("err"));
    ASSERT_TRUE(program.waitFor("ready"));
    std::string pid = std::to_string(program.pid), file = dir.file("app.hprof");
    auto json = [&](const std::string& arguments) {
        Result result = run(client + " heap " + arguments + " --json");
        EXPECT_EQ(result.code, 0) << arguments << result.out;
        return nlohmann::json::parse(result.out, nullptr, false);
    };
    auto live = json("live " + pid + Patient + "'java.lang.St*ng'");
    ASSERT_EQ(live["classes"].size(), 1u) << live;
    EXPECT_EQ(live["classes"][0]["class"], "java.lang.String");
    EXPECT_GT(live["count"], live["classes"][0]["count"]);
    EXPECT_GT(json("live " + pid + Patient + "--all")["count"], 0);

    const std::string capture = "capture " + pid + Patient + "--out ";
    auto captured = json(capture + file);
    EXPECT_EQ(captured["bytes"], std::filesystem::file_size(file));
    EXPECT_EQ(std::filesystem::status(file).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    double counted = live["classes"][0]["count"];
    EXPECT_NEAR(double(json(file + " histogram java.lang.String")["classes"][0]["count"]), counted,
                counted / 10);
    EXPECT_EQ(json(capture + file + " --all --overwrite")["liveOnly"], false);
    EXPECT_GT(json(file)["objectCount"], 0);
    // By way of a folder of the JVM's.
    EXPECT_EQ(json(capture + dir.file("copy.hprof") + " --dir " + dir.path)["liveOnly"], true);
    EXPECT_GT(json(dir.file("copy.hprof"))["objectCount"], 0);

    static const struct {
        const char* out;
        int code;
        const char* word;
    } refused[] = {{"app.hprof", 8, "output.exists"},
                   {"missing/app.hprof", 8, "output.open"},
                   {"full", 8, "output.write"}};
    std::filesystem::create_symlink("/dev/full", dir.file("full"));
    for (const auto& c : refused) {
        Result result = run(client + " heap " + capture + dir.file(c.out) + " --json 2>&1");
        EXPECT_EQ(result.code, c.code) << c.out << result.out;
        EXPECT_NE(result.out.find(std::string("\"") + c.word + "\""), std::string::npos)
            << result.out;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.path)) {
        EXPECT_EQ(entry.path().string().find(".tmp"), std::string::npos) << entry.path();
        EXPECT_EQ(entry.path().string().find("heap-"), std::string::npos) << entry.path();
    }
    EXPECT_EQ(program.finish(), 7);
    EXPECT_EQ(program.output, "ready\ndone\n");
}

INSTANTIATE_TEST_SUITE_P(Releases, RealJvm, testing::Values(Release{"17", 1}, Release{"25", 2}),
                         [](const auto& info) { return std::string("Java") + info.param.name; });

} // namespace
