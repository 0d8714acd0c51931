#include "profiling/cpu/WallSampling.h"

#include "core/ground/Globals.h"
#include "core/ground/WildcardMatch.h"
#include "db/DB.h"
#include "profiling/cpu/Samplers.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

// A thread that could run and used less than this part of the time waits for a processor, or for
// the system in a native method.
constexpr long LEAST_PART_RUNNING = 10;

// ourLock for all of these.
bool ourIsOn = false;
bool ourHasWallTimes = false; // the data is of elapsed time, or will be
ZString& ourThreadPattern = *new ZString();

bool hasData() {
    bool found = false;
    ourDB->cpuProfilingTable->eachRecord([&](int, const CPUProfilingRecord& row) {
        found = found || (row.stamp > 0 && (row.timeNs > 0 || row.count > 0));
    });
    return found;
}

// Packages whose native code waits for files, sockets and the like.
const char* const INPUT_OUTPUT[] = {"java.io.", "java.net.", "java.nio.", "sun.nio."};

bool isOfInputOutput(int method) {
    const MethodRecord* const row = ourDB->methodTable->getRecord(method, false);
    const char* const name =
        row == nullptr ? nullptr : ourDB->stringPool->getText(row->classNameStrID);
    for (const char* package : INPUT_OUTPUT) {
        if (name != nullptr && startsWith(name, package)) {
            return true;
        }
    }
    return false;
}

// What a thread that the JVM calls runnable does.
const char* activityOfRunnable(ThreadInfo* info, int frame, long wallDeltaNs) {
    const long before = info->sampled.lastCpuTimeNs;
    const long now = info->readCpuTimeNs();
    info->sampled.lastCpuTimeNs = now;
    if ((now - before) * LEAST_PART_RUNNING >= wallDeltaNs) {
        return "[running]";
    }
    const int method = ourFrameStorage.getMethodIndex(frame);
    if (isOfInputOutput(method)) {
        return "[io]";
    }
    return (getMethodFlags(method) & METHOD_WAIT) != 0 ? "[waiting]" : "[runnable]";
}

const char* activityOf(ThreadInfo* info, int frame, int jvmtiState, long wallDeltaNs) {
    const struct {
        int state;
        const char* name;
    } states[] = {{JVMTI_THREAD_STATE_BLOCKED_ON_MONITOR_ENTER, "[blocked]"},
                  {JVMTI_THREAD_STATE_PARKED, "[parked]"},
                  {JVMTI_THREAD_STATE_SLEEPING, "[sleeping]"},
                  {JVMTI_THREAD_STATE_WAITING, "[waiting]"}};
    for (const auto& known : states) {
        if ((jvmtiState & known.state) != 0) {
            return known.name;
        }
    }
    return activityOfRunnable(info, frame, wallDeltaNs);
}

} // namespace

const char WallSampling::EVERY_METHOD[] = "*";

ZString WallSampling::refuseMixing(const SamplerChoice& choice) {
    LockHolder lock(ourLock);
    if (ourHasWallTimes == choice.isOfElapsedTime() || !hasData()) {
        return "";
    }
    return ourHasWallTimes
               ? "There are elapsed times of earlier sampling, which CPU times can't be "
                 "added to. They have to be cleared first."
               : "There are CPU times of earlier profiling, which elapsed times can't "
                 "be added to. They have to be cleared first.";
}

bool WallSampling::isOn() {
    return ourIsOn;
}

void WallSampling::begins(const SamplerChoice& choice) {
    ourIsOn = ourHasWallTimes = choice.isOfElapsedTime();
    ourThreadPattern = choice.threadPattern;
}

bool WallSampling::isChosen(const ThreadInfo* info) {
    if (ourThreadPattern.isEmpty()) {
        return true;
    }
    const ThreadRecord* const row = ourDB->threadTable->getRecord(info->threadRecordIndex, false);
    const char* const group =
        row == nullptr ? nullptr : ourDB->stringPool->getText(row->groupStrID);
    return wildcardMatch(ourThreadPattern.c_str(), info->getThreadName()) ||
           (group != nullptr && wildcardMatch(ourThreadPattern.c_str(), group));
}

void WallSampling::charge(ThreadInfo* info, const ThreadPlace& place, long wallDeltaNs) {
    if (!isSampledTime(wallDeltaNs)) {
        return;
    }
    const char* const activity = activityOf(info, place.frame, place.state, wallDeltaNs);
    const int method = ZMethod::getByName("", activity, "");
    for (int f = ourFrameStorage.getChild(place.frame, method); f > 0;
         f = ourFrameStorage.getParent(f)) {
        CPUProfilingRecord* const row = info->getCPUProfilingRecord(f, true);
        row->timeNs += wallDeltaNs;
        row->stamp = ourDB->currentStamp;
    }
}

void WallSampling::ended() {
    ourIsOn = false;
}

void WallSampling::dataCleared() {
    ourHasWallTimes = ourIsOn;
}
