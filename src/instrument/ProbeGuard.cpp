#include "instrument/ProbeGuard.h"

#include "core/jvm/CallbackNatives.h"
#include "core/jvm/JNIUtils.h"

#include <atomic>

namespace {

constexpr int BUCKET_SIZE = 4;
constexpr long BUCKETS = 1024; // a power of two
constexpr long FREE = 0;

struct Place {
    std::atomic<long> thread;
    uintptr_t depth; // of its callback on the stack; that thread alone reads and writes it
};
struct alignas(64) Bucket {
    Place places[BUCKET_SIZE];
};
Bucket ourBuckets[BUCKETS];

jfieldID ourThreadNumber = nullptr;
jclass ourVirtualThreads = nullptr; // null where there are none

// Never FREE.
long numberOf(JNIEnv* env, jobject thread) {
    if (ourThreadNumber != nullptr && thread != nullptr) {
        const long number = env->GetLongField(thread, ourThreadNumber);
        return number == FREE ? -1 : number;
    }
    return static_cast<long>(reinterpret_cast<uintptr_t>(env));
}

Bucket& bucketOf(long number) {
    return ourBuckets[number & (BUCKETS - 1)];
}

// Not asked of a virtual thread: its frames change their places when it is mounted again.
bool isDeeper(JNIEnv* env, jobject thread, uintptr_t depth, uintptr_t entered) {
    return depth < entered ||
           (ourVirtualThreads != nullptr && env->IsInstanceOf(thread, ourVirtualThreads));
}

} // namespace

void prepareProbeGuard(JNIEnv* env) {
    jclass type = findClass(env, "java/lang/Thread");
    ourThreadNumber = env->GetFieldID(type, "tid", "J");
    if (ourThreadNumber == nullptr) {
        env->ExceptionClear(); // another library: told by the carrier
    }
    env->DeleteLocalRef(type);
    jclass virtualThreads = env->FindClass("java/lang/BaseVirtualThread");
    if (virtualThreads == nullptr) {
        env->ExceptionClear();
        return;
    }
    ourVirtualThreads = static_cast<jclass>(env->NewGlobalRef(virtualThreads));
    env->DeleteLocalRef(virtualThreads);
}

// Whether the thread is in a callback already; if not, it is from now on. One that is no deeper in
// its stack than where it entered has left that callback without a word, as a stack that overflows
// at the very end can make it.
jboolean JNICALL VDK_CALLBACK_NATIVE(vdkProbeEnter0)(JNIEnv* env, jclass, jobject thread) {
    const long number = numberOf(env, thread);
    const auto depth = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    Bucket& bucket = bucketOf(number);
    for (Place& place : bucket.places) {
        if (place.thread.load(std::memory_order_relaxed) == number) {
            const bool isNested = isDeeper(env, thread, depth, place.depth);
            place.depth = isNested ? place.depth : depth;
            return isNested ? JNI_TRUE : JNI_FALSE;
        }
    }
    for (Place& place : bucket.places) {
        long expected = FREE;
        if (place.thread.load(std::memory_order_relaxed) == FREE &&
            place.thread.compare_exchange_strong(expected, number, std::memory_order_acquire)) {
            place.depth = depth;
            break;
        }
    }
    return JNI_FALSE;
}

void JNICALL VDK_CALLBACK_NATIVE(vdkProbeExit0)(JNIEnv* env, jclass, jobject thread) {
    const long number = numberOf(env, thread);
    for (Place& place : bucketOf(number).places) {
        if (place.thread.load(std::memory_order_relaxed) == number) {
            place.thread.store(FREE, std::memory_order_release);
            return;
        }
    }
}
