// The load against a JVM that answers as the test wants: order, refusals, vendors, missing
// capabilities. Each start runs in a process of its own, since it fills the agent's globals.
#include "DirectoryTest.h"
#include "agent/FakeJvm.h"
#include "core/entry/JVMTI_Agent.h"
#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/SuspendCapability.h"
#include "profiling/threads/ThreadInfo.h"

#include <atomic>
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

void printCalls(const FakeJvm& jvm) {
    for (const std::string& call : jvm.calls) {
        printf("%s\n", call.c_str());
    }
}

using Body = std::function<int(FakeJvm&)>;

// Runs the body in a process of its own, beside a JVM that was started plainly.
ProcessOutcome onJvm(const Body& body) {
    return runInChild([&] {
        FakeJvm jvm;
        setCommandLine({"java", "Main"});
        return body(jvm);
    });
}

class AgentLoad : public DirectoryTest {
protected:
    // Options with a temporary directory of this test's own.
    std::string withDirectory(const std::string& options = "") const {
        return "tmpdir=" + directory + (options.empty() ? "" : "," + options);
    }
    int load(FakeJvm& jvm, const std::string& options = "") const {
        return agentLoadImpl(jvm.vm(), withDirectory(options).c_str());
    }
};

} // namespace

TEST_F(AgentLoad, logTellsWhatJvmItIs) {
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
        return agentOnLoad(jvm.vm(), withDirectory("sessionname=x").c_str());
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_EQ("", outcome.errors);
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

TEST_F(AgentLoad, everyRefusalHasItsCodeAndItsText) {
    const std::string java5 = "Cannot start: Java 6 or newer is required. To profile on Java 5, "
                              "use Vandrik Java Profiler 8.0.x\n";
    const std::string oldIbm = "Cannot start: unsupported version of IBM Java (20081104). Use IBM "
                               "Java 6 SR3 or newer, or Sun Java\n";
    const struct {
        std::function<void(FakeJvm&)> prepare;
        int result;
        std::string errors;
    } refusals[] = {
        {[](FakeJvm& jvm) { jvm.getEnvResult = -3; }, 1,
         "Cannot start: unable to create JVMTI environment, error=-3\n"},
        {[](FakeJvm& jvm) { jvm.jvmtiVersion = 0x30010154; }, 2, java5},
        {[](FakeJvm& jvm) { become(jvm, "BEA Systems, Inc.", "R27-1.5.0_11", ""); }, 4, java5},
        {[](FakeJvm& jvm) { become(jvm, "IBM Corporation", "2.4", "20081104"); }, 5, oldIbm},
        {[](FakeJvm& jvm) { jvm.potential.can_tag_objects = 0; }, 6,
         "Cannot start: the JVM does not provide required profiling capabilities (error "
         "code=98).\n\nMost likely, you have configured JVM to use a garbage collector that does "
         "not support heap profiling.\nPlease examine specified JVM options. Using default garbage "
         "collector will solve the problem.\n"},
    };
    for (const auto& refusal : refusals) {
        const ProcessOutcome result = onJvm([&](FakeJvm& jvm) {
            refusal.prepare(jvm);
            return load(jvm);
        });
        EXPECT_EQ(refusal.result, result.exitCode);
        EXPECT_EQ(refusal.errors, result.errors);
        // At load every refusal ends the process with 1.
        const ProcessOutcome atLoad = onJvm([&](FakeJvm& jvm) {
            refusal.prepare(jvm);
            return agentOnLoad(jvm.vm(), withDirectory().c_str()) + 50;
        });
        EXPECT_EQ(1, atLoad.exitCode) << refusal.result;
    }
}

TEST_F(AgentLoad, vendorsAndTheirBuildsAreToldApart) {
    const struct {
        const char* vendor;
        const char* version;
        const char* info;
        const char* options;
        int code; // 1 IBM, 2 JRockit, 4 R28; 10 times the result
    } rows[] = {
        {"Oracle Corporation", "R28.1.0-123-1.6.0_20", "J", "", 6},
        {"Oracle Corporation", "17.0.1+12", "J", "", 0},
        {"Oracle Corporation", "x-R2-y", "J", "", 6},
        {"BEA Systems, Inc.", "R27.6-1.6.0", "J", "", 2},
        {"Sun Microsystems Inc.", "R28.1", "J", "", 0},
        {"IBM Corporation", "R28", "JRE 1.8.0 x", "", 1},
        {"IBM Corporation", "2.4", "20081105", "", 1},
        {"IBM Corporation", "2.4", "20080816", "sessionname=WebSphere", 1},
        {"IBM Corporation", "2.4", "20080815", "sessionname=WebSphere", 51},
    };
    for (const auto& row : rows) {
        const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
            become(jvm, row.vendor, row.version, row.info);
            jvm.jvmtiVersion = 0x30010155; // the oldest that is taken
            return load(jvm, row.options) * 10 + (ourIsIBM ? 1 : 0) + (ourIsJRockit ? 2 : 0) +
                   (ourIsJRockitR28 ? 4 : 0);
        });
        EXPECT_EQ(row.code, outcome.exitCode) << row.vendor << row.version << row.info;
    }
}

TEST_F(AgentLoad, missingRequiredCapabilitiesAreAllLoggedBeforeTheRefusal) {
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
        memset(&jvm.potential, 0, sizeof jvm.potential);
        return load(jvm);
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
    const ProcessOutcome missing = onJvm([&](FakeJvm& jvm) {
        jvm.potential.can_generate_exception_events = 0;
        jvm.potential.can_suspend = 0;
        jvm.potential.can_access_local_variables = 0;
        jvm.potential.can_generate_all_class_hook_events = 0;
        const int result = load(jvm);
        printf("%lx", ourCapabilities.load());
        return result;
    });
    EXPECT_EQ(0, missing.exitCode);
    EXPECT_EQ("d140", missing.output);
    const ProcessOutcome unwanted = onJvm([&](FakeJvm& jvm) {
        const int result = load(jvm, "noexceptionevents,nolocals");
        printf("%lx %d%d", ourCapabilities.load(), jvm.requests[0].can_generate_exception_events,
               jvm.requests[0].can_access_local_variables);
        return result;
    });
    EXPECT_EQ(0, unwanted.exitCode);
    EXPECT_EQ("5140 00", unwanted.output);
    EXPECT_THAT(unwanted.log, HasSubstr("can_generate_exception_events: optional capability is not "
                                        "available\n"));
}

TEST_F(AgentLoad, threadClockIsRequiredOnAttachAlone) {
    const auto start = [&](bool attached) {
        return onJvm([&](FakeJvm& jvm) {
            jvm.potential.can_get_thread_cpu_time = 0;
            return attached ? agentOnAttach(jvm.vm(), withDirectory().c_str())
                            : agentOnLoad(jvm.vm(), withDirectory().c_str());
        });
    };
    EXPECT_EQ(0, start(false).exitCode);
    const ProcessOutcome attached = start(true);
    EXPECT_EQ(LOAD_NO_CAPABILITIES, attached.exitCode);
    EXPECT_THAT(attached.log,
                HasSubstr("can_get_thread_cpu_time: required capability is not available\n"));
}

TEST_F(AgentLoad, exceptionHandlersAreRegisteredOnlyWhereEventsExist) {
    const auto start = [&](const char* options, long status) {
        const Body body = [&](FakeJvm& jvm) {
            ourStatus |= status;
            load(jvm, options);
            return (jvm.callbacks.Exception != nullptr ? 1 : 0) +
                   (jvm.wasCalled("Enable 58 in 0") ? 2 : 0) +
                   (jvm.wasCalled("Enable 59 in 0") ? 4 : 0);
        };
        return onJvm(body).exitCode;
    };
    const long tracing = CPU_COUNTS_BIT;
    EXPECT_EQ(7, start("", 0));
    EXPECT_EQ(0, start("noexceptionevents", tracing));
    // Registered, so that both can be switched on later. What nobody consumes costs no throw.
    EXPECT_EQ(1, start("disableexceptiontelemetry", 0));
    EXPECT_EQ(5, start("disableexceptiontelemetry", tracing));
}

TEST_F(AgentLoad, suspensionIsTakenWhenItIsNeededAndGivenBack) {
    for (const bool debugger : {false, true}) {
        const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
            load(jvm);
            const bool atLoad = jvm.requests[0].can_suspend != 0;
            jvm.potential.can_suspend = debugger ? 0 : 1;
            const bool taken = SuspendCapability::acquire();
            const bool asked = jvm.requests.back().can_suspend != 0;
            SuspendCapability::release();
            return (atLoad ? 16 : 0) + (taken ? 8 : 0) + (asked ? 4 : 0) +
                   (jvm.wasCalled("RelinquishCapabilities") ? 2 : 0) +
                   ((ourCapabilities & CAPABILITY_CANNOT_SUSPEND) != 0 ? 1 : 0);
        });
        EXPECT_EQ(debugger ? 4 + 1 : 8 + 4 + 2, outcome.exitCode);
    }
}

TEST_F(AgentLoad, suspensionIsAskedForAtLoadWhereOnlyThatIsPossible) {
    const auto start = [&](std::initializer_list<const char*> line) {
        return onJvm([&](FakeJvm& jvm) {
            setCommandLine(line);
            become(jvm, "BEA Systems, Inc.", "R27.6-1.6.0", "");
            load(jvm);
            return (jvm.requests[0].can_suspend ? 1 : 0) +
                   (jvm.requests[0].can_access_local_variables ? 2 : 0);
        });
    };
    EXPECT_EQ(3, start({"java", "Main"}).exitCode);
    // Under a debugger this family gives neither.
    const ProcessOutcome debugged = start({"java", "-agentlib:jdwp=x", "Main"});
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
        const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
            jvm.failGetEnvFrom = failure.failGetEnvFrom;
            jvm.failAddCapabilitiesFrom = failure.failAddCapabilitiesFrom;
            load(jvm);
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
        const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
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
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
        const jint first = agentOnAttach(jvm.vm(), "tmpdir=/proc/nowhere,sampling,tracing");
        const jint second = agentOnAttach(jvm.vm(), "tmpdir=/proc/nowhere,sampling");
        printCalls(jvm);
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
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
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
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
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

TEST_F(AgentLoad, optionClassPathsFollowTheArchive) {
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
        const int result = load(jvm, "probeclasspath=/s1:/s2,probebootclasspath=/b");
        printCalls(jvm);
        return result;
    });
    EXPECT_EQ(0, outcome.exitCode);
    EXPECT_THAT(outcome.output, HasSubstr(".jar\nAddToBootstrapClassLoaderSearch /b\n"
                                          "AddToSystemClassLoaderSearch /s1\n"
                                          "AddToSystemClassLoaderSearch /s2\n"));
}

TEST_F(AgentLoad, probesThatTheUserNamedAreNotTakenInSilence) {
    const ProcessOutcome outcome =
        onJvm([&](FakeJvm& jvm) { return load(jvm, "probe=org.example.Mine"); });
    EXPECT_EQ(LOAD_OK, outcome.exitCode);
    EXPECT_THAT(outcome.log, HasSubstr("Error: probe class org/example/Mine: class not found\n"));
}

TEST_F(AgentLoad, attachThatFailsBesideRunningThreadsKeepsTheEnvironments) {
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
        jvm.phase = JVMTI_PHASE_LIVE;
        jvm.failingFunction = "SetNativeMethodPrefix";
        // What the threads of the agent were started under.
        ourVMInitCalled = true;
        const int result = agentOnAttach(jvm.vm(), withDirectory().c_str());
        return jvm.countCalls("DisposeEnvironment 0") * 10 + (ourJVMTI == nullptr ? 20 : result);
    });
    EXPECT_EQ(LOAD_OK, outcome.exitCode);
    EXPECT_THAT(outcome.log, HasSubstr("Agent_OnAttach: the start was not completed\n"));
}

TEST_F(AgentLoad, threadThatEndsWhileItIsRegisteredLeavesNothingBehind) {
    const ProcessOutcome outcome = onJvm([&](FakeJvm& jvm) {
        if (load(jvm) != LOAD_OK) {
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

TEST_F(AgentLoad, oldEntryRefusesAJvmWithoutJvmtiAndIsSilentBesideALoadedAgent) {
    const ProcessOutcome alone = runInChild([] { return jvmOnLoad(); });
    EXPECT_EQ(1, alone.exitCode);
    EXPECT_EQ("Cannot start: Java 6 or newer is required. To profile on Java 1.4, use Vandrik Java "
              "Profiler 7.5.x\n",
              alone.errors);
    const ProcessOutcome beside = onJvm([&](FakeJvm& jvm) {
        agentOnLoad(jvm.vm(), withDirectory().c_str());
        return jvmOnLoad();
    });
    EXPECT_EQ(0, beside.exitCode);
    EXPECT_EQ("", beside.errors);
}

// Inserted code must not meet an exception here, whatever is switched on or off meanwhile.
TEST(AgentNatives, anAllocationCallGivesItsHintBackWhileRecordingIsOff) {
    EXPECT_EQ(-1, Java_com_vandrik_runtime_Callback_vdkInit0(nullptr, nullptr, nullptr, -1));
    EXPECT_EQ(77, Java_com_vandrik_runtime_Callback_vdkInit0(nullptr, nullptr, nullptr, 77));
}
