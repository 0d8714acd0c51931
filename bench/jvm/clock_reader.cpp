// Natives of bench.TracedCall: what reading a clock costs, in the process that is measured.
#include <ctime>
#include <jni.h>

// CPU time of the calling thread for `count` readings, in nanoseconds.
extern "C" JNIEXPORT jlong JNICALL Java_bench_TracedCall_readClock(JNIEnv*, jclass, jboolean wall,
                                                                   jint count) {
    const clockid_t clock = wall == JNI_TRUE ? CLOCK_MONOTONIC : CLOCK_THREAD_CPUTIME_ID;
    timespec start;
    timespec end;
    timespec read;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
    for (jint i = 0; i < count; i++) {
        clock_gettime(clock, &read);
    }
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    return (end.tv_sec - start.tv_sec) * 1000000000L + (end.tv_nsec - start.tv_nsec);
}
