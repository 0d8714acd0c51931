#include "profiling/cpu/CodeEvents.h"

#include "core/ground/Guard.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/cpu/CompiledCode.h"

#include <atomic>
#include <jvmti.h>

namespace {

const jint ENVIRONMENT_VERSION = JVMTI_VERSION_1_1;
const jvmtiEvent EVENTS[] = {JVMTI_EVENT_CLASS_PREPARE, JVMTI_EVENT_COMPILED_METHOD_LOAD,
                             JVMTI_EVENT_COMPILED_METHOD_UNLOAD,
                             JVMTI_EVENT_DYNAMIC_CODE_GENERATED};

// An environment of its own: the events are its alone, and come only while they are enabled. Made
// at the first start and kept.
jvmtiEnv* ourEnvironment = nullptr;
std::atomic<bool> ourIsListening{false};

// Being asked for a class's methods, the JVM makes their handles.
void makeHandles(jclass type) {
    jint count = 0;
    JvmtiMemory<jmethodID> methods;
    // A class that is not prepared yet has none; it will send its event.
    ourEnvironment->GetClassMethods(type, &count, methods.receive());
}

void JNICALL class_prepared(jvmtiEnv*, JNIEnv*, jthread, jclass type) {
    runGuarded(VDK_HERE, [&] { makeHandles(type); });
}

void JNICALL method_compiled(jvmtiEnv*, jmethodID method, jint bytes, const void* start, jint,
                             const jvmtiAddrLocationMap*, const void* compileInfo) {
    runGuarded(VDK_HERE, [&] {
        if (ourIsListening) {
            jboolean isNative = JNI_FALSE;
            ourEnvironment->IsMethodNative(method, &isNative);
            CompiledCode::add(method, isNative == JNI_TRUE, start, bytes, compileInfo);
        }
    });
}

void JNICALL code_dropped(jvmtiEnv*, jmethodID method, const void* start) {
    runGuarded(VDK_HERE, [&] { CompiledCode::remove(method, start); });
}

void JNICALL code_generated(jvmtiEnv*, const char*, const void* start, jint bytes) {
    runGuarded(VDK_HERE, [&] { CompiledCode::addOther(start, bytes); });
}

ZString makeEnvironment() {
    jvmtiEnv* environment = nullptr;
    if (ourVM->GetEnv(reinterpret_cast<void**>(&environment), ENVIRONMENT_VERSION) != JNI_OK) {
        return "the JVM gives no further tool environment";
    }
    jvmtiCapabilities capabilities = {};
    capabilities.can_generate_compiled_method_load_events = 1;
    jvmtiEventCallbacks callbacks = {};
    callbacks.ClassPrepare = class_prepared;
    callbacks.CompiledMethodLoad = method_compiled;
    callbacks.CompiledMethodUnload = code_dropped;
    callbacks.DynamicCodeGenerated = code_generated;
    if (environment->AddCapabilities(&capabilities) != JVMTI_ERROR_NONE ||
        environment->SetEventCallbacks(&callbacks, sizeof callbacks) != JVMTI_ERROR_NONE) {
        environment->DisposeEnvironment();
        return "the JVM does not tell of compiled code";
    }
    ourEnvironment = environment;
    return "";
}

void switchEvents(jvmtiEventMode mode) {
    for (const jvmtiEvent event : EVENTS) {
        CHECK_JVMTI(ourEnvironment->SetEventNotificationMode(mode, event, nullptr));
    }
}

void makeHandlesOfLoadedClasses(JNIEnv* env) {
    jint count = 0;
    JvmtiMemory<jclass> classes;
    CHECK_JVMTI(ourEnvironment->GetLoadedClasses(&count, classes.receive()));
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        makeHandles(classes.get()[i]);
        env->DeleteLocalRef(classes.get()[i]);
    }
}

} // namespace

ZString CodeEvents::start(JNIEnv* env) {
    const ZString refusal = ourEnvironment == nullptr ? makeEnvironment() : "";
    if (!refusal.isEmpty()) {
        return refusal;
    }
    ourIsListening = true;
    switchEvents(JVMTI_ENABLE);
    makeHandlesOfLoadedClasses(env);
    // The order matters: a method compiled meanwhile is told twice, which does no harm.
    CHECK_JVMTI(ourEnvironment->GenerateEvents(JVMTI_EVENT_DYNAMIC_CODE_GENERATED));
    CHECK_JVMTI(ourEnvironment->GenerateEvents(JVMTI_EVENT_COMPILED_METHOD_LOAD));
    return "";
}

void CodeEvents::stop() {
    if (ourEnvironment != nullptr && ourIsListening) {
        ourIsListening = false;
        switchEvents(JVMTI_DISABLE);
        CompiledCode::clear();
    }
}
