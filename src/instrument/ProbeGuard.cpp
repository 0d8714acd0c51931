#include "instrument/ProbeGuard.h"

#include "core/jvm/CallbackNatives.h"
#include "core/jvm/JNIUtils.h"

#include <atomic>

namespace {

constexpr int BUCKET_SIZE = 8;
constexpr long BUCKETS = 512; // a power of two
constexpr long FREE = 0;

struct alignas(64) Bucket {
    std::atomic<long> threads[BUCKET_SIZE];
};
Bucket ourBuckets[BUCKETS];

jfieldID ourThreadNumber = nullptr;

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

} // namespace

void prepareProbeGuard(JNIEnv* env) {
    jclass type = findClass(env, "java/lang/Thread");
    ourThreadNumber = env->GetFieldID(type, "tid", "J");
    if (ourThreadNumber == nullptr) {
        env->ExceptionClear(); // another library: told by the carrier
    }
    env->DeleteLocalRef(type);
}

// Whether the thread is in a callback already; if not, it is from now on.
jboolean JNICALL VDK_CALLBACK_NATIVE(vdkProbeEnter0)(JNIEnv* env, jclass, jobject thread) {
    const long number = numberOf(env, thread);
    Bucket& bucket = bucketOf(number);
    for (const std::atomic<long>& place : bucket.threads) {
        if (place.load(std::memory_order_relaxed) == number) {
            return JNI_TRUE;
        }
    }
    for (std::atomic<long>& place : bucket.threads) {
        long expected = FREE;
        if (place.load(std::memory_order_relaxed) == FREE &&
            place.compare_exchange_strong(expected, number, std::memory_order_relaxed)) {
            break;
        }
    }
    return JNI_FALSE;
}

void JNICALL VDK_CALLBACK_NATIVE(vdkProbeExit0)(JNIEnv* env, jclass, jobject thread) {
    const long number = numberOf(env, thread);
    for (std::atomic<long>& place : bucketOf(number).threads) {
        if (place.load(std::memory_order_relaxed) == number) {
            place.store(FREE, std::memory_order_relaxed);
            return;
        }
    }
}
