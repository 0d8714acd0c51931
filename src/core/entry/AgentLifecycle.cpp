// What follows the load: VMStart, VMInit, the threads of the application, VMDeath.
#include "core/entry/EventTable.h"
#include "core/entry/JVMTI_Agent.h"
#include "core/entry/NativeTable.h"
#include "core/ground/ConfigFile.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/JavaNames.h"
#include "core/ground/Options.h"
#include "core/jvm/AgentThread.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "instrument/Instrumentation.h"
#include "instrument/JNIRedirect.h"
#include "instrument/ProbeChanges.h"
#include "instrument/Retransformation.h"
#include "platform/Platform.h"
#include "profiling/cpu/SampledTimes.h"
#include "profiling/cpu/Samplers.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/cpu/SignalSampling.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/events/Monitors.h"
#include "profiling/memory/AllocationRecorder.h"
#include "profiling/memory/Generations.h"
#include "profiling/threads/CarrierThread.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/UnloadedClasses.h"
#include "profiling/threads/VirtualThreads.h"
#include "runtime/ControlSocketNatives.h"
#include "runtime/DiagnosticNatives.h"
#include "runtime/RuntimeClasses.h"
#include "snapshot/Snapshoting.h"

#include <cstdlib>
#include <cstring>

namespace {

const char CORE_CLASS[] = "com/vandrik/runtime/Core";
const long SNAPSHOT_ON_EXIT_BITS = ALLOCATION_RECORDING_BIT | CPU_TIMES_BIT | MONITORS_BIT;
const jvmtiEvent DATA_DUMP_REQUEST = JVMTI_EVENT_DATA_DUMP_REQUEST;

// Set once the natives are bound. Without them no Java code of the agent may run.
bool ourNativesBound = false;
// Set once this library has begun to bring the classes that they belong to.
bool ourHasBroughtClasses = false;

jstring newString(JNIEnv* env, const ZString& text) {
    jstring result = toJavaString(env, text);
    ASSERT_JNI(env);
    return result;
}

// Makes Callback known and keeps it, which finding it costs only once.
void loadCallbackClass(JNIEnv* env) {
    ourHasBroughtClasses = true;
    if (ourDefinesRuntimeClasses) {
        const int count = defineRuntimeClasses(env);
        Logger::message(ZString("Runtime classes defined: ") + longToString(count));
    }
    jclass callback = findClass(env, CALLBACK_CLASS);
    ourClassCallbackGlobalRef = static_cast<jclass>(env->NewGlobalRef(callback));
    env->DeleteLocalRef(callback);
}

// The natives of a runtime class other than Callback.
void bindNatives(JNIEnv* env, const char* className, bool (*registerNatives)(JNIEnv*, jclass)) {
    jclass runtimeClass = findClass(env, className);
    const bool isBound = registerNatives(env, runtimeClass);
    ASSERT_JNI(env);
    Logger::assertTrue(isBound, VDK_HERE);
    env->DeleteLocalRef(runtimeClass);
}

// What the option triggers= names. The file in the home directory, which nobody named, stops no
// JVM: with triggers that this agent cannot run it is left out.
ZString readTriggers(JNIEnv* env) {
    const ZString text = readConfigFromFile(ourOptions->triggers, ".triggers", "");
    if (!ourOptions->triggers.isEmpty() || text.isEmpty()) {
        return text;
    }
    jmethodID check = env->GetStaticMethodID(ourClassCoreGlobalRef, "checkTriggers",
                                             "(Ljava/lang/String;)Ljava/lang/String;");
    ASSERT_JNI(env);
    jstring javaText = newString(env, text);
    jstring failure =
        static_cast<jstring>(env->CallStaticObjectMethod(ourClassCoreGlobalRef, check, javaText));
    ASSERT_JNI(env);
    const bool isUsable = failure == nullptr;
    if (!isUsable) {
        Logger::message(ZString("The file .triggers of the home directory is left out: ") +
                        toZString(env, failure));
    }
    env->DeleteLocalRef(failure);
    env->DeleteLocalRef(javaText);
    return isUsable ? text : ZString();
}

// Calls Core.init with what the options say.
bool callCoreInit(JNIEnv* env) {
    jmethodID init = env->GetStaticMethodID(
        ourClassCoreGlobalRef, "init",
        "(ILjava/lang/String;Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;"
        "IZJIIIZLjava/lang/String;)Z");
    ASSERT_JNI(env);
    const ZString triggerText = ourOptions->triggerText + readTriggers(env);
    jstring listenHost = newString(env, ourOptions->listenHost);
    jstring sessionName = newString(env, ourOptions->getSessionName());
    jstring snapshotDir = newString(env, ourOptions->snapshotDir);
    jstring profilerUIPath = newString(env, ourOptions->profilerUIPath);
    jstring triggers = newString(env, triggerText);
    const jboolean result = env->CallStaticBooleanMethod(
        ourClassCoreGlobalRef, init, ourOptions->port, listenHost, sessionName, snapshotDir,
        profilerUIPath, ourOptions->idePort, static_cast<jboolean>(ourOptions->onlyLocal),
        static_cast<jlong>(ourDB->startTime), ourOptions->delay, ourOptions->telemetryLimit,
        ourOptions->probeTableLengthLimit, static_cast<jboolean>(!ourOptions->disableOOMEDumper),
        triggers);
    ASSERT_JNI(env);
    const jstring texts[] = {listenHost, sessionName, snapshotDir, profilerUIPath, triggers};
    for (jstring text : texts) {
        env->DeleteLocalRef(text);
    }
    return result == JNI_TRUE;
}

void JNICALL detector_thread_entry(jvmtiEnv*, JNIEnv*, void* stay) {
    runGuarded(VDK_HERE, [&] { oome_snapshot_detector(stay); });
}

// Starts a mode that the options ask for. One that fails leaves the others: the log tells.
template <typename Start>
void startMode(JNIEnv* env, Start&& start) {
    runGuarded(VDK_HERE, [&] {
        const ZString refusal = start();
        if (!refusal.isEmpty()) {
            Logger::message(ZString("startProfiling: ") + refusal);
        }
    });
    logPendingException(env, "startProfiling");
}

// A static method of Core without a result. The JVM is about to end: a Java exception is logged.
void callCore(JNIEnv* env, const char* name, const char* signature, jlong argument) {
    jmethodID method = env->GetStaticMethodID(ourClassCoreGlobalRef, name, signature);
    if (method != nullptr) {
        // A method without parameters takes no notice of the argument.
        env->CallStaticVoidMethod(ourClassCoreGlobalRef, method, argument);
    }
    logPendingException(env, name);
}

bool isSnapshotOnExitWanted(long status) {
    const bool isAsked = ourOptions->onExitMemory || ourOptions->onExitSnapshot ||
                         !ourOptions->exitSnapshot.isEmpty();
    return !ourOptions->noExitSnapshot && (isAsked || (status & SNAPSHOT_ON_EXIT_BITS) != 0);
}

// The snapshot at the end, for a user who named its file or wants to know where it lies.
void captureToldSnapshot(JNIEnv* env, jlong flags) {
    jmethodID method = env->GetStaticMethodID(ourClassCoreGlobalRef, "captureSnapshotOnExit",
                                              "(JLjava/lang/String;)Ljava/lang/String;");
    ASSERT_JNI(env);
    jstring file = newString(env, ourOptions->exitSnapshot);
    auto path = static_cast<jstring>(
        env->CallStaticObjectMethod(ourClassCoreGlobalRef, method, flags, file));
    env->DeleteLocalRef(file);
    ASSERT_JNI(env);
    if (!ourOptions->tellSnapshot) {
        env->DeleteLocalRef(path);
        return;
    }
    Logger::printToConsole(stderr, path == nullptr
                                       ? ZString("vdk: no snapshot could be written at the end; "
                                                 "the agent's log tells why\n")
                                       : ZString("vdk: snapshot: ") + toZString(env, path) + "\n");
    env->DeleteLocalRef(path);
}

void vmDeathImpl(JNIEnv* env) {
    Logger::message("vmDeath: 1");
    if (!ourVMInitCalled) {
        Logger::message("vmDeath: nothing to do");
        return;
    }
    const long status = ourStatus;
    ourVMDeathCalled = true;
    if (ourIsAway) {
        Logger::message("vmDeath: the agent is detached, nothing to do");
        return;
    }
    Logger::message("vmDeath: 2");
    callCore(env, "runOnJVMExitTriggers", "()V", 0);
    Logger::message("vmDeath: 3");
    // Before the snapshot, which then has all.
    runGuarded(VDK_HERE, [&] { Samplers::end(env); });
    if (isSnapshotOnExitWanted(status)) {
        const bool withHeap = ourOptions->onExitMemory || (status & ALLOCATION_RECORDING_BIT) != 0;
        if (ourOptions->exitSnapshot.isEmpty() && !ourOptions->tellSnapshot) {
            callCore(env, "captureSnapshotOnExit", "(J)V", withHeap ? 1 : 0);
        } else {
            captureToldSnapshot(env, withHeap ? 1 : 0);
        }
    }
    Logger::message("vmDeath: 4");
    logInstrumentationTotals();
    CHECK_JVMTI(ourJVMTI->SetEventNotificationMode(JVMTI_DISABLE, DATA_DUMP_REQUEST, nullptr));
    restoreJNIFunctions();
    Logger::message("vmDeath: OK");
}

// False where the application is to go on without the agent.
bool vmInitImpl(JNIEnv* env) {
    if (!ourNativesBound) {
        Logger::message("vmInit: the start failed, nothing to do");
        return false;
    }
    {
        LockHolder lock(ourLock, "JVMTI_Agent:228");
        Generations::advanceGeneration(env, "JVM initialization", !ourOptions->noStartGeneration);
    }
    // The threads of the start phase, this one among them, sent no start event.
    registerLiveThreads(env);
    if (!agentInit(env)) {
        if (!ourOptions->optional && !ourMemoryRanOut) {
            exit(-1);
        }
        return false; // the application goes on, unprofiled
    }
    prepareProbes(env);
    enableClassFileLoadHook(ourJVMTI, env);
    retransformPrimordialClasses(env);
    retransformClassesForChangedProbes(env, "apply probes after start");
    startProfiling(env);
    return true;
}

// The thread's name and group for a ThreadInfo; both empty when the JVM does not tell.
struct ThreadNames {
    ZString name;
    ZString group;
    bool hasGroup = false;
};

void readGroupName(JNIEnv* env, jthreadGroup group, ThreadNames* names) {
    jvmtiThreadGroupInfo info = {};
    if (ourJVMTI->GetThreadGroupInfo(group, &info) != JVMTI_ERROR_NONE) {
        return;
    }
    names->hasGroup = info.name != nullptr;
    if (names->hasGroup) {
        names->group = info.name;
    }
    deallocate(info.name);
    env->DeleteLocalRef(info.parent);
}

void readThreadNames(JNIEnv* env, jthread thread, ThreadNames* names) {
    jvmtiThreadInfo info = {};
    if (ourJVMTI->GetThreadInfo(thread, &info) != JVMTI_ERROR_NONE) {
        return;
    }
    if (info.name != nullptr) {
        names->name = info.name;
    }
    deallocate(info.name);
    if (info.thread_group != nullptr) {
        readGroupName(env, info.thread_group, names);
    }
    env->DeleteLocalRef(info.thread_group);
    env->DeleteLocalRef(info.context_class_loader);
}

bool isAlive(jthread thread) {
    jint state = 0;
    return ourJVMTI->GetThreadState(thread, &state) == JVMTI_ERROR_NONE &&
           (state & JVMTI_THREAD_STATE_ALIVE) != 0;
}

// Whether it runs virtual threads.
bool isCarrier(JNIEnv* env, jthread thread) {
    jclass type = env->GetObjectClass(thread);
    JvmtiMemory<char> signature;
    const jvmtiError error = ourJVMTI->GetClassSignature(type, signature.receive(), nullptr);
    env->DeleteLocalRef(type);
    return error == JVMTI_ERROR_NONE && signature.get() != nullptr &&
           strcmp(signature.get(), "Ljdk/internal/misc/CarrierThread;") == 0;
}

bool hasThreadInfo(jthread thread) {
    void* info = nullptr;
    return ourJVMTI->GetThreadLocalStorage(thread, &info) == JVMTI_ERROR_NONE && info != nullptr;
}

void threadEndImpl(JNIEnv* env, jthread thread) {
    LockHolder lock(ourLock, "JVMTI_Agent:292");
    UnloadedClasses::threadEnds();
    void* stored = nullptr;
    if (ourJVMTI->GetThreadLocalStorage(thread, &stored) != JVMTI_ERROR_NONE || stored == nullptr) {
        return;
    }
    ThreadInfo* info = static_cast<ThreadInfo*>(stored);
    // It may have been renamed since it started.
    info->ensureThreadHasName(env, thread);
    SignalSampling::threadEnds(env, info);
    CHECK_JVMTI(ourJVMTI->SetThreadLocalStorage(thread, nullptr));
    setNativeThreadInfo(nullptr);
    if (info->threadObject != nullptr) {
        env->DeleteGlobalRef(info->threadObject);
        info->threadObject = nullptr;
    }
    info->onThreadEnd();
    delete info;
}

} // namespace

bool areRuntimeClassesOurs() {
    return ourHasBroughtClasses;
}

void agentStart(JNIEnv* env) {
    Logger::message("agentStart: 1");
    redirectJNIFunctions();
    if (ourNativesBound) {
        Logger::message("agentStart: the classes are there");
        return;
    }
    loadCallbackClass(env);
    Logger::message("agentStart: 2");
    registerCallbackNatives(env, ourClassCallbackGlobalRef);
    bindNatives(env, "com/vandrik/runtime/ControlSocket", registerControlSocketNatives);
    bindNatives(env, "com/vandrik/runtime/OOMEDumper", registerDiagnosticNatives);
    ourNativesBound = true;
    Logger::message("agentStart: OK");
}

bool agentInit(JNIEnv* env) {
    Logger::message("agentInit: 1");
    if (ourClassCoreGlobalRef == nullptr) {
        jclass core = findClass(env, CORE_CLASS);
        ourClassCoreGlobalRef = static_cast<jclass>(env->NewGlobalRef(core));
        env->DeleteLocalRef(core);
    }
    Logger::message("agentInit: Core loaded");
    const bool goesOn = callCoreInit(env);
    Logger::message("agentInit: Core.init() called");
    if (!goesOn) {
        Logger::message("agentInit: Core.init() returned false");
        return false;
    }
    const bool areThreadsThere = runGuarded(VDK_HERE, [&] {
        runAgentThread(env, "VDKAgent-CPUSampler", sampler_thread_entry, presentStay());
        runAgentThread(env, "VDKAgent-OOMESnapshotDetector", detector_thread_entry, presentStay());
    });
    // The threads of Core run and use the environments: a failure leaves all in place from here on.
    ourVMInitCalled = true;
    if (!areThreadsThere) {
        throw VDKRuntimeException();
    }
    Logger::message("agentInit: OK");
    return true;
}

void startProfiling(JNIEnv* env) {
    Logger::message("startProfiling: 1");
    if (ourOptions->tracing || ourOptions->sampling) {
        const long mode = (ourOptions->tracing ? CPU_TRACING : CPU_SAMPLING) |
                          (ourOptions->noJ2EE ? 0 : CPU_J2EE_BIT);
        startMode(env, [&] { return startCPUProfiling(env, mode, nullptr, nullptr); });
    }
    if (ourOptions->allocEachSet || ourOptions->allocSizeLimitSet) {
        const AllocationSettings settings = {ourOptions->allocEachSet, ourOptions->allocEach,
                                             ourOptions->allocSizeLimitSet,
                                             ourOptions->allocSizeLimit, ourOptions->perClassGC};
        startMode(env, [&] { return startAllocationRecording(env, settings); });
    }
    if (ourOptions->allocSampled != 0) {
        startMode(env, [&] {
            return startSampledAllocationRecording(env, ourOptions->allocSampled,
                                                   ourOptions->perClassGC);
        });
    }
    if (ourOptions->monitors) {
        startMode(env, [&] { return Monitors::startMonitorProfiling(env); });
    }
    Logger::message("startProfiling: OK");
}

void threadStartImpl(JNIEnv* env, jthread thread, long nativeID) {
    LockHolder lock(ourLock, "JVMTI_Agent:315");
    // The sweep over live threads and the thread's own start event may both see it.
    if (hasThreadInfo(thread)) {
        return;
    }
    jobject reference = env->NewGlobalRef(thread);
    ThreadNames names;
    readThreadNames(env, thread, &names);
    ThreadInfo* info = new ThreadInfo(
        names.name.c_str(), names.hasGroup ? names.group.c_str() : nullptr, nativeID, reference);
    info->carrierThread = isCarrier(env, thread);
    if (info->carrierThread) {
        noteCarrierThread();
    }
    const jvmtiError error = ourJVMTI->SetThreadLocalStorage(thread, info);
    info->onThreadStart();
    if (error != JVMTI_ERROR_NONE) {
        // It ended since it was last seen alive, and sends no end event any more.
        if (reference != nullptr) {
            env->DeleteGlobalRef(reference);
        }
        info->onThreadEnd();
        delete info;
        return;
    }
    if (nativeID != 0) {
        setNativeThreadInfo(info);
        SampledTimes::threadStarts(info);
        SignalSampling::threadStarts(info);
    }
}

void registerLiveThreads(JNIEnv* env) {
    jint count = 0;
    JvmtiMemory<jthread> threads;
    if (ourJVMTI->GetAllThreads(&count, threads.receive()) != JVMTI_ERROR_NONE) {
        return;
    }
    announceLocalReferences(env, count);
    jthread current = nullptr;
    if (ourJVMTI->GetCurrentThread(&current) != JVMTI_ERROR_NONE) {
        current = nullptr;
    }
    for (jint i = 0; i < count; i++) {
        jthread thread = threads.get()[i];
        if (isAlive(thread) && !hasThreadInfo(thread)) {
            const bool isCurrent = env->IsSameObject(thread, current);
            threadStartImpl(env, thread, isCurrent ? Platform::getCurrentThreadNativeID() : 0);
        }
        env->DeleteLocalRef(thread);
    }
    env->DeleteLocalRef(current);
}

void JNICALL vmStart(jvmtiEnv*, JNIEnv* env) {
    handleEvent(env, VDK_HERE, [&] { agentStart(env); });
}

void JNICALL vmInit(jvmtiEnv*, JNIEnv* env, jthread) {
    bool isStarted = false;
    handleEvent(env, VDK_HERE, [&] { isStarted = vmInitImpl(env); });
    // Once the threads of Core run, they use the environments: what was reached stays.
    if (!isStarted && !ourVMInitCalled && ourOptions->optional) {
        goOnWithoutAgent();
    }
}

void JNICALL vmDeath(jvmtiEnv*, JNIEnv* env) {
    handleEvent(env, VDK_HERE, [&] { vmDeathImpl(env); });
}

void JNICALL threadStart(jvmtiEnv*, JNIEnv* env, jthread thread) {
    handleEvent(env, VDK_HERE,
                [&] { threadStartImpl(env, thread, Platform::getCurrentThreadNativeID()); });
}

void JNICALL threadEnd(jvmtiEnv*, JNIEnv* env, jthread thread) {
    handleEvent(env, VDK_HERE, [&] { threadEndImpl(env, thread); });
}
