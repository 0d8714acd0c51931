// An agent that asks for all stacks at a period and does nothing with them: the cost below which no
// sampler of this kind can get. Options: the period in milliseconds, then, behind a comma, a file
// without which it only waits. Its thread is named "bare-sampler". With the option "monitors" it
// does nothing but receive the four events of monitors.
#include <cstdlib>
#include <cstring>
#include <jvmti.h>
#include <unistd.h>

static jrawMonitorID ourMonitor;
static jlong ourPeriodMs = 20;
static char ourSwitch[4096];

static void JNICALL sample(jvmtiEnv* jvmti, JNIEnv* env, void*) {
    jvmti->RawMonitorEnter(ourMonitor);
    for (;;) {
        jvmti->RawMonitorWait(ourMonitor, ourPeriodMs);
        if (ourSwitch[0] != 0 && access(ourSwitch, F_OK) != 0) {
            continue;
        }
        jvmtiStackInfo* stacks = nullptr;
        jint count = 0;
        if (jvmti->GetAllStackTraces(10000, &stacks, &count) != JVMTI_ERROR_NONE) {
            continue;
        }
        for (jint i = 0; i < count; i++) {
            env->DeleteLocalRef(stacks[i].thread);
        }
        jvmti->Deallocate(reinterpret_cast<unsigned char*>(stacks));
    }
}

static void JNICALL vmInit(jvmtiEnv* jvmti, JNIEnv* env, jthread) {
    jclass type = env->FindClass("java/lang/Thread");
    jmethodID make = env->GetMethodID(type, "<init>", "(Ljava/lang/String;)V");
    jobject thread = env->NewObject(type, make, env->NewStringUTF("bare-sampler"));
    jvmti->RunAgentThread(thread, sample, nullptr, JVMTI_THREAD_MAX_PRIORITY);
}

static void JNICALL onEnter(jvmtiEnv*, JNIEnv*, jthread, jobject) {}
static void JNICALL onEntered(jvmtiEnv*, JNIEnv*, jthread, jobject) {}
static void JNICALL onWait(jvmtiEnv*, JNIEnv*, jthread, jobject, jlong) {}
static void JNICALL onWaited(jvmtiEnv*, JNIEnv*, jthread, jobject, jboolean) {}

static jint receiveMonitorEvents(jvmtiEnv* jvmti) {
    jvmtiCapabilities capabilities = {};
    capabilities.can_generate_monitor_events = 1;
    jvmtiEventCallbacks callbacks = {};
    callbacks.MonitorContendedEnter = onEnter;
    callbacks.MonitorContendedEntered = onEntered;
    callbacks.MonitorWait = onWait;
    callbacks.MonitorWaited = onWaited;
    jvmtiError error = jvmti->AddCapabilities(&capabilities);
    if (error == JVMTI_ERROR_NONE) {
        error = jvmti->SetEventCallbacks(&callbacks, sizeof callbacks);
    }
    const jvmtiEvent events[] = {JVMTI_EVENT_MONITOR_CONTENDED_ENTER,
                                 JVMTI_EVENT_MONITOR_CONTENDED_ENTERED, JVMTI_EVENT_MONITOR_WAIT,
                                 JVMTI_EVENT_MONITOR_WAITED};
    for (jvmtiEvent event : events) {
        if (error == JVMTI_ERROR_NONE) {
            error = jvmti->SetEventNotificationMode(JVMTI_ENABLE, event, nullptr);
        }
    }
    return error;
}

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    jvmtiEnv* jvmti = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_1_2) != JNI_OK) {
        return 1;
    }
    if (options != nullptr && strcmp(options, "monitors") == 0) {
        return receiveMonitorEvents(jvmti);
    }
    if (options != nullptr && *options != 0) {
        ourPeriodMs = atoi(options);
        const char* comma = strchr(options, ',');
        if (comma != nullptr) {
            strncpy(ourSwitch, comma + 1, sizeof ourSwitch - 1);
        }
    }
    jvmti->CreateRawMonitor("bare-sampler", &ourMonitor);
    jvmtiEventCallbacks callbacks;
    memset(&callbacks, 0, sizeof callbacks);
    callbacks.VMInit = vmInit;
    jvmti->SetEventCallbacks(&callbacks, sizeof callbacks);
    return jvmti->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_VM_INIT, nullptr);
}
