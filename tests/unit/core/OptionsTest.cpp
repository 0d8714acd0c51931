// Startup options: every key with its effect, every refusal with its text.
#include "core/ground/Options.h"

#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/ground/Version.h"

#include <climits>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string>& loggedLines() {
    static std::vector<std::string> lines;
    return lines;
}

void collectLine(const char* line) {
    loggedLines().push_back(line);
}

bool wasLogged(const std::string& line) {
    for (const std::string& logged : loggedLines()) {
        if (logged == line) {
            return true;
        }
    }
    return false;
}

class OptionsTest : public testing::Test {
protected:
    void SetUp() override {
        ourCapabilities = 0x1140;
        ourStatus = 0x600;
        ourIsIBM = ourIsJRockit = ourIsJRockitR28 = false;
        Logger::ourExitOnException = false;
        loggedLines().clear();
        Logger::setSink(collectLine);
    }
    void TearDown() override {
        SetUp();
        Logger::setSink(nullptr);
    }
    // Parses with standard output caught in `output`.
    bool parse(Options& options, const char* text) {
        testing::internal::CaptureStdout();
        const bool good = options.parse(text);
        output = testing::internal::GetCapturedStdout();
        return good;
    }
    std::string output;
};

ZVectorSafe<ZString>& commandLine(std::initializer_list<const char*> arguments) {
    static ZVectorSafe<ZString> line;
    line.removeRange(0, line.getSize());
    for (const char* argument : arguments) {
        line.push(argument);
    }
    return line;
}

int indexOfProbe(const Options& options, const char* name) {
    for (int i = 0; i < options.probes.getSize(); i++) {
        if (options.probes[i] == name) {
            return i;
        }
    }
    return -1;
}

const char BUILT_IN[] = "com.vandrik.probes.builtin.";

std::string builtIn(const char* name) {
    return std::string(BUILT_IN) + name;
}

struct Effect {
    const char* options;
    std::function<bool(const Options&)> holds;
};

} // namespace

TEST_F(OptionsTest, defaultsHoldWithoutAnyOption) {
    Options options(commandLine({"java", "Main"}));
    EXPECT_TRUE(parse(options, nullptr));
    EXPECT_EQ(3600, options.telemetryLimit);
    EXPECT_EQ(20000, options.probeTableLengthLimit);
    EXPECT_EQ(50, options.deadThreadLimit);
    EXPECT_EQ(10, options.allocEach);
    EXPECT_EQ(1048576, options.allocSizeLimit);
    EXPECT_TRUE(options.perClassGC);
    EXPECT_EQ(20, options.samplingPeriod);
    EXPECT_EQ(1000, options.telemetryPeriod);
    EXPECT_EQ(-1, options.port);
    EXPECT_EQ(-1, options.idePort);
    EXPECT_EQ(0, options.delay);
    EXPECT_FALSE(options.withDebugger);
    EXPECT_EQ(0x1140, ourCapabilities);
    EXPECT_EQ(0x600, ourStatus);
    EXPECT_EQ("", output);
}

TEST_F(OptionsTest, probesAreTheBuiltInOnesInOrderAndTwoMoreAtTheEnd) {
    Options options(commandLine({"java"}));
    ASSERT_TRUE(parse(options, ""));
    const char* const expected[] = {
        "AWTEvents",  "Databases", "FileStreams",         "FileChannels",
        "JUnitTests", "Processes", "RandomAccessFiles",   "Servlets",
        "Sockets",    "Threads",   "AgentLoadingSupport", "J2EESupport"};
    ASSERT_EQ(12, options.probes.getSize());
    for (int i = 0; i < 12; i++) {
        EXPECT_EQ(builtIn(expected[i]), options.probes[i].c_str());
    }
}

TEST_F(OptionsTest, everyKeyHasItsEffect) {
    const Effect effects[] = {
        {"tracing", [](const Options& o) { return o.tracing; }},
        {"noj2ee,sampling", [](const Options& o) { return o.noJ2EE && o.sampling; }},
        {"noperclassgc", [](const Options& o) { return !o.perClassGC; }},
        {"disablealloc", [](const Options&) { return ourCapabilities == 0x1040; }},
        {"disablecounts", [](const Options&) { return ourCapabilities == 0x1100; }},
        {"disabletracing", [](const Options&) { return ourCapabilities == 0x1100; }},
        {"disablenatives", [](const Options& o) { return o.disableNatives; }},
        {"disablej2ee",
         [](const Options& o) {
             return o.noJ2EE && ourCapabilities == 0x140 &&
                    indexOfProbe(o, builtIn("J2EESupport").c_str()) == -1;
         }},
        {"probewarningsaserrors", [](const Options& o) { return o.probeWarningsAsErrors; }},
        {"probe=com.Foo", [](const Options& o) { return indexOfProbe(o, "com.Foo") == 12; }},
        {"probe=.Threads",
         [](const Options& o) { return indexOfProbe(o, builtIn("Threads").c_str()) == 11; }},
        {"probe=.NoSuch", [](const Options& o) { return indexOfProbe(o, ".NoSuch") == 12; }},
        {"probe=a.B,probe=a.B",
         [](const Options& o) { return o.probes.getSize() == 13 && indexOfProbe(o, "a.B") == 12; }},
        {"probeclasspath=/a:/b.jar",
         [](const Options& o) {
             return o.probeSystemClassPath.getSize() == 2 &&
                    wasLogged("probeSystemClassPath: /a") &&
                    wasLogged("probeSystemClassPath: /b.jar");
         }},
        {"probebootclasspath=/c",
         [](const Options& o) {
             return o.probeBootClassPath.getSize() == 1 && wasLogged("probeBootClassPath: /c");
         }},
        {"builtinprobes=none", [](const Options& o) { return o.probes.getSize() == 2; }},
        {"builtinprobes=none,noprobe=Threads",
         [](const Options& o) { return o.probes.getSize() == 2; }},
        {"builtinprobes=none,builtinprobes=all",
         [](const Options& o) { return o.probes.getSize() == 12; }},
        {"noprobe=Threads",
         [](const Options& o) {
             return o.probes.getSize() == 11 && indexOfProbe(o, builtIn("Threads").c_str()) == -1;
         }},
        {"probetablelengthlimit=7", [](const Options& o) { return o.probeTableLengthLimit == 7; }},
        {"deadthreadlimit=3", [](const Options& o) { return o.deadThreadLimit == 3; }},
        {"disableexceptiontelemetry", [](const Options&) { return ourStatus == 0x200; }},
        {"disablestacktelemetry", [](const Options&) { return ourStatus == 0x400; }},
        {"disableoomedumper", [](const Options& o) { return o.disableOOMEDumper; }},
        {"handlebadtimes", [](const Options& o) { return o.handleBadTimes; }},
        {"disableall",
         [](const Options& o) {
             return ourCapabilities == 0 && ourStatus == 0 && o.noJ2EE && o.disableNatives &&
                    o.probes.getSize() == 1 &&
                    indexOfProbe(o, builtIn("AgentLoadingSupport").c_str()) == 0;
         }},
        {"monitors", [](const Options& o) { return o.monitors; }},
        {"alloceach=5", [](const Options& o) { return o.allocEachSet && o.allocEach == 5; }},
        {"allocsizelimit=-4",
         [](const Options& o) { return o.allocSizeLimitSet && o.allocSizeLimit == -4; }},
        {"port=65535", [](const Options& o) { return o.port == 65535; }},
        {"listen=127.0.0.1:10001",
         [](const Options& o) { return o.listenHost == "127.0.0.1" && o.port == 10001; }},
        {"listen=10002",
         [](const Options& o) { return o.listenHost.isEmpty() && o.port == 10002; }},
        {"quiet", [](const Options& o) { return o.quiet; }},
        {"optional", [](const Options& o) { return o.optional; }},
        {"onlyuser", [](const Options& o) { return o.onlyUser; }},
        {"stripstackmaptable", [](const Options& o) { return o.stripStackMapTable; }},
        {"debug=filters",
         [](const Options& o) { return !o.debugAll && o.debugCategories.getSize() == 1; }},
        {"debug=all",
         [](const Options& o) { return o.debugAll && o.debugCategories.getSize() == 1; }},
        {"oldibm", [](const Options& o) { return o.oldIBM; }},
        {"withdebugger", [](const Options& o) { return o.withDebugger; }},
        {"delay=-1", [](const Options& o) { return o.delay == -1; }},
        {"delay=250", [](const Options& o) { return o.delay == 250; }},
        {"telemetrylimit=2,telemetryperiod=500",
         [](const Options& o) { return o.telemetryLimit == 14400; }},
        {"telemetryperiod=500,telemetrylimit=2",
         [](const Options& o) { return o.telemetryLimit == 14400; }},
        {"telemetryperiod=0",
         [](const Options& o) { return o.telemetryPeriod == 0 && o.telemetryLimit == 3600; }},
        {"telemetrylimit=2000000000", [](const Options& o) { return o.telemetryLimit > 0; }},
        {"onlylocal", [](const Options& o) { return o.onlyLocal; }},
        {"onexit=memory", [](const Options& o) { return o.onExitMemory && !o.onExitSnapshot; }},
        {"onexit=snapshot", [](const Options& o) { return o.onExitSnapshot && !o.onExitMemory; }},
        {"dir=/snap", [](const Options& o) { return o.snapshotDir == "/snap"; }},
        {"tmpdir=/t", [](const Options& o) { return o.tmpDir == "/t"; }},
        {"tracing,filters=/f", [](const Options& o) { return o.filters == "/f"; }},
        {"sampling,walltimespec=/w", [](const Options& o) { return o.wallTimeSpec == "/w"; }},
        {"triggers=/r", [](const Options& o) { return o.triggers == "/r"; }},
        {"sessionname=shop", [](const Options& o) { return o.getSessionName() == "shop"; }},
        {"sessionname=VDKQUOTED612c6220C3a4",
         [](const Options& o) { return o.sessionName == "a,b \xC3\xA4"; }},
        {"sessionname=VDKQUOTED6", [](const Options& o) { return o.sessionName == "VDKQUOTED6"; }},
        {"sessionname=VDKQUOTEDxx",
         [](const Options& o) { return o.sessionName == "VDKQUOTEDxx"; }},
        {"profileruipath=/u", [](const Options& o) { return o.profilerUIPath == "/u"; }},
        {"ideport=-9", [](const Options& o) { return o.idePort == -9; }},
        {"samplingperiod=0", [](const Options& o) { return o.samplingPeriod == 0; }},
        {"samplingperiod=junk", [](const Options& o) { return o.samplingPeriod == 0; }},
        {"samplingdelta=4", [](const Options& o) { return o.samplingDelta == 4; }},
        {"exitonexception", [](const Options&) { return Logger::ourExitOnException; }},
        {"noexceptionevents", [](const Options& o) { return o.noExceptionEvents; }},
        {"nostartgeneration", [](const Options& o) { return o.noStartGeneration; }},
        {"exitsnapshot=/x.snapshot",
         [](const Options& o) { return o.exitSnapshot == "/x.snapshot"; }},
        {"noexitsnapshot", [](const Options& o) { return o.noExitSnapshot; }},
        {"tellsnapshot", [](const Options& o) { return o.tellSnapshot; }},
        {"loglimit=3", [](const Options& o) { return o.logLimit == 3; }},
        {",,quiet,,", [](const Options& o) { return o.quiet; }},
    };
    for (const Effect& effect : effects) {
        SetUp();
        Options options(commandLine({"java", "Main"}));
        EXPECT_TRUE(parse(options, effect.options)) << effect.options;
        EXPECT_TRUE(effect.holds(options)) << effect.options;
        EXPECT_EQ("", output) << effect.options;
    }
}

TEST_F(OptionsTest, periodicOptionsWriteTriggerText) {
    Options options(commandLine({"java"}));
    ASSERT_TRUE(parse(options, "periodicmem=10,periodichprof=20,periodicperf=30,usedmem=75"));
    EXPECT_STREQ("TimerListener delay=10s\n  CaptureMemorySnapshot\n"
                 "TimerListener delay=20s\n  CaptureHPROFSnapshot\n"
                 "TimerListener delay=30s\n  CapturePerformanceSnapshot\n"
                 "HeapMemoryUsageListener usageThresholdPercent=75 minimumTimeToActivateMs=0 "
                 "maxTriggerCount=1\n  CaptureMemorySnapshot\n",
                 options.triggerText.c_str());
}

TEST_F(OptionsTest, everyRefusalHasItsTextAndTheUsage) {
    const struct {
        const char* options;
        const char* message;
    } refusals[] = {
        {"probetablelengthlimit=0",
         "'probetablelengthlimit' value is invalid (should be positive)"},
        {"deadthreadlimit=-2", "'deadthreadlimit' value is invalid (should be positive)"},
        {"loglimit=-1", "'loglimit' value is invalid (should not be negative)"},
        {"periodicmem=0", "'periodicmem' value is invalid (should be positive)"},
        {"periodichprof=0", "'periodichprof' value is invalid (should be positive)"},
        {"periodicperf=x", "'periodicperf' value is invalid (should be positive)"},
        {"alloceach=0", "'alloceach' value is invalid"},
        {"port=0", "'port' value is invalid"},
        {"port=65536", "'port' value is invalid"},
        {"listen=host:0", "'listen': port value is invalid"},
        {"listen=host", "'listen': port value is invalid"},
        {"delay=-2", "'delay' is invalid"},
        {"delay=-10", "'delay' is invalid"},
        {"telemetrylimit=0",
         "'telemetrylimit' value is invalid: number of hours should not be less than 1"},
        {"usedmem=49", "usedmem parameter is invalid; should be an integer in the range 50..90"},
        {"usedmem=91", "usedmem parameter is invalid; should be an integer in the range 50..90"},
        {"samplingperiod=-1", "sampling period is invalid"},
        {"samplingdelta=-1", "sampling period delta is invalid"},
        {"telemetryperiod=-1", "telemetry period is invalid"},
        {"tracing,sampling", "'tracing' cannot be used in combination with 'sampling'"},
        {"alloceach=1,disablealloc",
         "'alloceach' cannot be used in combination with 'disablealloc'"},
        {"disablealloc,allocsizelimit=1",
         "'allocsizelimit' cannot be used in combination with 'disablealloc'"},
        {"tracing,disabletracing", "'tracing' cannot be used in combination with 'disabletracing'"},
        {"disabletracing,tracing", "'tracing' cannot be used in combination with 'disabletracing'"},
        {"filters=/f", "'filters' should be used in combination with 'tracing'"},
        {"sampling,filters=/f", "'filters' should be used in combination with 'tracing'"},
        {"walltimespec=/w",
         "'walltimespec' should be used in combination with 'tracing' or 'sampling'"},
        {"nosuchoption", "nosuchoption"},
        {"tracing2", "tracing2"},
        {"onexit=other", "onexit=other"},
        {"builtinprobes=some", "builtinprobes=some"},
        {"quiet,Quiet", "Quiet"},
    };
    for (const auto& refusal : refusals) {
        SetUp();
        Options options(commandLine({"java", "Main"}));
        EXPECT_FALSE(parse(options, refusal.options)) << refusal.options;
        EXPECT_TRUE(wasLogged(std::string("Cannot start: invalid option: ") + refusal.message))
            << refusal.options;
        EXPECT_EQ(0u, output.find("\n" VDK_FULL_NAME " JVMTI agent usage: ")) << refusal.options;
    }
}

TEST_F(OptionsTest, parsingStopsAtTheFirstRefusal) {
    Options options(commandLine({"java"}));
    EXPECT_FALSE(parse(options, "port=0,quiet"));
    EXPECT_FALSE(options.quiet);
}

TEST_F(OptionsTest, refusalGoesToStandardOutputWithTheLog) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    Logger::setSink(nullptr);
    Options options(commandLine({"java"}));
    EXPECT_FALSE(options.parse("nosuchoption"));
    const std::string text = testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, text.find(": Cannot start: invalid option: nosuchoption\n"));
    EXPECT_LT(text.find("invalid option"), text.find("agent usage"));
}

TEST_F(OptionsTest, periodicHprofIsRefusedByVendorBeforeTheValueIsLookedAt) {
    const struct {
        bool isIBM;
        bool isJRockit;
        bool isR28;
        const char* message; // null when accepted
    } vendors[] = {
        {true, false, false,
         "'periodichprof' can be used with Sun Java only; with IBM Java, use 'periodicmem' "
         "instead"},
        {false, true, false,
         "'periodichprof' can be used with JRockit R28.0.0 or newer only; with your JRockit "
         "version, use 'periodicmem' instead"},
        {false, true, true, nullptr},
    };
    for (const auto& vendor : vendors) {
        SetUp();
        ourIsIBM = vendor.isIBM;
        ourIsJRockit = vendor.isJRockit;
        ourIsJRockitR28 = vendor.isR28;
        Options options(commandLine({"java"}));
        const char* text = vendor.message == nullptr ? "periodichprof=5" : "periodichprof=0";
        EXPECT_EQ(vendor.message == nullptr, parse(options, text));
        if (vendor.message != nullptr) {
            EXPECT_TRUE(wasLogged(std::string("Cannot start: invalid option: ") + vendor.message));
        }
    }
}

TEST_F(OptionsTest, attachModeTakesOnlyJarFilesAndNoDelay) {
    ourCapabilities |= CAPABILITY_ATTACHED_AGENT;
    Options options(commandLine({"java"}));
    EXPECT_TRUE(parse(options, "delay=-5,probeclasspath=/a.JAR"));
    EXPECT_EQ(0, options.delay);
    EXPECT_TRUE(wasLogged("Warning: ignoring 'delay' in attach mode"));
    EXPECT_FALSE(parse(options, "probeclasspath=/a.jar:/dir"));
    EXPECT_TRUE(wasLogged("Cannot start: invalid option: in attach mode 'probeclasspath' accepts "
                          "only JAR files: /dir"));
    EXPECT_FALSE(parse(options, "probebootclasspath=/dir"));
    EXPECT_TRUE(wasLogged("Cannot start: invalid option: in attach mode 'probebootclasspath' "
                          "accepts only JAR files: /dir"));
    EXPECT_TRUE(parse(options, "delay=-1"));
    EXPECT_EQ(-1, options.delay);
}

TEST_F(OptionsTest, jbossWaitsUnlessTheFlagOfAttachIsAlreadySet) {
    Options starting(commandLine({"java", "-jar", "/opt/JBoss/run.jar"}));
    EXPECT_TRUE(starting.isJBoss());
    EXPECT_EQ(10000, starting.delay);
    ourCapabilities |= CAPABILITY_ATTACHED_AGENT;
    Options attached(commandLine({"java", "-jar", "/opt/JBoss/run.jar"}));
    EXPECT_EQ(0, attached.delay);
    Options launcher(commandLine({"/opt/jboss/bin/java", "Main"}));
    EXPECT_FALSE(launcher.isJBoss());
}

TEST_F(OptionsTest, debuggerIsFoundOnTheCommandLine) {
    for (const char* argument : {"-Xdebug", "-Xrunjdwp:transport=x", "-agentlib:jdwp=server=y"}) {
        EXPECT_TRUE(Options(commandLine({"java", argument})).withDebugger) << argument;
    }
    EXPECT_FALSE(Options(commandLine({"-Xdebug", "Main"})).withDebugger);
    EXPECT_FALSE(Options(commandLine({"java", "-agentlib:other"})).withDebugger);
}

TEST_F(OptionsTest, heapDumpPathIsMadeAbsolute) {
    char directory[PATH_MAX];
    ASSERT_NE(nullptr, getcwd(directory, sizeof directory));
    const std::string base(directory);
    EXPECT_EQ(base, Options(commandLine({"java"})).getHeapDumpPath().c_str());
    EXPECT_STREQ("/d/x.hprof", Options(commandLine({"java", "-XX:HeapDumpPath=/d/x.hprof",
                                                    "-XX:HeapDumpPath=/other"}))
                                   .getHeapDumpPath()
                                   .c_str());
    EXPECT_EQ(base + "/dumps",
              Options(commandLine({"java", "-XX:HeapDumpPath=dumps"})).getHeapDumpPath().c_str());
}

TEST_F(OptionsTest, helpPrintsTheUsageAndStops) {
    Options options(commandLine({"java"}));
    EXPECT_FALSE(parse(options, "help"));
    EXPECT_EQ(0u, output.find("\n" VDK_FULL_NAME " JVMTI agent usage: -agentpath:<path "
                              "to agent library>=[<option>, ...]\n\nOption             "
                              "Description\n------------------ "
                              "----------------------------------------\n"
                              "port=<value>       port to listen on (1-65535, by default any "
                              "free port is chosen)\n"
                              "listen=<ip>:<port> same as 'port', but bind agent socket to "
                              "particular IP only\n"));
    EXPECT_NE(std::string::npos,
              output.find("\ntelemetrylimit=<N> limit telemetry buffer capacity to N hours"));
    EXPECT_NE(std::string::npos,
              output.find("\ntelemetryperiod=<ms>\n                   specify how often"));
    EXPECT_NE(std::string::npos,
              output.find("\n                   can be used together with 'allocsizelimit'"));
    EXPECT_NE(std::string::npos, output.find("\nnoexceptionevents  do not ask"));
    EXPECT_NE(std::string::npos, output.find("\nnostartgeneration  do not tag"));
    EXPECT_NE(std::string::npos,
              output.find("Please find detailed description of the startup options at\n"));
    EXPECT_TRUE(loggedLines().empty());
}

TEST_F(OptionsTest, debugCategoryWithUnderscoreMustBeNamed) {
    Options* const saved = ourOptions;
    Options options(commandLine({"java"}));
    ourOptions = &options;
    ASSERT_TRUE(parse(options, "debug=all,debug=_crashInTelemetry"));
    EXPECT_TRUE(Options::isDebug("filters"));
    EXPECT_TRUE(Options::isDebug("_crashInTelemetry"));
    EXPECT_FALSE(Options::isDebug("_other"));
    ourOptions = saved;
}

TEST_F(OptionsTest, whatMustBeKnownEarlyIsFoundBeforeParsing) {
    for (const char* text : {"quiet", "sampling,quiet", "optional,nosuch,quiet,port=0"}) {
        Options options(commandLine({"java"}));
        options.findEarly(text);
        EXPECT_TRUE(options.quiet) << text;
        EXPECT_EQ(options.optional, strstr(text, "optional") != nullptr) << text;
    }
    for (const char* text :
         {"", "quietly", "sessionname=quiet", static_cast<const char*>(nullptr)}) {
        Options options(commandLine({"java"}));
        options.findEarly(text);
        EXPECT_FALSE(options.quiet);
    }
}

namespace {

// A file with this text, removed at the end.
class OptionsFile {
public:
    explicit OptionsFile(const std::string& text) : path("/tmp/vdk-options-XXXXXX") {
        const int descriptor = mkstemp(path.data());
        EXPECT_EQ(write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(descriptor);
    }
    ~OptionsFile() { unlink(path.c_str()); }
    std::string option() const { return "optionsfile=" + path; }
    std::string path;
};

} // namespace

TEST_F(OptionsTest, optionsFileStandsForItsLine) {
    OptionsFile file("sampling,sessionname=" + std::string(5000, 'n') + "\nport=1");
    Options options;
    ASSERT_TRUE(parse(options, (file.option() + ",port=10005").c_str()));
    EXPECT_TRUE(options.sampling);
    EXPECT_EQ(options.sessionName.getLength(), 5000);
    EXPECT_EQ(options.port, 10005);
}

TEST_F(OptionsTest, optionsFileIsRefusedWhenItIsALinkMissingNestedOrTooLarge) {
    OptionsFile target("sampling");
    const std::string link = target.path + ".link";
    ASSERT_EQ(symlink(target.path.c_str(), link.c_str()), 0);
    OptionsFile nested(target.option());
    OptionsFile large(std::string(70000, 'x'));
    OptionsFile unknown("nosuchoption");
    const struct {
        std::string option;
        std::string message;
    } cases[] = {
        {"optionsfile=" + link, "'optionsfile' cannot be read: " + link},
        {"optionsfile=/nonexistent", "'optionsfile' cannot be read: /nonexistent"},
        {"optionsfile=/tmp", "'optionsfile' cannot be read: /tmp"},
        {large.option(), "'optionsfile' cannot be read: " + large.path},
        {nested.option(), "'optionsfile' cannot be used in an options file"},
        {unknown.option(), "nosuchoption"},
    };
    for (const auto& c : cases) {
        Options options;
        EXPECT_FALSE(parse(options, c.option.c_str())) << c.option;
        EXPECT_TRUE(wasLogged("Cannot start: invalid option: " + c.message)) << c.option;
    }
    unlink(link.c_str());
}
