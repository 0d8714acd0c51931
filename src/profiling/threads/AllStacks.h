#pragma once

#include "core/ground/ZVector.h"
#include "profiling/threads/ThreadInfo.h"

#include <jni.h>
#include <jvmti.h>

// The local frame keeps references that a JVMTI call leaves behind from piling up in a thread that
// never returns to Java.
class LocalFrame {
public:
    explicit LocalFrame(JNIEnv* jniEnv);
    ~LocalFrame();
    LocalFrame(const LocalFrame&) = delete;
    LocalFrame& operator=(const LocalFrame&) = delete;

private:
    JNIEnv* env; // null without a frame
};

// All stacks of one moment, and whose they are. Frees them, and the references to the threads.
class AllStacks {
public:
    explicit AllStacks(JNIEnv* jniEnv);
    ~AllStacks();
    AllStacks(const AllStacks&) = delete;
    AllStacks& operator=(const AllStacks&) = delete;

    // False outside the live phase, which ends a pass silently, and after an attach that failed
    // when the telemetry thread ran already. Not to be called with ourLock held: asking about
    // another thread waits until no virtual thread is being mounted or unmounted, and one that is
    // may be waiting, in a traced call, for the lock.
    bool take();
    // The same for some threads, whose references stay the caller's. As take.
    bool take(const ZVector<jthread>& threads);
    // From here on carriers are shown with the stacks of the virtual threads that they run. To be
    // called after take, and as that.
    void takeMounted();
    int getCount() const { return count; }
    // Calls visit(info, stack) for every thread that the agent knows and that has not ended since.
    // Caller holds ourLock.
    template <typename Visitor>
    void eachThread(Visitor&& visit) const {
        for (int i = 0; i < infos.getSize(); i++) {
            if (isKnown(i)) {
                const bool isMounted = i < mounted.getSize() && mounted[i] != nullptr;
                visit(infos[i], isMounted ? *mounted[i] : stacks[i]);
            }
        }
    }

private:
    bool use(jvmtiError error);
    // Caller holds ourLock.
    bool isKnown(int i) const {
        // A thread that has begun since may have the memory of one that has ended.
        return infos[i] != nullptr && ourAllThreadInfos.contains(infos[i]) &&
               infos[i]->trn <= lastThread;
    }

    LocalFrame localFrame;
    JNIEnv* env;
    jvmtiStackInfo* stacks;
    jint count;
    int lastThread; // number of the newest thread when the stacks were taken
    // Of all stacks the JVM makes references to the threads; of some it gives those back that it
    // was given, or others, which end with the frame.
    bool hasReferences;
    ZVector<ThreadInfo*> infos;       // one a stack; null for threads that the agent does not know
    ZVector<jvmtiStackInfo*> mounted; // up to the last carrier; null where nothing is mounted
};
