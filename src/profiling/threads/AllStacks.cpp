#include "profiling/threads/AllStacks.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/threads/MountedStack.h"

namespace {
constexpr jint MAX_FRAMES = 10000;
constexpr jint LOCAL_REFERENCES = 64;
} // namespace

LocalFrame::LocalFrame(JNIEnv* jniEnv)
    : env(jniEnv->PushLocalFrame(LOCAL_REFERENCES) == 0 ? jniEnv : nullptr) {
    if (env == nullptr) {
        // Out of memory: the pass works without a frame, but not with an exception pending.
        jniEnv->ExceptionClear();
    }
}

LocalFrame::~LocalFrame() {
    if (env != nullptr) {
        env->PopLocalFrame(nullptr);
    }
}

AllStacks::AllStacks(JNIEnv* jniEnv)
    : localFrame(jniEnv), env(jniEnv), stacks(nullptr), count(0), lastThread(0),
      hasReferences(true) {}

AllStacks::~AllStacks() {
    for (jint i = 0; hasReferences && i < count; i++) {
        env->DeleteLocalRef(stacks[i].thread);
    }
    deallocateQuietly(stacks);
    for (int i = 0; i < mounted.getSize(); i++) {
        deallocateQuietly(mounted[i]);
    }
}

bool AllStacks::take() {
    if (ourJVMTI == nullptr) {
        return false;
    }
    {
        LockHolder lock(ourLock);
        lastThread = ThreadInfo::ourRunningNumber;
    }
    return use(ourJVMTI->GetAllStackTraces(MAX_FRAMES, &stacks, &count));
}

bool AllStacks::take(const ZVector<jthread>& threads) {
    if (ourJVMTI == nullptr || threads.isEmpty()) {
        return false;
    }
    {
        LockHolder lock(ourLock);
        lastThread = ThreadInfo::ourRunningNumber;
    }
    hasReferences = false;
    const jvmtiError error =
        ourJVMTI->GetThreadListStackTraces(threads.getSize(), threads.data(), MAX_FRAMES, &stacks);
    count = error == JVMTI_ERROR_NONE ? threads.getSize() : 0;
    return use(error);
}

bool AllStacks::use(jvmtiError error) {
    if (error == JVMTI_ERROR_WRONG_PHASE) {
        return false;
    }
    CHECK_JVMTI(error);
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        const bool alive = (stacks[i].state & JVMTI_THREAD_STATE_ALIVE) != 0;
        infos.push(alive ? getStoredThreadInfo(stacks[i].thread) : nullptr);
    }
    return true;
}

void AllStacks::takeMounted() {
    if (!canSeeMountedThreads()) {
        return;
    }
    ZVector<int> carriers;
    {
        LockHolder lock(ourLock);
        for (int i = 0; i < infos.getSize(); i++) {
            if (isKnown(i) && infos[i]->carrierThread) {
                carriers.push(i);
            }
        }
    }
    for (int i = 0; i < carriers.getSize(); i++) {
        const int carrier = carriers[i];
        while (mounted.getSize() <= carrier) {
            mounted.push(nullptr);
        }
        mounted[carrier] = takeMountedStack(env, stacks[carrier].thread, MAX_FRAMES);
    }
}
