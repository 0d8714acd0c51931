// Startup options: every key with its effect, every refusal with its text.
#include "core/ground/Options.h"

#include "LogLines.h"
#include "TempDir.h"
#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/ground/Version.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

bool wasLogged(const std::string& line) {
    return ("\n" + ourLogLines).find("\n" + line + "\n") != std::string::npos;
}

bool wasRefused(const std::string& message) {
    return wasLogged("Cannot start: invalid option: " + message);
}

class OptionsTest : public testing::Test {
protected:
    void SetUp() override {
        ourCapabilities = 0x1140;
        ourStatus = 0x600;
        ourIsIBM = ourIsJRockit = ourIsJRockitR28 = false;
        Logger::ourExitOnException = false;
        takeLog();
    }
    void TearDown() override { SetUp(); }
    // Parses with standard output caught in `output`.
    bool parse(Options& options, const std::string& text) {
        testing::internal::CaptureStdout();
        const bool good = options.parse(text.c_str());
        output = testing::internal::GetCapturedStdout();
        return good;
    }
    std::string output;
};

ZVectorSafe<ZString>& commandLine(std::initializer_list<const char*> arguments) {
    static ZVectorSafe<ZString> line;
    line.clear();
    for (const char* argument : arguments) {
        line.push(argument);
    }
    return line;
}

// Place of a probe, of a built-in one for a name without a package; -1 for none.
int probeAt(const Options& options, const std::string& name) {
    const std::string full =
        name.find('.') == std::string::npos ? "com.vandrik.probes.builtin." + name : name;
    for (int i = 0; i < options.probes.getSize(); i++) {
        if (options.probes[i] == full.c_str()) {
            return i;
        }
    }
    return -1;
}

} // namespace

TEST_F(OptionsTest, probesAreTheBuiltInOnesInOrderAndTwoMoreAtTheEnd) {
    Options options(commandLine({"java"}));
    ASSERT_TRUE(options.parse(nullptr));
    int place = 0;
    for (const char* name : {"AWTEvents", "Databases", "FileStreams", "FileChannels", "JUnitTests",
                             "Processes", "RandomAccessFiles", "Servlets", "Sockets", "Threads",
                             "AgentLoadingSupport", "J2EESupport"}) {
        EXPECT_EQ(place++, probeAt(options, name)) << name;
    }
    EXPECT_EQ(place, options.probes.getSize());
}

// Flags, numbers and texts that go to a field of their own need no row here.
TEST_F(OptionsTest, optionsOfMoreThanAFieldHaveTheirEffect) {
    const struct {
        const char* options;
        bool (*holds)(const Options& options);
    } effects[] = {
        {"", [](const Options& o) { return o.perClassGC && o.port == -1 && !o.withDebugger; }},
        {"noperclassgc", [](const Options& o) { return !o.perClassGC; }},
        {"noj2ee,sampling", [](const Options& o) { return o.noJ2EE && o.sampling; }},
        {",,quiet,,", [](const Options& o) { return o.quiet; }},
        {"disablealloc", [](const Options&) { return ourCapabilities == 0x1040; }},
        {"disablecounts", [](const Options&) { return ourCapabilities == 0x1100; }},
        {"disabletracing", [](const Options&) { return ourCapabilities == 0x1100; }},
        {"disableexceptiontelemetry", [](const Options&) { return ourStatus == 0x200; }},
        {"disablestacktelemetry", [](const Options&) { return ourStatus == 0x400; }},
        {"disablej2ee",
         [](const Options& o) {
             return o.noJ2EE && ourCapabilities == 0x140 && probeAt(o, "J2EESupport") == -1;
         }},
        {"disableall",
         [](const Options& o) {
             return ourCapabilities == 0 && ourStatus == 0 && o.noJ2EE && o.disableNatives &&
                    o.probes.getSize() == 1 && probeAt(o, "AgentLoadingSupport") == 0;
         }},
        {"probe=com.Foo", [](const Options& o) { return probeAt(o, "com.Foo") == 12; }},
        {"probe=.Threads", [](const Options& o) { return probeAt(o, "Threads") == 11; }},
        {"probe=.NoSuch", [](const Options& o) { return probeAt(o, ".NoSuch") == 12; }},
        {"probe=a.B,probe=a.B", [](const Options& o) { return o.probes.getSize() == 13; }},
        {"probeclasspath=/a:/b.jar",
         [](const Options& o) {
             return o.probeSystemClassPath.getSize() == 2 &&
                    wasLogged("probeSystemClassPath: /a") &&
                    wasLogged("probeSystemClassPath: /b.jar");
         }},
        {"probebootclasspath=/c",
         [](const Options&) { return wasLogged("probeBootClassPath: /c"); }},
        {"builtinprobes=none,noprobe=Threads",
         [](const Options& o) { return o.probes.getSize() == 2; }},
        {"builtinprobes=none,builtinprobes=all",
         [](const Options& o) { return o.probes.getSize() == 12; }},
        {"noprobe=Threads", [](const Options& o) { return probeAt(o, "Threads") == -1; }},
        {"alloceach=5", [](const Options& o) { return o.allocEachSet && o.allocEach == 5; }},
        {"allocsizelimit=-4",
         [](const Options& o) { return o.allocSizeLimitSet && o.allocSizeLimit == -4; }},
        {"port=65535", [](const Options& o) { return o.port == 65535; }},
        {"listen=127.0.0.1:10001",
         [](const Options& o) { return o.listenHost == "127.0.0.1" && o.port == 10001; }},
        {"listen=10002",
         [](const Options& o) { return o.listenHost.isEmpty() && o.port == 10002; }},
        {"debug=filters",
         [](const Options& o) { return !o.debugAll && o.debugCategories.getSize() == 1; }},
        {"debug=all", [](const Options& o) { return o.debugAll; }},
        {"delay=-1", [](const Options& o) { return o.delay == -1; }},
        {"delay=250", [](const Options& o) { return o.delay == 250; }},
        {"telemetrylimit=2,telemetryperiod=500",
         [](const Options& o) { return o.telemetryLimit == 14400; }},
        {"telemetryperiod=500,telemetrylimit=2",
         [](const Options& o) { return o.telemetryLimit == 14400; }},
        {"telemetryperiod=0", [](const Options& o) { return o.telemetryLimit == 3600; }},
        {"telemetrylimit=2000000000", [](const Options& o) { return o.telemetryLimit > 0; }},
        {"onexit=memory", [](const Options& o) { return o.onExitMemory && !o.onExitSnapshot; }},
        {"onexit=snapshot", [](const Options& o) { return o.onExitSnapshot && !o.onExitMemory; }},
        {"tracing,filters=/f", [](const Options& o) { return o.filters == "/f"; }},
        {"ondemand,traceonly=a.*;B",
         [](const Options& o) { return o.onDemand && o.traceOnly == "a.*;B"; }},
        {"sampling,walltimespec=/w", [](const Options& o) { return o.wallTimeSpec == "/w"; }},
        {"sessionname=shop", [](const Options& o) { return o.getSessionName() == "shop"; }},
        {"sessionname=VDKQUOTED612c6220C3a4",
         [](const Options& o) { return o.sessionName == "a,b \xC3\xA4"; }},
        {"sessionname=VDKQUOTED6", [](const Options& o) { return o.sessionName == "VDKQUOTED6"; }},
        {"sessionname=VDKQUOTEDxx",
         [](const Options& o) { return o.sessionName == "VDKQUOTEDxx"; }},
        {"samplingperiod=junk", [](const Options& o) { return o.samplingPeriod == 0; }},
        {"exitonexception", [](const Options&) { return Logger::ourExitOnException; }},
        {"loglimit=3", [](const Options& o) { return o.logLimit == 3; }},
        {"allocsampled=512k", [](const Options& o) { return o.allocSampled == 512 << 10; }},
    };
    for (const auto& effect : effects) {
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
        {"loglimit=-1", "'loglimit' value is invalid (should not be negative)"},
        {"allocsampled=0", "'allocsampled' value is invalid (should be bytes, such as 512k)"},
        {"allocsampled=9000m", "'allocsampled' value is invalid (should be bytes, such as 512k)"},
        {"allocsampled=1k,alloceach=1",
         "'allocsampled' cannot be used in combination with 'alloceach' or 'allocsizelimit'"},
        {"periodichprof=0", "'periodichprof' value is invalid (should be positive)"},
        {"alloceach=0", "'alloceach' value is invalid"},
        {"port=0", "'port' value is invalid"},
        {"port=65536", "'port' value is invalid"},
        {"listen=host:0", "'listen': port value is invalid"},
        {"listen=host", "'listen': port value is invalid"},
        {"delay=-2", "'delay' is invalid"},
        {"telemetrylimit=0",
         "'telemetrylimit' value is invalid: number of hours should not be less than 1"},
        {"usedmem=49", "usedmem parameter is invalid; should be an integer in the range 50..90"},
        {"usedmem=91", "usedmem parameter is invalid; should be an integer in the range 50..90"},
        {"samplingperiod=-1", "sampling period is invalid"},
        {"tracing,sampling", "'tracing' cannot be used in combination with 'sampling'"},
        {"alloceach=1,disablealloc",
         "'alloceach' cannot be used in combination with 'disablealloc'"},
        {"disablealloc,allocsizelimit=1",
         "'allocsizelimit' cannot be used in combination with 'disablealloc'"},
        {"tracing,disabletracing", "'tracing' cannot be used in combination with 'disabletracing'"},
        {"filters=/f", "'filters' should be used in combination with 'tracing'"},
        {"sampling,filters=/f", "'filters' should be used in combination with 'tracing'"},
        {"traceonly=a.*", "'traceonly' should be used in combination with 'ondemand'"},
        {"walltimespec=/w",
         "'walltimespec' should be used in combination with 'tracing' or 'sampling'"},
        {"nosuchoption", "nosuchoption"},
        {"tracing2", "tracing2"},
        {"onexit=other", "onexit=other"},
        {"Quiet,optional", "Quiet"}, // the first refusal ends it
    };
    for (const auto& refusal : refusals) {
        SetUp();
        Options options(commandLine({"java", "Main"}));
        EXPECT_FALSE(parse(options, refusal.options)) << refusal.options;
        EXPECT_TRUE(wasRefused(refusal.message)) << refusal.options;
        EXPECT_EQ(0u, output.find("\n" VDK_FULL_NAME " JVMTI agent usage: ")) << refusal.options;
        EXPECT_FALSE(options.optional);
    }
}

TEST_F(OptionsTest, refusalGoesToStandardOutputWithTheLog) {
    testing::internal::CaptureStderr();
    Logger::setSink(nullptr);
    Options options(commandLine({"java"}));
    EXPECT_FALSE(parse(options, "nosuchoption"));
    Logger::setSink(collectLogLine);
    testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, output.find(": Cannot start: invalid option: nosuchoption\n"));
    EXPECT_LT(output.find("invalid option"), output.find("agent usage"));
}

TEST_F(OptionsTest, periodicHprofIsRefusedByVendorBeforeTheValueIsLookedAt) {
    Options options(commandLine({"java"}));
    ourIsIBM = true;
    EXPECT_FALSE(parse(options, "periodichprof=0"));
    EXPECT_TRUE(wasRefused("'periodichprof' can be used with Sun Java only; with IBM Java, use "
                           "'periodicmem' instead"));
    ourIsIBM = false;
    ourIsJRockit = true;
    EXPECT_FALSE(parse(options, "periodichprof=0"));
    EXPECT_TRUE(wasRefused("'periodichprof' can be used with JRockit R28.0.0 or newer only; with "
                           "your JRockit version, use 'periodicmem' instead"));
    ourIsJRockitR28 = true;
    EXPECT_TRUE(parse(options, "periodichprof=5"));
}

TEST_F(OptionsTest, attachModeTakesOnlyJarFilesAndNoDelay) {
    ourCapabilities |= CAPABILITY_ATTACHED_AGENT;
    Options options(commandLine({"java"}));
    EXPECT_TRUE(parse(options, "delay=-5,probeclasspath=/a.JAR"));
    EXPECT_EQ(0, options.delay);
    EXPECT_TRUE(wasLogged("Warning: ignoring 'delay' in attach mode"));
    EXPECT_FALSE(parse(options, "probeclasspath=/a.jar:/dir"));
    EXPECT_TRUE(wasRefused("in attach mode 'probeclasspath' accepts only JAR files: /dir"));
    EXPECT_FALSE(parse(options, "probebootclasspath=/dir"));
    EXPECT_TRUE(wasRefused("in attach mode 'probebootclasspath' accepts only JAR files: /dir"));
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
    const std::string here = std::filesystem::current_path();
    const auto path = [](std::initializer_list<const char*> arguments) {
        return std::string(Options(commandLine(arguments)).getHeapDumpPath().c_str());
    };
    EXPECT_EQ(here, path({"java"}));
    EXPECT_EQ(here + "/dumps", path({"java", "-XX:HeapDumpPath=dumps"}));
    EXPECT_EQ("/d/x", path({"java", "-XX:HeapDumpPath=/d/x", "-XX:HeapDumpPath=/other"}));
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
              output.find("\ntelemetryperiod=<ms>\n                   specify how often"));
    EXPECT_NE(std::string::npos, output.find("\nnoexceptionevents  do not ask"));
    EXPECT_EQ("", takeLog());
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

TEST_F(OptionsTest, optionsFileStandsForItsLineAndIsRefusedIfItIsALinkMissingNestedOrTooLarge) {
    TempDir dir;
    dir.write("good", "sampling,sessionname=" + std::string(5000, 'n') + "\nport=1");
    dir.write("nested", "optionsfile=" + dir.file("good"));
    dir.write("large", std::string(70000, 'x'));
    dir.write("unknown", "nosuchoption");
    for (const char* name : {"good", "nested", "large", "unknown"}) {
        ASSERT_EQ(chmod(dir.file(name).c_str(), 0600), 0);
    }
    std::filesystem::create_symlink("good", dir.file("link"));
    Options options;
    ASSERT_TRUE(parse(options, "optionsfile=" + dir.file("good") + ",port=10005"));
    EXPECT_TRUE(options.sampling);
    EXPECT_EQ(options.sessionName.getLength(), 5000);
    EXPECT_EQ(options.port, 10005);
    for (const char* name : {"link", "missing", "large", ""}) {
        EXPECT_FALSE(parse(options, "optionsfile=" + dir.file(name))) << name;
        EXPECT_TRUE(wasRefused("'optionsfile' cannot be read: " + dir.file(name))) << name;
    }
    EXPECT_FALSE(parse(options, "optionsfile=" + dir.file("nested")));
    EXPECT_TRUE(wasRefused("'optionsfile' cannot be used in an options file"));
    EXPECT_FALSE(parse(options, "optionsfile=" + dir.file("unknown")));
    EXPECT_TRUE(wasRefused("nosuchoption"));
}
