#include "core/entry/EventTable.h"

#include "core/entry/JVMTI_Agent.h"
#include "core/entry/JavaObjectMap.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/ClassLoadingProbe.h"
#include "profiling/memory/AllocationRecorder.h"

namespace {

// Registered so that the JVM reports prepared classes in order; has nothing to do.
void JNICALL class_load_handler(jvmtiEnv*, JNIEnv*, jthread, jclass) {}

void JNICALL class_prepare_handler(jvmtiEnv*, JNIEnv* env, jthread, jclass type) {
    handleEvent(env, VDK_HERE, [&] {
        // The class object itself is an allocation; which frame it belongs to is not known.
        vdkInitImpl(env, type, -1);
        ClassLoadingProbe::onClassPrepare(env, type);
    });
}

void JNICALL object_free_handler_JVMTI8(jvmtiEnv*, jlong tag) {
    runGuarded(VDK_HERE, [&] { ClassLoadingProbe::onClassUnload(tag); });
}

void JNICALL object_free_handler_JVMTI9(jvmtiEnv*, jlong tag) {
    runGuarded(VDK_HERE, [&] { JavaObjectMap::onObjectFree(tag); });
}

enum When { ON_LOAD_ONLY, ALWAYS, IF_CONSUMED };

struct EnabledEvent {
    jvmtiEvent event;
    When when;
};

// The events in the order in which they are enabled. The class load hook, exceptions, allocation
// and monitors are enabled elsewhere, by those who know when they are wanted.
const EnabledEvent ENABLED[] = {
    {JVMTI_EVENT_VM_INIT, ON_LOAD_ONLY}, {JVMTI_EVENT_VM_START, ON_LOAD_ONLY},
    {JVMTI_EVENT_VM_DEATH, ALWAYS},      {JVMTI_EVENT_CLASS_LOAD, ALWAYS},
    {JVMTI_EVENT_CLASS_PREPARE, ALWAYS}, {JVMTI_EVENT_OBJECT_FREE, IF_CONSUMED},
    {JVMTI_EVENT_THREAD_END, ALWAYS},    {JVMTI_EVENT_THREAD_START, ALWAYS},
};

void enable(jvmtiEnv* environment, jvmtiEvent event) {
    CHECK_JVMTI(environment->SetEventNotificationMode(JVMTI_ENABLE, event, nullptr));
}

bool canSendExceptions() {
    return (ourCapabilities & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE) == 0;
}

// At the first class of a module that a hook sees, the JVM calls Java code that lets the module
// read the unnamed ones. Were that first class one which this code needs, its load would be
// circular, and stay refused: nothing in the JVM could add a read edge any more, and a flight
// recording that is to begin at the start would end the JVM.
const char* const CLASSES_OF_READ_EDGES[] = {
    "java/lang/Module$ReflectionData",
    "java/lang/WeakPairMap$Pair$Lookup",
    "java/lang/WeakPairMap$Pair$Weak",
    "java/lang/WeakPairMap$Pair$Weak$1",
};

void loadClassesOfReadEdges(JNIEnv* env) {
    for (const char* name : CLASSES_OF_READ_EDGES) {
        jclass type = env->FindClass(name);
        if (type == nullptr) {
            env->ExceptionClear();
        }
        env->DeleteLocalRef(type);
    }
}

void enableObjectFree(jvmtiEnv* environment, jvmtiEventObjectFree handler) {
    jvmtiEventCallbacks callbacks = {};
    callbacks.ObjectFree = handler;
    environment->SetEventCallbacks(&callbacks, sizeof callbacks);
    environment->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_OBJECT_FREE, nullptr);
}

} // namespace

void registerEventHandlers(jvmtiEnv* environment) {
    const bool isAttached = (ourCapabilities & CAPABILITY_ATTACHED_AGENT) != 0;
    jvmtiEventCallbacks callbacks = {};
    callbacks.VMInit = vmInit;
    callbacks.VMStart = vmStart;
    callbacks.VMDeath = vmDeath;
    callbacks.ClassFileLoadHook = ourConsumedEvents.classFileLoadHook;
    callbacks.ClassLoad = class_load_handler;
    callbacks.ClassPrepare = class_prepare_handler;
    if (canSendExceptions()) {
        callbacks.Exception = ourConsumedEvents.exception;
        callbacks.ExceptionCatch = ourConsumedEvents.exceptionCatch;
    }
    callbacks.ObjectFree = ourConsumedEvents.objectFree;
    callbacks.ThreadEnd = threadEnd;
    callbacks.ThreadStart = threadStart;
    callbacks.VMObjectAlloc = ourConsumedEvents.vmObjectAlloc;
    callbacks.SampledObjectAlloc = ourConsumedEvents.sampledObjectAlloc;
    callbacks.MonitorWait = ourConsumedEvents.monitorWait;
    callbacks.MonitorWaited = ourConsumedEvents.monitorWaited;
    callbacks.MonitorContendedEnter = ourConsumedEvents.monitorContendedEnter;
    callbacks.MonitorContendedEntered = ourConsumedEvents.monitorContendedEntered;
    CHECK_JVMTI(environment->SetEventCallbacks(&callbacks, sizeof callbacks));
    forgetConsumedEvents();
    for (const EnabledEvent& row : ENABLED) {
        const bool isWanted = row.when == ALWAYS || (row.when == ON_LOAD_ONLY && !isAttached) ||
                              (row.when == IF_CONSUMED && callbacks.ObjectFree != nullptr);
        if (isWanted) {
            enable(environment, row.event);
        }
    }
    updateExceptionEvents();
}

void enableClassFileLoadHook(jvmtiEnv* environment, JNIEnv* env) {
    if (ourConsumedEvents.classFileLoadHook != nullptr) {
        loadClassesOfReadEdges(env);
        enable(environment, JVMTI_EVENT_CLASS_FILE_LOAD_HOOK);
    }
}

void registerUnloadHandler(jvmtiEnv* environment) {
    enableObjectFree(environment, object_free_handler_JVMTI8);
}

void registerObjectMapHandler(jvmtiEnv* environment) {
    enableObjectFree(environment, object_free_handler_JVMTI9);
}

void disableEvents(bool keepsHook) {
    const auto disable = [](jvmtiEnv* environment, jvmtiEvent event) {
        CHECK_JVMTI(environment->SetEventNotificationMode(JVMTI_DISABLE, event, nullptr));
    };
    for (const EnabledEvent& row : ENABLED) {
        if (row.event != JVMTI_EVENT_VM_DEATH && row.event != JVMTI_EVENT_THREAD_END) {
            disable(ourJVMTI, row.event);
        }
    }
    disable(ourJVMTI8, JVMTI_EVENT_OBJECT_FREE);
    if (!keepsHook) {
        disable(ourJVMTI, JVMTI_EVENT_CLASS_FILE_LOAD_HOOK);
    }
}
