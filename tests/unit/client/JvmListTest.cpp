#include "client/attach/JvmList.h"

#include "Expect.h"
#include "TempDir.h"
#include "client/attach/Hsperf.h"
#include "client/attach/TargetLibc.h"

#include <gnu/libc-version.h>
#include <gtest/gtest.h>
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
        std::vector<std::string> words;
        std::string word;
        for (const char* p = c.commandLine;; p++) {
            if (*p && *p != ' ') {
                word += *p;
                continue;
            }
            words.push_back(word);
            word.clear();
            if (!*p) {
                break;
            }
        }
        size_t next = 0;
        EXPECT_EQ(findMainArgument(words, next), c.main) << c.commandLine;
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
    EXPECT_EQ(wordOf([&] { machine.finder.find("104"); }), "target.none");
    EXPECT_EQ(wordOf([&] { machine.finder.find(""); }), "target.none");
}

TEST(JvmList, markerGivesPortAndSession) {
    FakeMachine machine;
    machine.add(101, "java com.foo.Main", Jvm17);
    machine.markers.markers = {{101, 10003, "shop"}};
    Jvm jvm = machine.finder.find("shop");
    EXPECT_EQ(jvm.pid, 101);
    EXPECT_EQ(jvm.port, 10003);
    EXPECT_TRUE(jvm.isProfiled());
}

TEST(JvmList, markerOfAProcessThatIsNoJvmIsIgnored) {
    FakeMachine machine;
    machine.add(104, "/bin/sleep 100", "/lib/libc.so");
    machine.markers.markers = {{104, 10003, "fake"}, {99999, 10004, "gone"}};
    EXPECT_TRUE(machine.finder.findAll().empty());
}

TEST(JvmList, markerOfAnotherPidNamespaceIsGivenToTheJvmThatListens) {
    FakeMachine machine;
    machine.add(1, "/sbin/init", "/lib/libc.so");
    machine.add(101, "java com.foo.Main", Jvm17, 1);
    machine.add(102, "java com.foo.Other", Jvm17, 1);
    machine.markers.markers = {{1, 10003, "inside"}};
    EXPECT_FALSE(machine.finder.find("101").isProfiled()); // nobody listens: left behind
    machine.dir.write("102/net/tcp",
                      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt"
                      "   uid  timeout inode\n"
                      "   0: 0100007F:2713 00000000:0000 0A 00000000:00000000 00:00000000 00000000"
                      "     0        0 4711 1 0000000000000000 100 0 0 10 0\n");
    std::filesystem::create_directories(machine.dir.file("102/fd"));
    EXPECT_FALSE(machine.finder.find("102").isProfiled()); // another process's socket
    std::filesystem::create_symlink("socket:[4711]", machine.dir.file("102/fd/5"));
    EXPECT_FALSE(machine.finder.find("101").isProfiled());
    EXPECT_EQ(machine.finder.find("102").port, 10003);
    machine.add(1, "java com.foo.Own", Jvm17);
    EXPECT_EQ(machine.finder.find("1").port, 10003);
    EXPECT_FALSE(machine.finder.find("102").isProfiled());
}

TEST(JvmList, performanceDataOfTheTargetsNamespaceWins) {
    FakeMachine machine;
    machine.add(101, "java -cp x @all", Jvm17, 7);
    const std::string rootOfTarget = "101/root";
    machine.dir.write(rootOfTarget + "/tmp/hsperfdata_app/7",
                      hsperf("sun.rt.javaCommand", "com.a.B c d"));
    Jvm jvm = machine.finder.find("101");
    EXPECT_EQ(jvm.namespacePid, 7);
    EXPECT_EQ(jvm.mainName, "com.a.B");
    EXPECT_EQ(jvm.arguments, "c d");
}

TEST(JvmList, openJ9IsToldApart) {
    FakeMachine machine;
    machine.add(101, "java com.foo.Main", "/opt/j9/lib/default/libj9vm29.so");
    EXPECT_EQ(machine.finder.find("101").kind, JvmKind::OpenJ9);
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
    std::string good = hsperf("sun.rt.javaCommand", "Main");
    for (size_t length = 0; length < good.size(); length++) {
        EXPECT_FALSE(
            parseHsperf(std::string_view(good).substr(0, length)).has_value() &&
            parseHsperf(std::string_view(good).substr(0, length))->count("sun.rt.javaCommand") != 0)
            << length;
    }
    for (size_t at = 32; at < 52; at++) {
        std::string bad = good;
        bad[at] = '\xff';
        parseHsperf(bad); // must stay within the bytes, whatever an offset says
    }
    EXPECT_EQ((*parseHsperf(good))["sun.rt.javaCommand"], "Main");
}

TEST(JvmList, statusTellsNamespacePidUserAndSignal) {
    FakeMachine machine;
    machine.add(101, "java Main", Jvm17, 12);
    auto status = machine.processes.status(101);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->namespacePid, 12);
    EXPECT_EQ(status->euid, getuid());
    EXPECT_TRUE(status->catchesQuit);
    EXPECT_FALSE(machine.processes.status(100));
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
