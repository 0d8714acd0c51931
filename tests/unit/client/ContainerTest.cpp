// JVMs in namespaces of their own, as containers have them, found and entered from outside.
#include "Expect.h"
#include "FakeAgent.h"
#include "JavaProcess.h"
#include "client/attach/Namespaces.h"
#include "client/attach/ProcFs.h"
#include "client/console/Text.h"

#include <gtest/gtest.h>
#include <memory>
#include <net/if.h>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>

using namespace vdk;

namespace {

const char Patient[] = " --timeout 120s ";

class Container : public testing::Test {
protected:
    void SetUp() override {
        client = builtFile("vdk");
        std::vector<std::string> homes = jdks("17");
        if (client.empty() || builtFile("libvdkagent.so").empty() || homes.empty() ||
            !JavaProcess::compile(dir)) {
            GTEST_SKIP() << "no agent or no JDK 17";
        }
        if (run("unshare -m -n -i -p --fork --mount-proc true 2>&1").code != 0) {
            GTEST_SKIP() << "this user may not make namespaces: run the tests as root";
        }
        java = homes[0] + "/bin/java";
    }

    // Starts the program with `unshare` and these options, after shell commands within.
    std::unique_ptr<JavaProcess> start(const std::string& options, const std::string& prepare) {
        std::string line = prepare + "exec " + java + " -cp " + dir.path + " Waiter busy";
        std::vector<std::string> command = {"unshare", "--kill-child", "--fork"};
        for (const std::string& option : split(options, ' ')) {
            command.push_back(option);
        }
        command.insert(command.end(), {"sh", "-c", line});
        auto process = std::make_unique<JavaProcess>(command, dir.file("err"));
        EXPECT_TRUE(process->waitFor("ready")) << TempDir::read(dir.file("err"));
        return process;
    }

    // The id of the JVM that the process started, as this process sees it.
    static std::string jvmOf(const JavaProcess& process) {
        std::string id = std::to_string(process.pid);
        std::string child = TempDir::read("/proc/" + id + "/task/" + id + "/children");
        return child.substr(0, child.find(' '));
    }

    static void bringLoopbackUp(const std::string& pid) {
        Descriptor network(open(("/proc/" + pid + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC));
        NamespaceVisit visit("net", network);
        ASSERT_TRUE(visit.succeeded());
        Descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ifreq request = {};
        strcpy(request.ifr_name, "lo");
        request.ifr_flags = IFF_UP | IFF_RUNNING;
        ASSERT_EQ(ioctl(any.get(), SIOCSIFFLAGS, &request), 0);
    }

    Result vdk(const std::string& arguments) { return ::run(client + " " + arguments + " 2>&1"); }
    nlohmann::json json(const std::string& arguments) {
        Result result =
            ::run(client + " " + arguments + (arguments == "list" ? " " : Patient) + "--json");
        EXPECT_EQ(result.code, 0) << arguments;
        return nlohmann::json::parse(result.out, nullptr, false);
    }

    // What `vdk list` has of the JVM: the name of its session, "" without an agent.
    std::string sessionOf(const std::string& pid, int port = 0) {
        const nlohmann::json list = json("list"); // which the loop does not keep alive
        for (const auto& jvm : list["jvms"]) {
            if (jvm["pid"] == std::stoi(pid)) {
                EXPECT_TRUE(port == 0 || jvm["port"] == port) << jvm;
                return jvm["profiled"] == true ? jvm["session"].get<std::string>() : "";
            }
        }
        return "not listed";
    }

    TempDir dir{"/var/tmp"}; // seen by programs that replace /tmp
    std::string client, java;
};

// Folders for temporary files of their own, as containers have.
const char OwnTmp[] = "mount -t tmpfs tmpfs /tmp; ";

} // namespace

TEST_F(Container, jvmsOfOneIdAndOnePortAreEachServedAsThemselves) {
    const std::string options = "-p --mount-proc -m";
    auto inside = start(options + " -n -i", OwnTmp);
    auto outside = start(options, OwnTmp);
    std::string a = jvmOf(*inside), b = jvmOf(*outside);
    bringLoopbackUp(a);
    std::string port;
    {
        UnheardPort free;
        port = std::to_string(free.endpoint.port);
    }
    EXPECT_EQ(json("attach " + a + " sessionname=inside,port=" + port)["port"], std::stoi(port));
    EXPECT_EQ(json("attach " + b + " sessionname=outside,sampling,port=" + port)["already"], false);
    EXPECT_EQ(sessionOf(a, std::stoi(port)), "inside");
    EXPECT_EQ(sessionOf(b, std::stoi(port)), "outside");
    EXPECT_EQ(json("status " + a)["session"], "inside");
    EXPECT_EQ(json("status " + a)["cpu"], "off");
    EXPECT_EQ(json("sample start " + a)["pid"], std::stoi(a));
    EXPECT_EQ(json("sample stop " + a)["session"], "inside");
    EXPECT_EQ(json("status " + b)["cpu"], "sampling") << "the other JVM's was stopped";
    EXPECT_EQ(json("top " + b + " --count 1 --interval 100ms")["pid"], std::stoi(b));
    std::string file = dir.file("a.snapshot");
    Result snapshot = vdk("snapshot " + a + Patient + "--dir " + dir.path + "/snaps --out " + file);
    EXPECT_EQ(snapshot.code, 0) << snapshot.out;
    EXPECT_TRUE(std::filesystem::exists(file));

    // One more of that id, on that port of its own network, and with the same area of markers.
    auto fresh = start(options + " -n", OwnTmp);
    std::string c = jvmOf(*fresh);
    bringLoopbackUp(c);
    EXPECT_EQ(sessionOf(c), "") << "the marker is another's";
    EXPECT_EQ(json("attach " + c + " sessionname=fresh,port=" + port)["already"], false);
    EXPECT_EQ(json("status " + c)["session"], "fresh");
    EXPECT_EQ(sessionOf(c), "fresh");
    EXPECT_EQ(sessionOf(b), "outside") << "its marker was taken";
}

TEST_F(Container, foldersThatAreReadOnlyOrWithoutProgramsAreToldOrPassedOver) {
    auto noexec = start("-m", "mount --bind /tmp /tmp; mount -o remount,bind,noexec /tmp; ");
    Result attach = vdk("attach " + jvmOf(*noexec) + Patient);
    EXPECT_EQ(attach.code, 0) << attach.out;

    auto readOnly = start("-m", "mount --bind /tmp /tmp; mount -o remount,bind,ro /tmp; ");
    Result refused = vdk("attach " + jvmOf(*readOnly) + Patient + "--json");
    EXPECT_EQ(refused.code, 4) << refused.out;
    auto error = nlohmann::json::parse(refused.out, nullptr, false);
    EXPECT_EQ(error["word"], "attach.file") << refused.out;
    EXPECT_NE(refused.out.find("read-only"), std::string::npos) << refused.out;
}

TEST_F(Container, heapIsWrittenWhereTheContainerHasRoom) {
    auto program = start("-p --mount-proc -m", "mount -t tmpfs -o size=300k tmpfs /tmp; "
                                               "mount -t tmpfs tmpfs /mnt; ");
    const std::string pid = jvmOf(*program), file = dir.file("c.hprof");
    Result full = vdk("heap capture " + pid + Patient + "--json --out " + file);
    EXPECT_EQ(full.code, 8) << full.out;
    EXPECT_NE(full.out.find("\"output.space\""), std::string::npos) << full.out;
    EXPECT_FALSE(std::filesystem::exists(file));
    Result roomy = vdk("heap capture " + pid + Patient + "--dir /mnt --out " + file);
    EXPECT_EQ(roomy.code, 0) << roomy.out;
    EXPECT_EQ(vdk("heap " + file).code, 0);
    EXPECT_TRUE(std::filesystem::is_empty("/proc/" + pid + "/root/mnt/vdk-0"));
}

TEST_F(Container, libraryThatTheContainerHasItselfIsUsedAsItIs) {
    // Nowhere else is a program allowed.
    std::string library = builtFile("libvdkagent.so");
    std::string prepare = "mount -t tmpfs tmpfs /mnt; cp " + library +
                          " /mnt/agent.so; for f in /tmp /var/tmp /dev/shm; do "
                          "mount --bind $f $f; mount -o remount,bind,noexec $f; done; ";
    auto program = start("-m", prepare);
    std::string pid = jvmOf(*program);
    Result refused = vdk("attach " + pid + Patient + "--json");
    EXPECT_EQ(refused.code, 4) << refused.out;
    EXPECT_NE(refused.out.find("\"agent.noexec\""), std::string::npos) << refused.out;
    Result attach = vdk("attach " + pid + Patient + "--agent /mnt/agent.so");
    EXPECT_EQ(attach.code, 0) << attach.out;
}
