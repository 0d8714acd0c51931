#include "profiling/threads/VirtualThreads.h"

#include "core/jvm/JvmGlobals.h"
#include "profiling/threads/ThreadInfo.h"

namespace {

// Null on a JVM that has none.
std::atomic<jclass> ourVirtualThreadClass{nullptr};
jfieldID ourIdField = nullptr;
std::atomic<bool> ourCarrierSeen{false};
ThreadInfo* ourStandIn = nullptr;

} // namespace

void findVirtualThreads(JNIEnv* env) {
    if (ourVirtualThreadClass != nullptr) {
        return;
    }
    jclass type = env->FindClass("java/lang/BaseVirtualThread");
    if (type == nullptr) {
        env->ExceptionClear();
        return;
    }
    ourIdField = env->GetFieldID(type, "tid", "J");
    if (ourIdField == nullptr) {
        env->ExceptionClear();
    } else {
        ourVirtualThreadClass = static_cast<jclass>(env->NewGlobalRef(type));
    }
    env->DeleteLocalRef(type);
}

bool isVirtualThread(JNIEnv* env, jthread thread) {
    const jclass type = ourVirtualThreadClass;
    return type != nullptr && env->IsInstanceOf(thread, type) == JNI_TRUE;
}

bool areVirtualThreadsInUse() {
    return ourCarrierSeen;
}

void noteCarrierThread() {
    ourCarrierSeen = true;
}

jlong getCurrentVirtualThreadID(JNIEnv* env) {
    jthread current = nullptr;
    if (ourVirtualThreadClass == nullptr ||
        ourJVMTI->GetCurrentThread(&current) != JVMTI_ERROR_NONE) {
        return 0;
    }
    const jlong id = isVirtualThread(env, current) ? env->GetLongField(current, ourIdField) : 0;
    env->DeleteLocalRef(current);
    return id;
}

ThreadInfo* getVirtualThreadsInfo() {
    if (ourStandIn == nullptr) {
        ourStandIn = new ThreadInfo("<Virtual threads>", "", 0, nullptr);
    }
    return ourStandIn;
}

void resetVirtualThreads() {
    ourStandIn = nullptr;
}
