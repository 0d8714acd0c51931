#pragma once

#include "core/ground/Globals.h"
#include "profiling/threads/AllStacks.h"
#include "profiling/threads/ThreadInfo.h"

// ThreadPlaces: a pass over the places where threads stand. The JVM is asked for the stacks of
// those alone whose CPU clocks have moved since it was asked before: the others stand where they
// stood. A thread whose clock cannot be read is always asked.
class ThreadPlaces {
public:
    explicit ThreadPlaces(JNIEnv* jniEnv) : env(jniEnv), stacks(jniEnv) {}
    ~ThreadPlaces();
    ThreadPlaces(const ThreadPlaces&) = delete;
    ThreadPlaces& operator=(const ThreadPlaces&) = delete;

    // Calls visit(info, hasStood) for each thread that is wanted(info), agent threads aside, with
    // ourLock held; its place is in info->sampled.place. Not to be called with ourLock held.
    template <typename Wanted, typename Visit>
    void eachThread(Wanted&& isWanted, Visit&& visit);

private:
    // Caller holds ourLock. True if the thread is where it was; otherwise it is going to be asked.
    bool stands(ThreadInfo* info);
    void set(ThreadInfo* info, const jvmtiStackInfo& stack);

    JNIEnv* env;
    AllStacks stacks;
    ZVector<jthread> moved;
};

// Implementation

template <typename Wanted, typename Visit>
void ThreadPlaces::eachThread(Wanted&& isWanted, Visit&& visit) {
    {
        LockHolder lock(ourLock, "Sampling:80");
        eachThreadInfo([&](ThreadInfo* info) {
            if (!info->agentThread && info->threadObject != nullptr && isWanted(info) &&
                stands(info)) {
                visit(info, true);
            }
        });
    }
    if (!stacks.take(moved)) {
        return;
    }
    stacks.takeMounted();
    LockHolder lock(ourLock, "Sampling:80");
    stacks.eachThread([&](ThreadInfo* info, const jvmtiStackInfo& stack) {
        if (isWanted(info)) {
            set(info, stack);
            visit(info, false);
        }
    });
}
