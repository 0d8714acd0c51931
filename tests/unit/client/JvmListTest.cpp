#include "client/attach/JvmList.h"

#include "Expect.h"
#include "TempDir.h"
#include "client/attach/Hsperf.h"
#include "client/attach/TargetLibc.h"
#include "client/console/Text.h"

#include <algorithm>
#include <csignal>
#include <functional>
#include <gnu/libc-version.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vdk;

namespace {

class FakeMarkers : public MarkerSource {
public:
    std::vector<ProfiledMarker> read() override { return markers; }
    std::vector<ProfiledMarker> markers;
};

// Processes laid out as files.
struct FakeMachine {
    void add(int pid, const std::string& commandLine, const std::string& library,
             int namespacePid = 0) {
        std::string folder = std::to_string(pid) + "/";
        std::string arguments = commandLine;
        for (char& c : arguments) {
            c = c == ' ' ? '\0' : c;
        }
        dir.write(folder + "cmdline", arguments + '\0');
        dir.write(folder + "maps", "7f00-7f01 r-xp 00000000 08:01 1 " + library + "\n");
        dir.write(folder + "status", "Name:\tjava\nState:\tS (sleeping)\nUid:\t0\t" +
                                         std::to_string(getuid()) + "\t0\t0\nGid:\t0\t" +
                                         std::to_string(getgid()) + "\t0\t0\nNSpid:\t" +
                                         std::to_string(pid) + "\t" +
                                         std::to_string(namespacePid ? namespacePid : pid) +
                                         "\nSigCgt:\t0000000181005ccf\n");
        std::filesystem::create_directories(dir.file(folder + "root/tmp"));
    }

    void setUser(int pid, unsigned uid) {
        std::string status = TempDir::read(dir.file(std::to_string(pid) + "/status"));
        std::string own = "Uid:\t0\t" + std::to_string(getuid());
        status.replace(status.find(own), own.size(), "Uid:\t0\t" + std::to_string(uid));
        dir.write(std::to_string(pid) + "/status", status);
    }

    // The process listens on the port; `seen` tells whether in the network of this process.
    void listens(int pid, const char* address, int port, int inode, bool seen, bool own = true,
                 const char* table = "/net/tcp") {
        char line[200];
        snprintf(line, sizeof(line),
                 "   0: %s:%04X 00000000:0000 0A 00000000:00000000 00:00000000 00000000 %5u"
                 "        0 %d 1 0000000000000000 100 0 0 10 0\n",
                 address, port, getuid(), inode);
        std::string name = std::to_string(pid);
        dir.append(name + table, line);
        if (seen) {
            dir.append(std::string("self") + table, line);
        }
        std::filesystem::create_directories(dir.file(name + "/fd"));
        if (own) {
            std::filesystem::create_symlink("socket:[" + std::to_string(inode) + "]",
                                            dir.file(name + "/fd/" + std::to_string(inode)));
        }
    }

    TempDir dir;
    ProcFs processes{dir.path};
    FakeMarkers markers;
    JvmFinder finder{processes, markers};
};

const char Jvm17[] = "/usr/lib/jvm/lib/server/libjvm.so";

// A performance data file with one text entry, as the JVM lays it out.
std::string hsperf(const std::string& name, const std::string& text) {
    auto word = [](size_t value) {
        std::string bytes;
        for (int i = 0; i < 4; i++) {
            bytes += char(value >> (8 * i) & 255);
        }
        return bytes;
    };
    size_t data = 20 + name.size() + 1;
    std::string entry = word(data + text.size() + 1) + word(20) + word(text.size() + 1) + "B" +
                        std::string("\1\5\1", 3) + word(data) + name + '\0' + text + '\0';
    return std::string("\xca\xfe\xc0\xc0\1\2\0\1", 8) + word(32 + entry.size()) + word(0) +
           std::string(8, '\0') + word(32) + word(1) + entry;
}

} // namespace

TEST(JvmList, mainIsFoundBehindTheLaunchersOptions) {
    static const struct {
        const char* commandLine;
        const char* main;
    } cases[] = {
        {"java -Xmx1g -cp a.jar:b com.foo.Main x y", "com.foo.Main"},
        {"java -jar /opt/app/server.jar --port 1", "/opt/app/server.jar"},
        {"java --module-path mods -m app/com.foo.Main", "app/com.foo.Main"},
        {"java --add-opens java.base/java.lang=ALL-UNNAMED com.foo.Main", "com.foo.Main"},
        {"java @options com.foo.Main", "com.foo.Main"},
        {"java -version", ""},
        {"java", ""},
    };
    for (const auto& c : cases) {
        size_t next = 0;
        EXPECT_EQ(findMainArgument(split(c.commandLine, ' '), next), c.main) << c.commandLine;
    }
}

TEST(JvmList, targetIsAPidOrPartOfANameAndAmbiguityIsRefused) {
    FakeMachine machine;
    machine.add(101, "java -cp x com.foo.OrderServer", Jvm17);
    machine.add(102, "java -jar /opt/app/orders.jar", Jvm17);
    machine.add(103, "java -cp x com.foo.Billing", Jvm17);
    machine.add(104, "/bin/sh Billing", "/lib/libc.so");
    EXPECT_EQ(machine.finder.find("103").mainName, "com.foo.Billing");
    EXPECT_EQ(machine.finder.find("billing").pid, 103);
    EXPECT_EQ(machine.finder.find("orders.jar").pid, 102);
    std::string message;
    EXPECT_EQ(wordOf([&] { machine.finder.find("order"); }, &message), "target.several");
    EXPECT_NE(message.find("101"), std::string::npos);
    EXPECT_NE(message.find("102"), std::string::npos);
    EXPECT_EQ(message.find("103"), std::string::npos);
    EXPECT_EQ(wordOf([&] { machine.finder.find("nothing"); }), "target.none");
    EXPECT_EQ(wordOf([&] { machine.finder.find("104"); }, &message), "target.none");
    EXPECT_NE(message.find("104 (/bin/sh, "), std::string::npos) << message;
    EXPECT_EQ(wordOf([&] { machine.finder.find(""); }), "target.none");
    machine.add(105, "java com.foo.Main", "/opt/j9/lib/default/libj9vm29.so");
    EXPECT_EQ(machine.finder.find("105").kind, JvmKind::OpenJ9);
    // Markers make no JVM of another program or of none.
    machine.markers.markers = {{104, 10003, "fake"}, {99999, 10004, "gone"}};
    EXPECT_EQ(machine.finder.findAll().size(), 4u);
}

TEST(JvmList, markerCountsForTheProcessThatListens) {
    static const struct {
        const char* what;
        const char* address;
        const char* table;
        bool own;
        const char* host; // "" if the marker counts for nothing
    } cases[] = {
        {"loopback", "0100007F", "/net/tcp", true, "127.0.0.1"},
        {"any", "00000000", "/net/tcp", true, "127.0.0.1"},
        {"any of both", "00000000000000000000000000000000", "/net/tcp6", true, "127.0.0.1"},
        {"mapped", "0000000000000000FFFF00000100007F", "/net/tcp6", true, "127.0.0.1"},
        {"one address", "0500000A", "/net/tcp", true, "10.0.0.5"},
        {"loopback of 6", "00000000000000000000000001000000", "/net/tcp6", true, "::1"},
        {"another's socket", "0100007F", "/net/tcp", false, ""},
    };
    for (const auto& c : cases) {
        FakeMachine machine;
        machine.add(101, "java com.foo.Main", Jvm17);
        machine.markers.markers = {{101, 10003, "shop"}};
        EXPECT_FALSE(machine.finder.find("101").isProfiled()) << c.what; // nobody listens
        machine.listens(101, c.address, 10003, 4711, true, c.own, c.table);
        Jvm jvm = machine.finder.find("101");
        EXPECT_EQ(jvm.isProfiled() ? jvm.host : "", c.host) << c.what;
        EXPECT_EQ(jvm.session, *c.host ? "shop" : "") << c.what;
        EXPECT_FALSE(jvm.ownNetwork) << c.what;
        if (c.what == std::string("any of both")) {
            // Another process takes one of the addresses, and gets the connections.
            machine.listens(101, "0100007F", 10003, 2, true, false);
            EXPECT_FALSE(machine.finder.find("101").isProfiled());
        }
    }
}

TEST(JvmList, equalIdsOfContainersAreToldApartByWhoListens) {
    FakeMachine machine;
    machine.add(1, "/sbin/init", "/lib/libc.so");
    machine.add(101, "java com.foo.Main", Jvm17, 1);
    machine.add(102, "java com.foo.Other", Jvm17, 1);
    machine.markers.markers = {{1, 10003, "inside"}};
    EXPECT_FALSE(machine.finder.find("101").isProfiled()); // nobody listens: left behind
    machine.listens(102, "0100007F", 10003, 4711, false);
    EXPECT_FALSE(machine.finder.find("101").isProfiled());
    Jvm other = machine.finder.find("102");
    EXPECT_EQ(other.port, 10003);
    EXPECT_TRUE(other.ownNetwork);
    EXPECT_EQ(other.session, "inside");
    // Two agents that overwrote each other's record: both listen, the name is anybody's.
    machine.listens(101, "0100007F", 10003, 4712, true);
    EXPECT_EQ(machine.finder.find("101").port, 10003);
    EXPECT_FALSE(machine.finder.find("101").ownNetwork);
    EXPECT_EQ(machine.finder.find("102").session, "");
    // Those that say which namespace their ids are of have a record each.
    auto namespaceOf = [&](int pid) {
        machine.dir.write(std::to_string(pid) + "/ns/pid", "");
        return machine.processes.namespaceId(pid, "pid");
    };
    machine.markers.markers = {{1, 10003, "one", namespaceOf(101)},
                               {1, 10003, "two", namespaceOf(102)}};
    EXPECT_EQ(machine.finder.find("101").session, "one");
    EXPECT_EQ(machine.finder.find("102").session, "two");
}

TEST(JvmList, agentWithoutAMarkerIsAskedForAtAgentsPorts) {
    FakeMachine machine;
    machine.add(101, "java -agentpath:/opt/libvdkagent.so=quiet,port=9999 com.foo.Main", Jvm17);
    machine.dir.append("101/maps", "7f02-7f03 r-xp 0 08:01 2 /opt/libvdkagent-77.so (deleted)\n");
    machine.add(102, "java com.foo.Other", Jvm17);
    std::vector<int> asked;
    JvmFinder finder(machine.processes, machine.markers, [&](const Jvm& jvm) {
        asked.push_back(jvm.port);
        return jvm.port == 10004 ? std::optional<std::string>("shop") : std::nullopt;
    });
    int inode = 4711;
    for (int pid : {101, 102}) {
        for (int port : {8080, 9999, 10004}) {
            machine.listens(pid, "0100007F", port, inode++, true);
        }
    }
    for (int round = 0; round < 2; round++) {
        Jvm jvm = finder.find("101");
        EXPECT_EQ(jvm.port, 10004);
        EXPECT_EQ(jvm.session, "shop");
    }
    EXPECT_FALSE(finder.find("102").isProfiled());
    EXPECT_EQ(asked, std::vector<int>({9999, 10004})) << "each once, and no other";
}

TEST(JvmList, performanceDataIsBelievedFromTheProcessesUserOnly) {
    const std::string tmp = "101/root/tmp/";
    const std::string lie = hsperf("sun.rt.javaCommand", "com.a.B c d");
    auto mainIn = [&](const std::function<void(FakeMachine&)>& prepare) {
        FakeMachine machine;
        machine.add(101, "java -cp x com.foo.Main", Jvm17, 7);
        machine.dir.write(tmp + "hsperfdata_app/other", "");
        prepare(machine);
        return machine.finder.find("101").mainName;
    };
    auto write = [&](FakeMachine& m) { m.dir.write(tmp + "hsperfdata_app/7", lie); };
    EXPECT_EQ(mainIn(write), "com.a.B");
    const std::function<void(FakeMachine&)> hostile[] = {
        [&](FakeMachine& m) { // would block whoever opens it
            EXPECT_EQ(mkfifo(m.dir.file(tmp + "hsperfdata_app/7").c_str(), 0666), 0);
        },
        [&](FakeMachine& m) { // a link that leads elsewhere
            m.dir.write("lie", lie);
            symlink(m.dir.file("lie").c_str(), m.dir.file(tmp + "hsperfdata_app/7").c_str());
        },
        [&](FakeMachine& m) { // a second name of somebody's file
            m.dir.write("lie", lie);
            EXPECT_EQ(link(m.dir.file("lie").c_str(), m.dir.file(tmp + "hsperfdata_app/7").c_str()),
                      0);
        },
        [&](FakeMachine& m) { // anybody may put files there
            write(m);
            chmod(m.dir.file(tmp + "hsperfdata_app").c_str(), 0777);
        },
        [&](FakeMachine& m) { // another container's folder, out of the process's root
            std::filesystem::remove_all(m.dir.file(tmp));
            m.dir.write("outside/hsperfdata_app/7", lie);
            symlink(m.dir.file("outside").c_str(), m.dir.file("101/root/tmp").c_str());
        },
        [&](FakeMachine& m) { // larger than any
            m.dir.write(tmp + "hsperfdata_app/7", lie + std::string(2 << 20, 'x'));
        },
    };
    for (const auto& prepare : hostile) {
        EXPECT_EQ(mainIn(prepare), "com.foo.Main") << &prepare - hostile;
    }
    if (getuid() == 0) {
        auto foreign = [&](const char* owned) {
            return [&, owned](FakeMachine& m) {
                write(m);
                m.setUser(101, 4242);
                EXPECT_EQ(chown(m.dir.file(tmp + "hsperfdata_app").c_str(), 4242, 0), 0);
                EXPECT_EQ(chown(m.dir.file(tmp + "hsperfdata_app/7").c_str(), 4242, 0), 0);
                EXPECT_EQ(chown(m.dir.file(tmp + owned).c_str(), 4243, 0), 0);
            };
        };
        EXPECT_EQ(mainIn(foreign("")), "com.a.B");
        EXPECT_EQ(mainIn(foreign("hsperfdata_app")), "com.foo.Main");
        EXPECT_EQ(mainIn(foreign("hsperfdata_app/7")), "com.foo.Main");
    }
}

TEST(JvmList, containersThatShareTheirFilesAreToldApartByTheirCommandLines) {
    FakeMachine machine;
    machine.add(101, "java com.foo.Main", Jvm17, 1);
    machine.add(102, "java com.foo.Other", Jvm17, 1);
    machine.dir.write("101/root/tmp/hsperfdata_app/1",
                      hsperf("sun.rt.javaCommand", "com.foo.Other"));
    std::filesystem::remove_all(machine.dir.file("102/root"));
    std::filesystem::create_symlink("../101/root", machine.dir.file("102/root"));
    EXPECT_EQ(machine.finder.find("101").mainName, "com.foo.Main");
    EXPECT_EQ(machine.finder.find("102").mainName, "com.foo.Other");
}

TEST(JvmList, withoutProcFsTheSystemTellsOfProcesses) {
    FakeMarkers markers;
    ProcFs processes("/nonexistent/proc");
    std::vector<int> pids = processes.pids();
    EXPECT_NE(std::find(pids.begin(), pids.end(), getpid()), pids.end());
    EXPECT_EQ(processes.commandLine(getpid()), ProcFs().commandLine(getpid()));
    auto status = processes.status(getpid());
    ASSERT_TRUE(status);
    EXPECT_EQ(status->euid, geteuid());
    // A JVM is what is called java: here a program that sleeps.
    pid_t child = fork();
    if (child == 0) {
        execl("/bin/sleep", "/opt/jdk/bin/java", "60", nullptr);
        _exit(126);
    }
    auto isExecuted = [&] {
        // Empty while the child changes its program.
        std::vector<std::string> words = processes.commandLine(child);
        return !words.empty() && words[0] == "/opt/jdk/bin/java";
    };
    while (!isExecuted()) {
        usleep(1000);
    }
    Jvm found = JvmFinder(processes, markers).find(std::to_string(child));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(found.mainName, "60");
    EXPECT_EQ(found.namespacePid, child);
}

TEST(JvmList, cLibraryOfTheTargetDecidesWhetherTheAgentCanBeLoaded) {
    static const struct {
        const char* mapped;
        const char* banner;
        const char* word;
    } cases[] = {
        {"/lib/ld-musl-x86_64.so.1", "", "agent.libc"},
        {"/lib64/libc-2.12.so", "GNU C Library stable release version 2.12, by", "agent.glibc"},
        {"/lib64/libc-2.12.so", "GNU C Library (a) stable release version 2.12, by", "agent.glibc"},
        {"/lib64/libc-2.17.so", "GNU C Library (GNU libc) stable release version 2.17, by", ""},
        {"/usr/lib64/libc.so.6", "GNU C Library (GNU libc) development release version 2.5.9000",
         "agent.glibc"},
        {"/usr/lib64/libc.so.6", "GNU C Library (Debian GLIBC 2.36-9) stable release version 2.36.",
         ""},
        {"/usr/lib64/libc.so.6", "a file without the text", ""},
    };
    for (const auto& c : cases) {
        FakeMachine machine;
        machine.add(101, "java com.foo.Main", c.mapped);
        machine.dir.write(std::string("101/root") + c.mapped,
                          std::string("\x7f\0ELF", 5) + c.banner + '\n');
        EXPECT_EQ(wordOf([&] { checkTargetLibc(machine.processes, 101); }), c.word) << c.banner;
    }
    auto own = targetGlibc(ProcFs(), getpid());
    ASSERT_TRUE(own);
    EXPECT_EQ(std::to_string(own->major) + "." + std::to_string(own->minor),
              gnu_get_libc_version());
}

TEST(JvmList, damagedPerformanceDataIsRefusedOrCut) {
    const std::string key = "sun.rt.javaCommand";
    std::string good = hsperf(key, "Main");
    EXPECT_EQ((*parseHsperf(good))[key], "Main");
    for (size_t length = 0; length < good.size(); length++) {
        auto entries = parseHsperf(std::string_view(good).substr(0, length));
        EXPECT_FALSE(entries && entries->count(key)) << length;
    }
    for (size_t at = 32; at < 52; at++) {
        std::string bad = good;
        bad[at] = '\xff';
        parseHsperf(bad); // must stay within the bytes, whatever an offset says
    }
}

TEST(JvmList, addressesHaveAColonAndAPort) {
    Endpoint endpoint;
    EXPECT_TRUE(parseEndpoint(":10005", endpoint));
    EXPECT_EQ(endpoint.text(), "127.0.0.1:10005");
    EXPECT_TRUE(parseEndpoint("[::1]:10005", endpoint));
    EXPECT_EQ(endpoint.host, "::1");
    EXPECT_TRUE(parseEndpoint("box:80", endpoint));
    EXPECT_EQ(endpoint.text(), "box:80");
    for (const char* text : {"10005", "box:", "box:0", "box:65536", "box:1x", ""}) {
        EXPECT_FALSE(parseEndpoint(text, endpoint)) << text;
    }
}
