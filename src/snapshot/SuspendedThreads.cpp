#include "snapshot/SuspendedThreads.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/SuspendCapability.h"
#include "profiling/threads/ThreadInfo.h"

#include <new>

namespace {

// JRockit takes it for a thread of the application.
const char JROCKIT_GC_THREAD[] = "(GC Main Thread)";

bool isNeverSuspended(jthread thread) {
    if (!ourIsJRockit) {
        return false;
    }
    const ThreadInfo* info = getStoredThreadInfo(thread);
    return info != nullptr && ZString(info->getThreadName()) == JROCKIT_GC_THREAD;
}

} // namespace

SuspendedThreads::SuspendedThreads(JNIEnv* jniEnv) noexcept
    : env(jniEnv), threads(nullptr), results(nullptr), count(0), holdsCapability(false) {
    runGuarded(VDK_HERE, [&] { suspendAll(); });
}

SuspendedThreads::~SuspendedThreads() {
    resume();
}

jint SuspendedThreads::selectOthers(jint all) {
    jthread current = nullptr;
    CHECK_JVMTI(ourJVMTI->GetCurrentThread(&current));
    bool foundCurrent = false;
    jint kept = 0;
    for (jint i = 0; i < all; i++) {
        const bool isCurrent = env->IsSameObject(threads[i], current) == JNI_TRUE;
        foundCurrent = foundCurrent || isCurrent;
        if (isCurrent || isNeverSuspended(threads[i])) {
            env->DeleteLocalRef(threads[i]);
        } else {
            threads[kept++] = threads[i];
        }
    }
    env->DeleteLocalRef(current);
    if (foundCurrent) {
        return kept;
    }
    for (jint i = 0; i < kept; i++) {
        env->DeleteLocalRef(threads[i]);
    }
    return 0;
}

void SuspendedThreads::suspendAll() {
    if (!SuspendCapability::acquire()) {
        return;
    }
    holdsCapability = true;
    jint all = 0;
    CHECK_JVMTI(ourJVMTI->GetAllThreads(&all, &threads));
    announceLocalReferences(env, all);
    const jint others = selectOthers(all);
    if (others == 0) {
        return;
    }
    results = new jvmtiError[static_cast<size_t>(others)];
    for (jint i = 0; i < others; i++) {
        results[i] = JVMTI_ERROR_INTERNAL;
    }
    CHECK_JVMTI(ourJVMTI->SuspendThreadList(others, threads, results));
    // A thread that ended meanwhile, or that somebody else has suspended, is not ours to resume.
    for (jint i = 0; i < others; i++) {
        if (results[i] == JVMTI_ERROR_NONE) {
            threads[count++] = threads[i];
        } else {
            env->DeleteLocalRef(threads[i]);
        }
    }
}

void SuspendedThreads::resume() noexcept {
    if (count > 0) {
        const jvmtiError error = ourJVMTI->ResumeThreadList(count, threads, results);
        for (jint i = 0; i < count; i++) {
            if (error != JVMTI_ERROR_NONE) {
                ourJVMTI->ResumeThread(threads[i]);
            }
            env->DeleteLocalRef(threads[i]);
        }
    }
    count = 0;
    deallocateQuietly(threads);
    threads = nullptr;
    delete[] results;
    results = nullptr;
    if (holdsCapability) {
        holdsCapability = false;
        runGuarded(VDK_HERE, [] { SuspendCapability::release(); });
    }
}
