#include "profiling/cpu/SampleCharges.h"

#include "profiling/cpu/SampledLines.h"
#include "profiling/cpu/SampledThreads.h"
#include "profiling/cpu/SampledTimes.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

// Names of the frames that stand for what is not known. Clients know the first.
const char NOT_WALKABLE[] = "[not walkable]";
const char NO_JAVA_FRAMES[] = "[no Java frames]";
const char NO_SAMPLE[] = "[no sample]";

// Codes of AsyncGetCallTrace.
const int NO_JAVA_FRAME = 0;
const int UNKNOWN_JAVA = -5;
const int NOT_WALKABLE_JAVA = -6;
const int THREAD_EXIT = -8;
const int LAST_CODE = -10;

// So far from the top of the stack that it had soon after a leaf may stand.
const int MOST_FRAMES_SINCE = 16;

int specialFrame(const char* name) {
    return ourFrameStorage.getChild(0, ZMethod::getByName("", name, "()"));
}

bool wasInJava(const InterruptedStack& stack) {
    return stack.code == UNKNOWN_JAVA || stack.code == NOT_WALKABLE_JAVA;
}

// What a sample charges: a frame, and the line in it, 0 if that is not known.
struct Place {
    int frame = 0;
    int line = 0;
};

Place placeOf(JNIEnv* env, int frame, const jvmtiFrameInfo* stack, int depth) {
    return {frame, SampledLines::lineOf(env, frame, stack, depth)};
}

int frameOf(JNIEnv* env, ThreadInfo* info, const jvmtiFrameInfo* frames, int count) {
    jvmtiStackInfo stack = {};
    stack.frame_buffer = const_cast<jvmtiFrameInfo*>(frames);
    stack.frame_count = count;
    return ourFrameStorage.skipHidden(
        ourFrameStorage.fillCurrentFrameJVMTIFromStackInfo(env, stack, &info->sampled.lastStack));
}

// The walk sees a carrier's own frames below those of the virtual thread that it runs.
int countMountedFrames(JNIEnv* env, const ZVector<jvmtiFrameInfo>& frames) {
    const int outermost = ZMethod::getByName("jdk.internal.vm.Continuation", "enter",
                                             "(jdk.internal.vm.Continuation, boolean)");
    for (int i = 0; i < frames.getSize(); i++) {
        if (getMethodByID(env, frames[i].method) == outermost) {
            return i + 1;
        }
    }
    return frames.getSize();
}

// Of the walked stack, or of its leaf alone.
Place walkedPlace(JNIEnv* env, ThreadInfo* info, const InterruptedStack& stack) {
    static ZVector<jvmtiFrameInfo>& frames = *new ZVector<jvmtiFrameInfo>();
    frames.clear();
    for (int i = 0; i < stack.frameCount; i++) {
        frames.push({stack.frames[i].method, stack.frames[i].position});
    }
    if (stack.code > 0) {
        const int count = info->carrierThread ? countMountedFrames(env, frames) : frames.getSize();
        return placeOf(env, frameOf(env, info, frames.data(), count), frames.data(), count);
    }
    int frame = specialFrame(NOT_WALKABLE);
    for (int i = stack.frameCount - 1; i >= 0; i--) {
        frame = ourFrameStorage.getChild(frame, getMethodByID(env, frames[i].method));
    }
    return {ourFrameStorage.skipHidden(frame), 0};
}

// Where the stack that the thread had soon after agrees with the leaf: a thread in Java code has
// gone on since. -1 if it does not.
int whereLeafStands(const InterruptedStack& stack, const ZVector<jvmtiFrameInfo>& asked) {
    if (!wasInJava(stack)) {
        return 0;
    }
    if (stack.frameCount == 0) {
        return -1;
    }
    // The outermost of the inlined calls has the frame.
    const jmethodID leaf = stack.frames[stack.frameCount - 1].method;
    for (int i = 0; i < asked.getSize() && i < MOST_FRAMES_SINCE; i++) {
        if (asked[i].method == leaf) {
            return i;
        }
    }
    return -1;
}

Place askedPlace(JNIEnv* env, ThreadInfo* info, const InterruptedStack& stack,
                 const ZVector<jvmtiFrameInfo>& asked) {
    const int from = whereLeafStands(stack, asked);
    if (from < 0 || from >= asked.getSize()) {
        return {};
    }
    const jvmtiFrameInfo* const stackSince = asked.data() + from;
    int frame = frameOf(env, info, stackSince, asked.getSize() - from);
    if (!wasInJava(stack)) {
        return placeOf(env, frame, stackSince, asked.getSize() - from);
    }
    for (int i = stack.frameCount - 2; i >= 0; i--) {
        frame = ourFrameStorage.getChild(frame, getMethodByID(env, stack.frames[i].method));
    }
    return {frame, 0}; // the thread has gone on since
}

// From a wall-time method upward the elapsed time counts, which the walk over those methods adds.
void chargeFrames(ThreadInfo* info, const Place& place, long cpuTimeNs) {
    const long delta = cpuTimeNs - info->sampled.lastCpuTimeNs;
    if (!isSampledTime(delta)) {
        return;
    }
    info->sampled.lastCpuTimeNs = cpuTimeNs;
    SampledTimes::add(info, delta, true);
    for (int f = place.frame; f > 0; f = ourFrameStorage.getParent(f)) {
        if ((getMethodFlags(ourFrameStorage.getMethodIndex(f)) & METHOD_WALL_TIME) != 0) {
            return;
        }
        CPUProfilingRecord* const row = info->getCPUProfilingRecord(f, true);
        row->timeNs += delta;
        row->stamp = ourDB->currentStamp;
        if (f == place.frame) {
            SampledLines::add(info, f, place.line, delta);
        }
    }
}

} // namespace

bool SampleCharges::canAsk(const InterruptedStack& stack) {
    return stack.code < NO_JAVA_FRAME && stack.code >= LAST_CODE && stack.code != THREAD_EXIT;
}

void SampleCharges::charge(JNIEnv* env, SampledThread* sampled, const InterruptedStack& stack,
                           const ZVector<jvmtiFrameInfo>* asked) {
    ThreadInfo* const info = sampled->info;
    SampledThreads::findBounds(sampled, stack.place);
    Place place;
    if (stack.code == NO_JAVA_FRAME) {
        place.frame = specialFrame(NO_JAVA_FRAMES);
    } else if (asked != nullptr) {
        place = askedPlace(env, info, stack, *asked);
    }
    if (place.frame == 0) {
        place = walkedPlace(env, info, stack);
    }
    if (place.frame == 0) {
        return; // a stack of the agent's own frames: the next sample takes the time
    }
    sampled->lastFrame = place.frame;
    sampled->lastLine = place.line;
    chargeFrames(info, place, stack.cpuTimeNs);
}

void SampleCharges::chargeRest(ThreadInfo* info, long cpuTimeNs, long mostForLastFrame) {
    const SampledThread* const sampled = info->sampled.timer;
    const long rest = cpuTimeNs - info->sampled.lastCpuTimeNs;
    const bool isKnown = sampled != nullptr && sampled->lastFrame != 0 && rest <= mostForLastFrame;
    const Place place =
        isKnown ? Place{sampled->lastFrame, sampled->lastLine} : Place{specialFrame(NO_SAMPLE), 0};
    chargeFrames(info, place, cpuTimeNs);
}
