#include "profiling/cpu/ThreadPlaces.h"

#include "profiling/cpu/SampledLines.h"
#include "profiling/threads/ZFrameStorage.h"

ThreadPlaces::~ThreadPlaces() {
    for (int i = 0; i < moved.getSize(); i++) {
        env->DeleteLocalRef(moved[i]);
    }
}

bool ThreadPlaces::stands(ThreadInfo* info) {
    ThreadPlace& place = info->sampled.place;
    const long now = info->readCpuTimeNs();
    if (now != 0 && now == place.cpuTimeNs && place.frame != ThreadPlace::UNKNOWN) {
        return true;
    }
    // Before the stack is taken: a thread that runs in between is asked again.
    place.cpuTimeNs = now;
    place.frame = ThreadPlace::UNKNOWN;
    moved.push(static_cast<jthread>(env->NewLocalRef(info->threadObject)));
    return false;
}

void ThreadPlaces::set(ThreadInfo* info, const jvmtiStackInfo& stack) {
    ThreadPlace& place = info->sampled.place;
    place.frame = ourFrameStorage.skipHidden(
        ourFrameStorage.fillCurrentFrameJVMTIFromStackInfo(env, stack, &info->sampled.lastStack));
    place.line = SampledLines::lineOf(env, place.frame, stack.frame_buffer, stack.frame_count);
    place.state = stack.state;
}
