#include "core/entry/Detach.h"

#include "core/entry/EventTable.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/AgentThread.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/NativeEntry.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "instrument/ClassesBack.h"
#include "instrument/Instrumentation.h"
#include "instrument/JNIRedirect.h"
#include "instrument/LoaderReach.h"
#include "instrument/OnDemandCalls.h"
#include "instrument/ProbeChanges.h"
#include "instrument/WantedCalls.h"
#include "platform/Platform.h"
#include "probes/Probes.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/events/Exceptions.h"
#include "profiling/events/Monitors.h"
#include "profiling/memory/AllocationRecorder.h"
#include "profiling/memory/ObjectEnumerator.h"
#include "profiling/threads/MethodLookup.h"

#include <cstring>

namespace {

constexpr unsigned PAUSE_US = 10000; // between two batches of classes
constexpr unsigned LOOK_US = 10000;
constexpr long LONGEST_WAIT_NS = 20L * 1000 * 1000 * 1000;

enum Presence { PRESENT, LEAVING, AWAY };
std::atomic<Presence> ourPresence{PRESENT};

JNIEnv* currentEnv() {
    JNIEnv* env = nullptr;
    Logger::assertEquals(ourVM->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6), JNI_OK,
                         VDK_HERE);
    return env;
}

void removeAllProbes(JNIEnv* env) {
    {
        LockHolder lock(ourLock);
        ZVectorSafe<ZString> names;
        for (int i = 0; i < Probes::ourProbeDescriptors.getSize(); i++) {
            names.push(Probes::ourProbeDescriptors[i]->probeClass);
        }
        ZVectorSafe<ZString> removed;
        for (int i = 0; i < names.getSize(); i++) {
            Probes::removeProbes(names[i], removed);
        }
    }
    retransformClassesForChangedProbes(env, "detach");
}

// Whether a loaded class has the natives that a wrapper calls.
bool hasWrappedNatives(jclass type) {
    jint count = 0;
    JvmtiMemory<jmethodID> methods;
    if (ourJVMTI->GetClassMethods(type, &count, methods.receive()) != JVMTI_ERROR_NONE) {
        return false;
    }
    for (jint i = 0; i < count; i++) {
        JvmtiMemory<char> name;
        if (ourJVMTI->GetMethodName(methods.get()[i], name.receive(), nullptr, nullptr) ==
                JVMTI_ERROR_NONE &&
            strncmp(name.get(), ourNativeMethodPrefix, strlen(ourNativeMethodPrefix)) == 0) {
            return true;
        }
    }
    return false;
}

void countWhatClassesKeep(JNIEnv* env, ClassesGivenBack* result) {
    eachLoadedClass(env, [&](jclass type) {
        const ZString name = internalNameOf(type);
        LockHolder lock(ourLock);
        if (!name.isEmpty()) {
            result->withWrappers += mayHaveWrappedNatives(name) && hasWrappedNatives(type) ? 1 : 0;
            result->loaders += isPatchedLoader(name) ? 1 : 0;
        }
        return false;
    });
}

// Objects have tags where allocations or generations were recorded, or the heap was captured.
void takeTagsAway() {
    if (ourHasTaggedObjects.exchange(false)) {
        clearAllTags(ourJVMTI);
        ourObjectEnumerator.releaseAll();
    }
    LockHolder lock(ourLock);
    if (ourJVMTI2 != nullptr) {
        CHECK_JVMTI(ourJVMTI2->DisposeEnvironment());
        ourJVMTI2 = nullptr;
    }
}

// One that fails leaves the others, and the log tells.
template <typename Body>
bool step(const char* file, int line, Body&& body) {
    return runGuarded(file, line, body);
}

// What a return has switched on, and a detach switches off.
bool leaveJvm() {
    bool isDone = step(VDK_HERE, [] { restoreJNIFunctions(); });
    isDone = step(VDK_HERE, [] { disableEvents(keepsHookInAnyCase()); }) && isDone;
    return step(VDK_HERE, [] { takeTagsAway(); }) && isDone;
}

// Whether an attach that came during a detach may go on.
bool awaitEndOfDetach() {
    const long end = getTimeNs() + LONGEST_WAIT_NS;
    while (ourPresence == LEAVING && getTimeNs() < end) {
        Platform::sleepMicroseconds(LOOK_US);
    }
    return ourPresence == AWAY;
}

} // namespace

bool beginDetach() {
    LockHolder lock(ourLock);
    if (ourPresence != PRESENT || ourVMDeathCalled || !ourVMInitCalled) {
        return false;
    }
    ourPresence = LEAVING;
    ourIsAway = true;
    ourStay++;
    return true;
}

void stopRecordings(JNIEnv* env) {
    bool isDone = step(VDK_HERE, [&] { stopCPUProfilingImpl(env, false); });
    isDone = step(VDK_HERE, [&] { stopAllocationRecording(env); }) && isDone;
    isDone = step(VDK_HERE, [&] { Monitors::stop(env); }) && isDone;
    isDone = step(VDK_HERE, [&] { Exceptions::countByClass(env, false); }) && isDone;
    isDone = step(VDK_HERE, [&] { Exceptions::enable(env, false); }) && isDone;
    isDone = step(VDK_HERE, [&] { removeAllProbes(env); }) && isDone;
    isDone = step(VDK_HERE, [&] { dropRecordingCalls(env); }) && isDone;
    isDone = step(VDK_HERE, [&] { clearCPUDataImpl(env, false); }) && isDone;
    isDone = step(VDK_HERE, [&] { clearAllocationData(env); }) && isDone;
    isDone = step(VDK_HERE,
                  [] {
                      LockHolder lock(ourLock);
                      Monitors::clearMonitorData();
                      Exceptions::clearExceptions();
                      ourStatus &= ~STACK_TELEMETRY;
                  }) &&
             isDone;
    if (!isDone) {
        throw VDKRuntimeException();
    }
}

ClassesGivenBack giveClassesBack(JNIEnv* env, int socket) {
    ClassesGivenBack result;
    ClassesBack classes(env, mayBeChanged);
    while (!ourVMDeathCalled && classes.step()) {
        sendCallsProgress(socket, classes.getPlace(), classes.getSize(),
                          classes.getLongestStopNs());
        Platform::sleepMicroseconds(PAUSE_US);
    }
    result.done = classes.getDone();
    result.failed = classes.getSize() - classes.getDone();
    result.longestStopNs = classes.getLongestStopNs();
    countWhatClassesKeep(env, &result);
    LockHolder lock(ourLock);
    WantedCalls::forgetRecording();
    WantedCalls::forgetCarriers();
    if (result.failed == 0) {
        forgetChangedClasses();
    }
    return result;
}

void endDetach(JNIEnv*) {
    const bool isDone = leaveJvm();
    ourPresence = AWAY;
    if (!isDone) {
        throw VDKRuntimeException();
    }
}

bool isAway() {
    return ourPresence != PRESENT;
}

int returnToJvm(const char* options) {
    if (!awaitEndOfDetach()) {
        Logger::refusal("Cannot start: the agent has not yet left this JVM, or could not");
        return LOAD_STILL_LEAVING;
    }
    int result = LOAD_INTERNAL_ERROR;
    const bool isWhole = runGuarded(VDK_HERE, [&] { result = startAgain(options); });
    if (ourVMInitCalled && !ourIsAway) {
        // It listens: what failed behind that leaves it in place.
        ourPresence = PRESENT;
        if (!isWhole) {
            Logger::message("Agent_OnAttach: the start was not completed");
        }
        return LOAD_OK;
    }
    {
        LockHolder lock(ourLock);
        ourIsAway = true;
        ourVMInitCalled = true;
        ourStatus = 0;
    }
    step(VDK_HERE, [] { updateExceptionEvents(); });
    step(VDK_HERE, [] { removeAllProbes(currentEnv()); });
    leaveJvm();
    return result;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(beginDetach)(JNIEnv* env, jclass) {
    return nativeResult<jboolean>(env, VDK_HERE, JNI_FALSE,
                                  [] { return beginDetach() ? JNI_TRUE : JNI_FALSE; });
}

void JNICALL VDK_CALLBACK_NATIVE(stopRecordings)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { stopRecordings(env); });
}

// Those with their own bytes again, those that failed, those with wrappers, loaders', and the
// longest stop.
jlongArray JNICALL VDK_CALLBACK_NATIVE(giveClassesBack)(JNIEnv* env, jclass, jint socket) {
    return nativeResult<jlongArray>(env, VDK_HERE, nullptr, [&]() -> jlongArray {
        const ClassesGivenBack result = giveClassesBack(env, socket);
        const jlong values[] = {result.done, result.failed, result.withWrappers, result.loaders,
                                result.longestStopNs};
        jlongArray array = env->NewLongArray(5);
        if (array != nullptr) {
            env->SetLongArrayRegion(array, 0, 5, values);
        }
        return array;
    });
}

jstring JNICALL VDK_CALLBACK_NATIVE(awaitAgentThreads)(JNIEnv* env, jclass, jlong limitMs) {
    return nativeResult<jstring>(
        env, VDK_HERE, nullptr, [&] { return toJavaString(env, awaitAgentThreads(env, limitMs)); });
}

void JNICALL VDK_CALLBACK_NATIVE(endDetach)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { endDetach(env); });
}
