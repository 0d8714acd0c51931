#include "profiling/cpu/Sampling.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/AgentThread.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/cpu/SampledLines.h"
#include "profiling/cpu/SampledTimes.h"
#include "profiling/cpu/Samplers.h"
#include "profiling/cpu/SignalSampling.h"
#include "profiling/cpu/ThreadPlaces.h"
#include "profiling/cpu/WallSampling.h"
#include "profiling/threads/AllStacks.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

#include <climits>
#include <cstdlib>
#include <ctime>

namespace {

constexpr long IDLE_WAIT_MS = 100;
// A reading of 100 s or more means a clock fault or a suspended process, and is dropped.
constexpr long MAX_SAMPLE_NS = 99999999999L;

// Pseudo-random numbers for the spread of the period.
class ZRandom {
public:
    explicit ZRandom(unsigned firstSeed) : seed(firstSeed) {}
    int below(int limit) { return rand_r(&seed) % limit; }

private:
    unsigned seed;
};

long nextWaitMs(ZRandom* random) {
    const int period = ourOptions->samplingPeriod;
    const int delta = ourOptions->samplingDelta;
    if (delta <= 0) {
        return period < 1 ? 1 : period;
    }
    const int spread = delta > INT_MAX / 2 ? INT_MAX : 2 * delta;
    const long wait = static_cast<long>(period) - delta + random->below(spread);
    return wait < 1 ? 1 : wait;
}

void sampleAllThreads(JNIEnv* env, long wallDeltaNs) {
    ThreadPlaces places(env);
    places.eachThread(
        [](const ThreadInfo* info) {
            return isSamplingOn() && (!WallSampling::isOn() || WallSampling::isChosen(info));
        },
        [&](ThreadInfo* info, bool hasStood) {
            const ThreadPlace& place = info->sampled.place;
            if (place.frame <= 0) {
                return;
            }
            if (WallSampling::isOn()) {
                WallSampling::charge(info, place, wallDeltaNs);
            } else if (hasStood) {
                chargeThreadSample(info, place.frame, wallDeltaNs, place.cpuTimeNs, place.line);
            } else {
                chargeThreadSample(info, place.frame, wallDeltaNs, info->readCpuTimeNs(),
                                   place.line);
            }
        });
}

// A wait that the JVM interrupts is as good as one that ran out.
void waitMs(long milliseconds) {
    const jvmtiError error = ourJVMTI->RawMonitorWait(ourJVMTISamplerLock, milliseconds);
    if (error != JVMTI_ERROR_INTERRUPT) {
        CHECK_JVMTI(error);
    }
}

// One wait and one pass. Failures are logged; the sampler goes on.
void samplePeriod(JNIEnv* env, ZRandom* random) {
    if (SignalSampling::isOn()) {
        Samplers::takeSignalSamples(env, nextWaitMs(random));
        return;
    }
    const long start = getTimeNs();
    waitMs(nextWaitMs(random));
    sampleAllThreads(env, getTimeNs() - start);
}

} // namespace

bool isSamplingOn() {
    return (ourStatus & (CPU_COUNTS_BIT | CPU_TIMES_BIT)) == CPU_TIMES_BIT;
}

bool isSampledTime(long cpuNs) {
    return cpuNs >= 1 && cpuNs <= MAX_SAMPLE_NS;
}

void JNICALL sampler_thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void* stay) {
    const bool started = runGuarded(VDK_HERE, [&] {
        Logger::assertTrue(jvmti == ourJVMTI, VDK_HERE);
        Logger::assertNotNULL(ourJVMTISamplerLock, VDK_HERE);
        CHECK_JVMTI(ourJVMTI->RawMonitorEnter(ourJVMTISamplerLock));
    });
    if (!started) {
        return;
    }
    ZRandom random(static_cast<unsigned>(time(nullptr)));
    while (!isStayOver(stay)) {
        bool ok = true;
        while (ok && !isStayOver(stay) && (ourStatus & CPU_TIMES_BIT) != 0) {
            ok = runGuarded(VDK_HERE, [&] { samplePeriod(env, &random); });
        }
        // After a failure this wait keeps a lasting fault from filling the log in no time. When
        // even waiting fails the JVM is ending.
        if (!isStayOver(stay) && !runGuarded(VDK_HERE, [] { waitMs(IDLE_WAIT_MS); })) {
            return;
        }
    }
    runGuarded(VDK_HERE, [] { CHECK_JVMTI(ourJVMTI->RawMonitorExit(ourJVMTISamplerLock)); });
}

void doThreadSample(ThreadInfo* info, int frame, long wallDeltaNs) {
    chargeThreadSample(info, frame, wallDeltaNs, info->readCpuTimeNs());
}

void chargeThreadSample(ThreadInfo* info, int frame, long wallDeltaNs, long cpuTimeNs, int line) {
    const long cpuDelta =
        info->sampled.lastCpuTimeNs == 0 ? 0 : cpuTimeNs - info->sampled.lastCpuTimeNs;
    info->sampled.lastCpuTimeNs = cpuTimeNs;
    const bool isCharged =
        frame != 0 && (getMethodFlags(ourFrameStorage.getMethodIndex(frame)) & METHOD_WAIT) == 0;
    SampledTimes::add(info, cpuDelta, isCharged);
    if (!isCharged) {
        return;
    }
    if (cpuDelta < 1 && frame == info->sampled.idleFrame) {
        return;
    }
    info->sampled.idleFrame = SampleMemory::NO_FRAME;
    const long wallValue = cpuDelta > wallDeltaNs ? cpuDelta : wallDeltaNs;
    long delta = cpuDelta;
    bool inWallTime = false;
    for (int f = frame; f > 0; f = ourFrameStorage.getParent(f)) {
        if ((getMethodFlags(ourFrameStorage.getMethodIndex(f)) & METHOD_WALL_TIME) != 0) {
            info->needsWallTimeCorrection = true;
            delta = wallValue;
            inWallTime = true;
        }
        CPUProfilingRecord* row = info->getCPUProfilingRecord(f, true);
        if (isSampledTime(delta)) {
            row->timeNs += delta;
            row->stamp = ourDB->currentStamp;
            if (f == frame) {
                SampledLines::add(info, frame, line, delta);
            }
        }
    }
    if (!inWallTime) {
        info->sampled.idleFrame = frame;
    }
}

void doThreadStateSample(ThreadInfo* info, int frame, int jvmtiState) {
    const int index = ourDB->threadStateTable->nextIndex();
    ThreadStateRecord* row = ourDB->threadStateTable->getRecord(index, true);
    row->trn = info->trn;
    row->frame = frame < 0 ? 0 : frame;
    row->jvmtiThreadState = jvmtiState;
    row->cpuTimeNs = info->readCpuTimeNs();
    row->stamp = ourDB->currentStamp;
}

void sampleThreadStatesJVMTI(JNIEnv* env, const AllStacks* stacks, int* startIndex, int* count) {
    Logger::assertNotNULL(env, VDK_HERE);
    Logger::assertNotNULL(startIndex, VDK_HERE);
    Logger::assertNotNULL(count, VDK_HERE);
    *startIndex = ourDB->threadStateTable->peekNextIndex();
    *count = 0;
    if (stacks == nullptr) {
        *count = -1;
        return;
    }
    stacks->eachThread([&](ThreadInfo* info, const jvmtiStackInfo& stack) {
        if (!info->hasName()) {
            info->ensureThreadHasName(env, stack.thread);
        }
        if (info->agentThread) {
            return;
        }
        const int frame =
            ourFrameStorage.skipHidden(ourFrameStorage.fillCurrentFrameJVMTIFromStackInfo(
                env, stack, &info->sampled.lastStack));
        doThreadStateSample(info, frame, stack.state);
        ++*count;
    });
}
