// An agent that asks for all stacks at a period and does nothing with them: the cost below which no
// sampler of this kind can get. Options: the period in milliseconds, then, behind a comma, a file
// without which it only waits. Its thread is named "bare-sampler". With the options "monitors",
// "sampled" and "hook" it does nothing at the four events of monitors, at sampled allocations and
// as classes load instead.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <jvmti.h>
#include <time.h>
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

static void JNICALL sampledAllocation(jvmtiEnv*, JNIEnv*, jthread, jobject, jclass, jlong) {}

// The floor of sampled allocations.
static jint sampleAllocations(jvmtiEnv* jvmti) {
    jvmtiCapabilities capabilities;
    memset(&capabilities, 0, sizeof capabilities);
    capabilities.can_generate_sampled_object_alloc_events = 1;
    jvmti->AddCapabilities(&capabilities);
    jvmtiEventCallbacks callbacks;
    memset(&callbacks, 0, sizeof callbacks);
    callbacks.SampledObjectAlloc = sampledAllocation;
    jvmti->SetEventCallbacks(&callbacks, sizeof callbacks);
    return jvmti->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_SAMPLED_OBJECT_ALLOC, nullptr);
}

static void JNICALL classFileLoadHook(jvmtiEnv*, JNIEnv*, jclass, jobject, const char*, jobject,
                                      jint, const unsigned char*, jint*, unsigned char**) {}

// The floor of an agent that may rewrite classes.
static jint seeClasses(jvmtiEnv* jvmti) {
    jvmtiCapabilities capabilities = {};
    capabilities.can_generate_all_class_hook_events = 1;
    capabilities.can_retransform_classes = 1;
    jvmti->AddCapabilities(&capabilities);
    jvmtiEventCallbacks callbacks = {};
    callbacks.ClassFileLoadHook = classFileLoadHook;
    jvmti->SetEventCallbacks(&callbacks, sizeof callbacks);
    return jvmti->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_CLASS_FILE_LOAD_HOOK, nullptr);
}

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    jvmtiEnv* jvmti = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_1_2) != JNI_OK) {
        return 1;
    }
    if (options != nullptr && strcmp(options, "monitors") == 0) {
        return receiveMonitorEvents(jvmti);
    }
    if (options != nullptr && strcmp(options, "sampled") == 0) {
        return sampleAllocations(jvmti);
    }
    if (options != nullptr && strcmp(options, "hook") == 0) {
        return seeClasses(jvmti);
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

// The floor of a snapshot of the heap, when it is loaded into a running JVM: every object gets a
// tag, then all references are walked over. Options: "tag a" for a walk that tags all objects, or
// "tag r" for one that tags those that it reaches, and behind a comma a file for the CPU times.
static jlong ourLastTag;

static jvmtiIterationControl JNICALL tagObject(jlong, jlong, jlong* tag, void*) {
    *tag = ++ourLastTag;
    return JVMTI_ITERATION_CONTINUE;
}

static void tagUntagged(jlong* tag) {
    if (*tag == 0) {
        *tag = ++ourLastTag;
    }
}

static jvmtiIterationControl JNICALL visitRoot(jvmtiHeapRootKind, jlong, jlong, jlong* tag, void*) {
    tagUntagged(tag);
    return JVMTI_ITERATION_CONTINUE;
}

static jvmtiIterationControl JNICALL visitLocal(jvmtiHeapRootKind, jlong, jlong, jlong* tag, jlong,
                                                jint, jmethodID, jint, void*) {
    tagUntagged(tag);
    return JVMTI_ITERATION_CONTINUE;
}

static jvmtiIterationControl JNICALL visitReference(jvmtiObjectReferenceKind, jlong, jlong,
                                                    jlong* tag, jlong, jint, void*) {
    tagUntagged(tag);
    return JVMTI_ITERATION_CONTINUE;
}

// CPU time of the process: a function runs on one thread at a time.
static double lap(double* last) {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    const double seconds = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
    const double since = seconds - *last;
    *last = seconds;
    return since;
}

JNIEXPORT jint JNICALL Agent_OnAttach(JavaVM* vm, char* options, void*) {
    jvmtiEnv* jvmti = nullptr;
    const char* comma = options == nullptr ? nullptr : strchr(options, ',');
    if (comma == nullptr ||
        vm->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_1_2) != JNI_OK) {
        return 1;
    }
    jvmtiCapabilities capabilities;
    memset(&capabilities, 0, sizeof capabilities);
    capabilities.can_tag_objects = 1;
    FILE* times = fopen(comma + 1, "w");
    if (times == nullptr || jvmti->AddCapabilities(&capabilities) != JVMTI_ERROR_NONE) {
        return 1;
    }
    ourLastTag = 0;
    double last = 0;
    lap(&last);
    if (strncmp(options, "tag a", 5) == 0) {
        jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_EITHER, tagObject, nullptr);
        fprintf(times, "tag %.2f s, ", lap(&last));
    }
    jvmti->IterateOverReachableObjects(visitRoot, visitLocal, visitReference, nullptr);
    fprintf(times, "walk %.2f s, ", lap(&last));
    jvmti->DisposeEnvironment();
    fprintf(times, "forget %.2f s, %ld objects\n", lap(&last), static_cast<long>(ourLastTag));
    fclose(times);
    return JNI_OK;
}
