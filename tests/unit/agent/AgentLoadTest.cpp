// The load against a JVM that answers as the test wants: order, refusals, vendors, missing
// capabilities. Each start runs in a process of its own, since it fills the agent's globals.
#include "agent/FakeJvm.h"
#include "core/entry/JVMTI_Agent.h"
#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/SuspendCapability.h"
#include "profiling/threads/ThreadInfo.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class AgentLoad : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/vdk-load-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        directory = pattern;
    }
    void TearDown() override { ASSERT_EQ(0, system(("rm -rf " + directory).c_str())); }

    // Options with a temporary directory of this test's own.
    std::string withDirectory(const std::string& options = "") const {
        return "tmpdir=" + directory + (options.empty() ? "" : "," + options);
    }
    std::string directory;
};

void setCommandLine(std::initializer_list<const char*> arguments) {
    ZVectorSafe<ZString> line;
    for (const char* argument : arguments) {
        line.push(argument);
    }
    delete ourOptions;
    ourOptions = new Options(line);
}

void become(FakeJvm& jvm, const char* vendor, const char* version, const char* info) {
    jvm.properties["java.vm.vendor"] = vendor;
    jvm.properties["java.vm.version"] = version;
    jvm.properties["java.vm.info"] = info;
}

// Prints the calls that the fake JVM saw, for comparison in the parent.
int printCalls(const FakeJvm& jvm, int result) {
    for (const std::string& call : jvm.calls) {
        printf("%s\n", call.c_str());
    }
    return result;
}

} // namespace

TEST_F(AgentLoad, callsComeInOrder) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        return printCalls(jvm, agentLoadImpl(jvm.vm(), withDirectory().c_str()));
    });
    EXPECT_EQ(LOAD_OK, outcome.exitCode);
    const std::string boot =
        "AddToBootstrapClassLoaderSearch " + directory + "/vdk201201261731.jar\n";
    EXPECT_EQ("GetEnv 30010100\nGetVersionNumber\nGetPotentialCapabilities\nAddCapabilities\n"
              "GetEnv 30010000\nAddCapabilities\nGetEnv 30010000\nAddCapabilities\n"
              "GetEnv 30010000\nAddCapabilities\nGetEnv 30010000\nAddCapabilities\n"
              "GetEnv 30010000\nAddCapabilities\nSetEventCallbacks 5\nEnable 83 in 5\n"
              "GetEnv 30010000\nAddCapabilities\nSetEventCallbacks 6\nEnable 83 in 6\n"
              "SetEventCallbacks 0\nEnable 50 in 0\nEnable 57 in 0\nEnable 51 in 0\n"
              "Enable 55 in 0\nEnable 56 in 0\nEnable 53 in 0\nEnable 52 in 0\n"
              "Enable 58 in 0\nEnable 59 in 0\n"
              "SetNativeMethodPrefix $$VDK$$\n" +
                  boot + "CreateRawMonitor vdk_jvmti_sampler_lock\n",
              outcome.output);
    EXPECT_EQ("", outcome.errors);
}

TEST_F(AgentLoad, logTellsWhatJvmItIs) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        return agentOnLoad(jvm.vm(), withDirectory("sessionname=x").c_str());
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ(0u, outcome.log.find("Agent_OnLoad: options=tmpdir=" + directory +
                                   ",sessionname=x\nphase: 1\njvmtiVersion: 30110000\n"
                                   "vendor: Eclipse Adoptium\nversion: 17.0.15+6\n"
                                   "info: mixed mode, sharing\n"))
        << outcome.log;
    EXPECT_THAT(outcome.log, HasSubstr("\nJar file created: " + directory));
    EXPECT_THAT(outcome.log,
                HasSubstr("\nJVMTI 30110000; Eclipse Adoptium; 17.0.15+6; mixed mode, sharing; "
                          "Linux; 64-bit JVM; JR=0; I=0\n"));
}

TEST_F(AgentLoad, nullOptionsAreShownAsNull) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        jvm.getEnvResult = JNI_ERR;
        return agentOnAttach(jvm.vm(), nullptr);
    });
    EXPECT_EQ(LOAD_NO_ENVIRONMENT, outcome.exitCode);
    EXPECT_EQ("Agent_OnAttach: options=<NULL>\n"
              "Cannot start: unable to create JVMTI environment, error=-1\n",
              outcome.log);
}

TEST_F(AgentLoad, everyRefusalHasItsCodeAndItsText) {
    const std::string java5 = "Cannot start: Java 6 or newer is required. To profile on Java 5, "
                              "use Vandrik Java Profiler 8.0.x\n";
    const struct {
        const char* name;
        std::function<void(FakeJvm&)> prepare;
        std::string options;
        int result;
        std::string errors;
    } refusals[] = {
        {"no environment", [](FakeJvm& jvm) { jvm.getEnvResult = -3; }, "", 1,
         "Cannot start: unable to create JVMTI environment, error=-3\n"},
        {"JVMTI of Java 5", [](FakeJvm& jvm) { jvm.jvmtiVersion = 0x30010154; }, "", 2, java5},
        {"unknown option", [](FakeJvm&) {}, "nosuch", 3, ""},
        {"help", [](FakeJvm&) {}, "help", 3, ""},
        {"JRockit 5", [](FakeJvm& jvm) { become(jvm, "BEA Systems, Inc.", "R27-1.5.0_11", ""); },
         "", 4, java5},
        {"old IBM", [](FakeJvm& jvm) { become(jvm, "IBM Corporation", "2.4", "20081104"); }, "", 5,
         "Cannot start: unsupported version of IBM Java (20081104). Use IBM Java 6 SR3 or newer, "
         "or Sun Java\n"},
        {"old IBM under WebSphere",
         [](FakeJvm& jvm) { become(jvm, "IBM Corporation", "2.4", "20080815"); },
         "sessionname=WebSphere", 5,
         "Cannot start: unsupported version of IBM Java (20080815). Use IBM Java 6 SR3 or newer, "
         "or Sun Java\n"},
        {"no tags", [](FakeJvm& jvm) { jvm.potential.can_tag_objects = 0; }, "", 6,
         "Cannot start: the JVM does not provide required profiling capabilities (error "
         "code=98).\n\nMost likely, you have configured JVM to use a garbage collector that does "
         "not support heap profiling.\nPlease examine specified JVM options. Using default garbage "
         "collector will solve the problem.\n"},
        {"unwritable directory", [](FakeJvm&) {}, "tmpdir=/proc/nowhere", 8,
         "Cannot start: failed to create jar file: /proc/nowhere/vdk201201261731.jar; to set "
         "alternate location for the file, use startup option 'tmpdir=<directory>'. To learn how "
         "to specify a startup option, read docs/options.md\n"},
    };
    for (const auto& refusal : refusals) {
        const auto start = [&](bool onLoad) {
            FakeJvm* jvm = new FakeJvm();
            setCommandLine({"java", "Main"});
            refusal.prepare(*jvm);
            const std::string options = withDirectory(refusal.options);
            return onLoad ? agentOnLoad(jvm->vm(), options.c_str()) + 50
                          : agentLoadImpl(jvm->vm(), options.c_str());
        };
        const ProcessOutcome result = runInChild([&] { return start(false); });
        EXPECT_EQ(refusal.result, result.exitCode) << refusal.name;
        EXPECT_EQ(refusal.errors, result.errors) << refusal.name;
        // At load every refusal ends the process with 1.
        EXPECT_EQ(1, runInChild([&] { return start(true); }).exitCode) << refusal.name;
    }
}

TEST_F(AgentLoad, acceptableBuildsOfIbmStart) {
    const struct {
        const char* info;
        const char* options;
    } builds[] = {{"20081105", ""}, {"20080816", "sessionname=WebSphere"}, {"JRE 1.8.0 x", ""}};
    for (const auto& build : builds) {
        const ProcessOutcome outcome = runInChild([&] {
            FakeJvm jvm;
            setCommandLine({"java", "Main"});
            become(jvm, "IBM Corporation", "2.4", build.info);
            const int result =
                agentLoadImpl(jvm.vm(), withDirectory(std::string(build.options)).c_str());
            return result * 10 + (ourIsIBM ? 1 : 0);
        });
        EXPECT_EQ(1, outcome.exitCode) << build.info;
    }
}

TEST_F(AgentLoad, vendorsAreToldApart) {
    const struct {
        const char* vendor;
        const char* version;
        int flags; // 1 IBM, 2 JRockit, 4 R28
    } vendors[] = {
        {"Oracle Corporation", "R28.1.0-123-1.6.0_20", 6},
        {"Oracle Corporation", "17.0.1+12", 0},
        {"Oracle Corporation", "x-R2-y", 6},
        {"BEA Systems, Inc.", "R27.6-1.6.0", 2},
        {"Sun Microsystems Inc.", "R28.1", 0},
        {"IBM Corporation", "R28", 1},
    };
    for (const auto& row : vendors) {
        const ProcessOutcome outcome = runInChild([&] {
            FakeJvm jvm;
            setCommandLine({"java", "Main"});
            become(jvm, row.vendor, row.version, "J");
            agentLoadImpl(jvm.vm(), withDirectory().c_str());
            return (ourIsIBM ? 1 : 0) + (ourIsJRockit ? 2 : 0) + (ourIsJRockitR28 ? 4 : 0);
        });
        EXPECT_EQ(row.flags, outcome.exitCode) << row.vendor << " " << row.version;
    }
}

TEST_F(AgentLoad, modernVersionsAreNotTakenForOldOnes) {
    for (jint version : {0x30010155, 0x30020000, 0x30090000, 0x30110000, 0x30190000}) {
        const ProcessOutcome outcome = runInChild([&] {
            FakeJvm jvm;
            setCommandLine({"java", "Main"});
            jvm.jvmtiVersion = version;
            return agentLoadImpl(jvm.vm(), withDirectory().c_str());
        });
        EXPECT_EQ(0, outcome.exitCode) << version;
    }
}

TEST_F(AgentLoad, missingRequiredCapabilitiesAreAllLoggedBeforeTheRefusal) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        memset(&jvm.potential, 0, sizeof jvm.potential);
        return agentLoadImpl(jvm.vm(), withDirectory().c_str());
    });
    EXPECT_EQ(LOAD_NO_CAPABILITIES, outcome.exitCode);
    const char* const lines[] = {"can_tag_objects: required",
                                 "can_generate_object_free_events: required",
                                 "can_generate_all_class_hook_events: optional",
                                 "can_redefine_classes: required",
                                 "can_generate_exception_events: optional",
                                 "can_generate_vm_object_alloc_events: required",
                                 "can_access_local_variables: optional",
                                 "can_suspend: optional",
                                 "can_generate_monitor_events: required",
                                 "can_get_monitor_info: required",
                                 "can_set_native_method_prefix: required",
                                 "can_retransform_classes: required"};
    size_t position = 0;
    for (const char* line : lines) {
        const size_t found =
            outcome.log.find(std::string("\n") + line + " capability is not available", position);
        ASSERT_NE(std::string::npos, found) << line;
        position = found;
    }
    EXPECT_THAT(outcome.log, Not(HasSubstr("can_get_thread_cpu_time")));
    EXPECT_THAT(outcome.log, HasSubstr("not available; is_debugger=0\n"));
}

TEST_F(AgentLoad, optionalCapabilitiesAreLeftOutWithTheirBits) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        jvm.potential.can_generate_exception_events = 0;
        jvm.potential.can_suspend = 0;
        jvm.potential.can_access_local_variables = 0;
        jvm.potential.can_generate_all_class_hook_events = 0;
        const int result = agentLoadImpl(jvm.vm(), withDirectory().c_str());
        printf("%lx", ourCapabilities.load());
        return result;
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("d140", outcome.output);
}

TEST_F(AgentLoad, threadClockIsRequiredOnAttachAlone) {
    const auto start = [&](bool attached) {
        FakeJvm* jvm = new FakeJvm();
        setCommandLine({"java", "Main"});
        jvm->potential.can_get_thread_cpu_time = 0;
        return attached ? agentOnAttach(jvm->vm(), withDirectory().c_str())
                        : agentOnLoad(jvm->vm(), withDirectory().c_str());
    };
    EXPECT_EQ(0, runInChild([&] { return start(false); }).exitCode);
    const ProcessOutcome attached = runInChild([&] { return start(true); });
    EXPECT_EQ(LOAD_NO_CAPABILITIES, attached.exitCode);
    EXPECT_THAT(attached.log,
                HasSubstr("can_get_thread_cpu_time: required capability is not available\n"));
}

TEST_F(AgentLoad, exceptionEventsAreLeftOutOnRequest) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        const int result = agentLoadImpl(jvm.vm(), withDirectory("noexceptionevents").c_str());
        printf("%lx %d", ourCapabilities.load(), jvm.requests[0].can_generate_exception_events);
        return result;
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("5140 0", outcome.output);
    EXPECT_THAT(outcome.log, HasSubstr("can_generate_exception_events: optional capability is not "
                                       "available\n"));
}

TEST_F(AgentLoad, exceptionHandlersAreRegisteredOnlyWhereEventsExist) {
    const auto start = [&](const char* options, long status) {
        FakeJvm* jvm = new FakeJvm();
        setCommandLine({"java", "Main"});
        ourStatus |= status;
        agentLoadImpl(jvm->vm(), withDirectory(options).c_str());
        return (jvm->callbacks.Exception != nullptr ? 1 : 0) +
               (jvm->wasCalled("Enable 58 in 0") ? 2 : 0) +
               (jvm->wasCalled("Enable 59 in 0") ? 4 : 0);
    };
    const long tracing = CPU_COUNTS_BIT;
    EXPECT_EQ(7, runInChild([&] { return start("", 0); }).exitCode);
    EXPECT_EQ(0, runInChild([&] { return start("noexceptionevents", tracing); }).exitCode);
    // Registered, so that both can be switched on later. What nobody consumes costs no throw.
    const char telemetryOff[] = "disableexceptiontelemetry";
    EXPECT_EQ(1, runInChild([&] { return start(telemetryOff, 0); }).exitCode);
    EXPECT_EQ(5, runInChild([&] { return start(telemetryOff, tracing); }).exitCode);
}

TEST_F(AgentLoad, suspensionIsTakenWhenItIsNeededAndGivenBack) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        agentLoadImpl(jvm.vm(), withDirectory().c_str());
        const bool atLoad = jvm.requests[0].can_suspend != 0;
        const size_t before = jvm.requests.size();
        const bool taken = SuspendCapability::acquire();
        const bool asked = jvm.requests.size() == before + 1 && jvm.requests.back().can_suspend;
        SuspendCapability::release();
        const bool given = jvm.wasCalled("RelinquishCapabilities");
        return (atLoad ? 8 : 0) + (taken ? 4 : 0) + (asked ? 2 : 0) + (given ? 1 : 0);
    });
    EXPECT_EQ(7, outcome.exitCode);
}

TEST_F(AgentLoad, suspensionHeldByADebuggerIsNotTaken) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        agentLoadImpl(jvm.vm(), withDirectory().c_str());
        jvm.potential.can_suspend = 0;
        const bool taken = SuspendCapability::acquire();
        SuspendCapability::release();
        return (taken ? 1 : 0) + (jvm.wasCalled("RelinquishCapabilities") ? 2 : 0) +
               ((ourCapabilities & CAPABILITY_CANNOT_SUSPEND) != 0 ? 4 : 0);
    });
    EXPECT_EQ(4, outcome.exitCode);
}

TEST_F(AgentLoad, suspensionIsAskedForAtLoadWhereOnlyThatIsPossible) {
    const auto start = [&](std::initializer_list<const char*> line) {
        FakeJvm* jvm = new FakeJvm();
        setCommandLine(line);
        become(*jvm, "BEA Systems, Inc.", "R27.6-1.6.0", "");
        agentLoadImpl(jvm->vm(), withDirectory().c_str());
        return (jvm->requests[0].can_suspend ? 1 : 0) +
               (jvm->requests[0].can_access_local_variables ? 2 : 0);
    };
    EXPECT_EQ(3, runInChild([&] { return start({"java", "Main"}); }).exitCode);
    // Under a debugger this family gives neither.
    const ProcessOutcome debugged = runInChild([&] {
        return start({"java", "-agentlib:jdwp=x", "Main"});
    });
    EXPECT_EQ(0, debugged.exitCode);
    EXPECT_THAT(debugged.log, HasSubstr("can_suspend: optional capability is not available; "
                                        "is_debugger=1\n"));
    EXPECT_THAT(debugged.log,
                HasSubstr("can_access_local_variables: optional capability is not available\n"));
}

TEST_F(AgentLoad, tagEnvironmentThatCannotBeHadEndsTheProcess) {
    const struct {
        int failGetEnvFrom;
        int failAddCapabilitiesFrom;
        const char* errors;
    } failures[] = {
        {1, 1000, "Cannot start: Unable to create JVMTI environment\n"},
        {1000, 1,
         "Cannot start: Unable to create JVMTI environment with can_tag_objects capability\n"},
        {1000, 5,
         "Cannot start: Unable to create JVMTI environment with can_tag_objects and "
         "can_generate_object_free_events capabilities\n"},
    };
    for (const auto& failure : failures) {
        const ProcessOutcome outcome = runInChild([&] {
            FakeJvm jvm;
            setCommandLine({"java", "Main"});
            jvm.failGetEnvFrom = failure.failGetEnvFrom;
            jvm.failAddCapabilitiesFrom = failure.failAddCapabilitiesFrom;
            agentLoadImpl(jvm.vm(), withDirectory().c_str());
            return 99;
        });
        EXPECT_EQ(1, outcome.exitCode);
        EXPECT_EQ(failure.errors, outcome.errors);
    }
}

TEST_F(AgentLoad, failingCallIsLoggedAndLeavesTheApplicationWithoutTheAgent) {
    for (const char* function :
         {"GetVersionNumber", "GetPotentialCapabilities", "Enable", "SetNativeMethodPrefix",
          "AddToBootstrapClassLoaderSearch", "CreateRawMonitor"}) {
        const ProcessOutcome outcome = runInChild([&] {
            FakeJvm jvm;
            setCommandLine({"java", "Main"});
            jvm.failingFunction = function;
            const int result = agentOnLoad(jvm.vm(), withDirectory().c_str());
            for (const auto& environment : jvm.environments) {
                if (!environment->isDisposed) {
                    return 90;
                }
            }
            return ourJVMTI == nullptr ? result : 91;
        });
        EXPECT_EQ(0, outcome.exitCode) << function;
        // A place is a source name and a line, whatever folder the build ran in.
        EXPECT_THAT(outcome.log,
                    ContainsRegex("ERROR: JVMTI error 113:JVMTI_ERROR_113 at [A-Za-z]+:[0-9]+\n"))
            << function;
        EXPECT_THAT(outcome.log, HasSubstr("\nexception caught at AgentLoad:")) << function;
    }
}

TEST_F(AgentLoad, failedAttachDisposesEverythingAndMayBeTriedAgain) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        const jint first = agentOnAttach(jvm.vm(), "tmpdir=/proc/nowhere,sampling,tracing");
        const jint second = agentOnAttach(jvm.vm(), "tmpdir=/proc/nowhere,sampling");
        printCalls(jvm, 0);
        return first * 16 + second;
    });
    // Options of the first try do not stay: the second gets as far as the archive.
    EXPECT_EQ(LOAD_INVALID_OPTIONS * 16 + LOAD_NO_ARCHIVE, outcome.exitCode);
    EXPECT_THAT(outcome.output, testing::EndsWith("DisposeEnvironment 1\nDisposeEnvironment 2\n"
                                                  "DisposeEnvironment 3\nDisposeEnvironment 4\n"
                                                  "DisposeEnvironment 5\nDisposeEnvironment 6\n"
                                                  "DisposeEnvironment 7\n"));
}

TEST_F(AgentLoad, failedAttachTakesItsEnvironmentsFromNoHandlerAtWork) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        auto atWork = std::make_unique<EventGate>();
        std::atomic<int> result{-1};
        std::thread attaching([&] { result = agentOnAttach(jvm.vm(), "tmpdir=/proc/nowhere"); });
        while (EventGate().isOpen() && result == -1) {
            std::this_thread::yield();
        }
        const bool waits = ourJVMTI != nullptr;
        atWork.reset();
        attaching.join();
        // Events that the JVM had under way come to nothing.
        threadStart(nullptr, nullptr, nullptr);
        threadEnd(nullptr, nullptr, nullptr);
        vmDeath(nullptr, nullptr);
        jvm.callbacks.ClassPrepare(nullptr, nullptr, nullptr, nullptr);
        return waits && ourJVMTI == nullptr ? result.load() : 99;
    });
    EXPECT_EQ(LOAD_NO_ARCHIVE, outcome.exitCode);
    EXPECT_THAT(outcome.log, Not(HasSubstr("exception caught")));
}

TEST_F(AgentLoad, secondLoadTouchesNothing) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        agentOnLoad(jvm.vm(), withDirectory().c_str());
        const size_t calls = jvm.calls.size();
        const long capabilities = ourCapabilities;
        const bool quiet = ourOptions->quiet;
        const jint result = agentOnAttach(jvm.vm(), "nosuch,quiet,optional");
        return result + (jvm.calls.size() == calls && ourCapabilities == capabilities &&
                                 ourOptions->quiet == quiet && !ourOptions->optional
                             ? 0
                             : 99);
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(
        outcome.log,
        testing::EndsWith("Agent_OnAttach: options=nosuch,quiet,optional\nAgent already loaded\n"));
}

TEST_F(AgentLoad, archiveDumpLeavesTheAgentInert) {
    for (const char* option : {"-XX:ArchiveClassesAtExit=a.jsa", "-XX:AOTCacheOutput=a.aot",
                               "-XX:AOTMode=record", "-Xshare:dump"}) {
        const ProcessOutcome outcome = runInChild([&] {
            FakeJvm jvm;
            setCommandLine({"java", option, "Main"});
            const jint result = agentOnLoad(jvm.vm(), withDirectory().c_str());
            return printCalls(jvm, result);
        });
        EXPECT_EQ(0, outcome.exitCode);
        EXPECT_EQ("GetEnv 30010100\nGetVersionNumber\nDisposeEnvironment 0\n", outcome.output)
            << option;
        EXPECT_THAT(outcome.log, HasSubstr("The JVM writes a class archive; the agent does nothing "
                                           "in this process\n"));
    }
}

TEST_F(AgentLoad, bootPathStaysAloneWhereAnApplicationArchiveMayBeInUse) {
    for (const char* option : {"-XX:SharedArchiveFile=a.jsa", "-XX:AOTCache=a.aot"}) {
        const ProcessOutcome outcome = runInChild([&] {
            FakeJvm jvm;
            setCommandLine({"java", option, "Main"});
            const jint result = agentOnLoad(jvm.vm(), withDirectory().c_str());
            return printCalls(jvm, result);
        });
        EXPECT_EQ(0, outcome.exitCode);
        EXPECT_THAT(outcome.output, Not(HasSubstr("AddToBootstrapClassLoaderSearch"))) << option;
        EXPECT_THAT(outcome.log, HasSubstr("Runtime classes are defined from memory\n"));
    }
}

TEST_F(AgentLoad, optionClassPathsFollowTheArchive) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        const jint result = agentOnLoad(
            jvm.vm(), withDirectory("probeclasspath=/s1:/s2,probebootclasspath=/b").c_str());
        return printCalls(jvm, result);
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.output, HasSubstr(".jar\nAddToBootstrapClassLoaderSearch /b\n"
                                          "AddToSystemClassLoaderSearch /s1\n"
                                          "AddToSystemClassLoaderSearch /s2\n"));
}

TEST_F(AgentLoad, probesThatTheUserNamedAreNotTakenInSilence) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        return agentLoadImpl(jvm.vm(), withDirectory("probe=org.example.Mine").c_str());
    });
    EXPECT_EQ(LOAD_OK, outcome.exitCode);
    const std::string text = "Probe not registered, this version of the agent has no registration "
                             "of probes: ";
    EXPECT_THAT(outcome.log, HasSubstr(text + "org.example.Mine\n"));
    EXPECT_THAT(outcome.log, Not(HasSubstr(text + "com.vandrik")));
}

TEST_F(AgentLoad, attachThatFailsBesideRunningThreadsKeepsTheEnvironments) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        jvm.phase = JVMTI_PHASE_LIVE;
        jvm.failingFunction = "SetNativeMethodPrefix";
        setCommandLine({"java", "Main"});
        // What the threads of the agent were started under.
        ourVMInitCalled = true;
        const int result = agentOnAttach(jvm.vm(), withDirectory().c_str());
        return jvm.countCalls("DisposeEnvironment 0") * 10 + (ourJVMTI == nullptr ? 20 : result);
    });
    EXPECT_EQ(LOAD_OK, outcome.exitCode);
    EXPECT_THAT(outcome.log, HasSubstr("Agent_OnAttach: the start was not completed\n"));
}

TEST_F(AgentLoad, threadThatEndsWhileItIsRegisteredLeavesNothingBehind) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        if (agentLoadImpl(jvm.vm(), withDirectory().c_str()) != LOAD_OK) {
            return 100;
        }
        jvm.phase = JVMTI_PHASE_LIVE;
        jvm.failingFunction = "SetThreadLocalStorage";
        int thread = 0;
        threadStartImpl(jvm.env(), reinterpret_cast<jthread>(&thread), 1);
        return ourAllThreadInfos.getSize();
    });
    EXPECT_EQ(0, outcome.exitCode);
}

TEST_F(AgentLoad, jvmWithoutJvmtiIsRefused) {
    const ProcessOutcome outcome = runInChild([] { return jvmOnLoad(); });
    EXPECT_EQ(1, outcome.exitCode);
    EXPECT_EQ("Cannot start: Java 6 or newer is required. To profile on Java 1.4, use Vandrik Java "
              "Profiler 7.5.x\n",
              outcome.errors);
}

TEST_F(AgentLoad, oldEntryIsSilentBesideALoadedAgent) {
    const ProcessOutcome outcome = runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        agentOnLoad(jvm.vm(), withDirectory().c_str());
        return jvmOnLoad();
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("", outcome.errors);
}
