#include "profiling/cpu/Tracing.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/Options.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/KeptCalls.h"
#include "db/DB.h"
#include "db/SnapshotCommon.h"
#include "probes/Filter.h"
#include "profiling/UserMessage.h"
#include "profiling/cpu/J2EEHelper.h"
#include "profiling/cpu/SampledLines.h"
#include "profiling/cpu/SampledTimes.h"
#include "profiling/cpu/TracedStack.h"
#include "profiling/cpu/WallSampling.h"
#include "profiling/threads/ThreadInfo.h"

#include <atomic>

TracingSwitch ourTracingSwitch;

namespace {

std::atomic<long> ourCalibration{0};

// What the last start of CPU profiling used, calibration's aside.
struct UsedSettings {
    ZString filters;
    ZString wallTimeSpec;
    bool containsInvocations = false;
};
UsedSettings& ourUsedSettings = *new UsedSettings();

long ourCPUStarts = 0; // ourLock

const char ALREADY_STARTED[] = "CPU sampling or CPU tracing already started";

ZString textOrFile(const ZString* text, ZString (*readFile)(const ZString&), const ZString& path) {
    return text == nullptr ? readFile(path) : *text;
}

} // namespace

long getCalibration() {
    return ourCalibration;
}

void setCalibration(long costNs) {
    ourCalibration = costNs;
}

long getTimeDeltaNs(long end, long start, long calls, int /*place*/) {
    long delta = end - start;
    const long cost = ourCalibration;
    if (calls > 0 && cost > 0) {
        delta -= calls * cost;
    }
    return delta < 0 ? 0 : delta;
}

ZString refuseCPUProfiling(long mode) {
    if (ourIsAway) {
        return AWAY_REFUSAL;
    }
    if ((mode & CPU_COUNTS_BIT) != 0 && (ourCapabilities & CAPABILITY_CAN_TRACE) == 0) {
        return "Tracing was explicitly disabled for this application on its startup";
    }
    if ((mode & CPU_J2EE_BIT) != 0 && (ourCapabilities & CAPABILITY_CAN_RECORD_J2EE) == 0) {
        return "J2EE profiling was explicitly disabled for this application on its startup";
    }
    if ((mode & CPU_COUNTS_BIT) != 0) {
        return ourTracingSwitch.redefineCallback == nullptr ? VDK_MISSING_TEXT("CPU tracing") : "";
    }
    return "";
}

namespace {

void checkMode(long mode) {
    if ((mode & CPU_TIMES_BIT) == 0) {
        Logger::error("(mode & ProfilingModes::CPU_TIMES_BIT) != 0", "CoreNatives", 283);
    }
    if ((mode & ~CPU_PROFILING) != 0) {
        Logger::error("(mode & ~ProfilingModes::CPU_PROFILING) == 0", "CoreNatives", 284);
    }
}

// Sets the bits and filters of a mode. The number of this start, 0 if a mode is active already.
long enterCPUMode(long mode, const ZString& filters, const ZString& wallTimeSpec,
                  const SamplerChoice& sampler) {
    LockHolder lock(ourLock, "CoreNatives:275");
    if (ourIsAway || (ourStatus & CPU_TIMES_BIT) != 0) {
        return 0;
    }
    checkMode(mode);
    Filter::reloadFilters(filters, wallTimeSpec);
    eachThreadInfo([](ThreadInfo* info) { info->sampled.forgetLastSample(); });
    ourStatus |= mode;
    WallSampling::begins(sampler);
    ourContainsInvocations = (ourStatus & CPU_COUNTS_BIT) != 0;
    if (ourCalibration != -1) {
        ourUsedSettings.filters = filters;
        ourUsedSettings.wallTimeSpec = wallTimeSpec;
        ourUsedSettings.containsInvocations = ourContainsInvocations;
    }
    return ++ourCPUStarts;
}

} // namespace

long countCPUStarts() {
    return ourCPUStarts;
}

TakenCalls::TakenCalls(JNIEnv* javaEnv, int takenFor, ZString* filters)
    : env(javaEnv), recording(ourTracingSwitch.takeCalls == nullptr ? 0 : takenFor) {
    if (recording != 0) {
        ourTracingSwitch.takeCalls(env, recording, filters);
    }
}

TakenCalls::~TakenCalls() {
    if (recording != 0) {
        runGuarded(VDK_HERE, [&] { ourTracingSwitch.giveCalls(env, recording); });
    }
}

namespace {

// Starts a mode of ProfilingModesExt bits without a word. The number of the start, 0 if one runs
// already; a mode without times or with foreign bits is an internal error.
long startMode(JNIEnv* env, long mode, const ZString* filters, const ZString* wallTimeSpec,
               const SamplerChoice& sampler, ZString* usedFilters, ZString* usedWallTimeSpec) {
    if ((mode & CPU_J2EE_BIT) != 0) {
        J2EEHelper::prepare(env);
    }
    *usedFilters = textOrFile(filters, Filter::readFilterSpecFromFile, ourOptions->filters);
    *usedWallTimeSpec =
        textOrFile(wallTimeSpec, Filter::readWallTimeSpecFromFile, ourOptions->wallTimeSpec);
    const bool tracing = (mode & CPU_COUNTS_BIT) != 0;
    const bool isFree = (ourStatus & CPU_TIMES_BIT) == 0;
    if (tracing && ourOptions->keepFiltered) {
        KeptCalls::prepare(env); // ahead of the filters, which tell it the methods
    }
    TakenCalls calls(env, tracing && isFree ? RECORDING_TRACES : 0, usedFilters);
    const long start = enterCPUMode(mode, *usedFilters, *usedWallTimeSpec, sampler);
    if (start == 0) {
        return 0;
    }
    calls.keep();
    updateExceptionEvents();
    if (tracing) {
        // Redefinition runs inside the JVM for long and comes back through the class load hook, so
        // the lock is not held.
        ourTracingSwitch.redefineCallback(env);
        ClassNameFilter filter(*usedFilters);
        ourTracingSwitch.retransformLoadedClasses(env, &filter);
    }
    return start;
}

// Nobody hears of their ends any more.
void forgetOpenEvents() {
    eachThreadInfo([](ThreadInfo* info) { info->j2ee.forget(); });
    J2EEHelper::forgetVirtualEvents();
}

} // namespace

void stopCPUProfilingImpl(JNIEnv* env, bool log) {
    bool tracing;
    Samplers::end(env);
    {
        LockHolder lock(ourLock);
        if ((ourStatus & CPU_TIMES_BIT) == 0) {
            return;
        }
        tracing = (ourStatus & CPU_COUNTS_BIT) != 0;
        if (tracing) {
            eachThreadInfo([](ThreadInfo* info) {
                dropStackTrace(info, false);
                info->traced.cache.clear();
            });
        }
        forgetOpenEvents();
        WallSampling::ended();
        ourStatus &= ~CPU_PROFILING;
    }
    updateExceptionEvents();
    if (tracing) {
        ourTracingSwitch.redefineCallback(env);
        if (ourTracingSwitch.giveCalls != nullptr) {
            ourTracingSwitch.giveCalls(env, RECORDING_TRACES);
        }
    }
    if (log) {
        userMessage(env, tracing ? "CPU tracing stopped" : "CPU sampling stopped");
    }
}

namespace {

// What calibration recorded and set goes; all that was recorded of the application stays.
void forgetCalibration(ThreadInfo* calibrating) {
    calibrating->clearCPUAndJ2EEInfo();
    ourDB->threadFrameIndex->deleteTimes(calibrating->tfiThreadIndex);
    Filter::reloadFilters(ourUsedSettings.filters, ourUsedSettings.wallTimeSpec);
    ourContainsInvocations = ourUsedSettings.containsInvocations;
}

} // namespace

void clearCPUDataImpl(JNIEnv* env, bool log) {
    {
        LockHolder lock(ourLock);
        ThreadInfo* const current = getThreadInfo();
        if (current != nullptr && current->calibrationThread) {
            forgetCalibration(current);
            return;
        }
        eachThreadInfo([](ThreadInfo* info) { info->clearCPUAndJ2EEInfo(); });
        ourOldestFinishedThreads->clearCPUAndJ2EEInfo();
        J2EEHelper::forgetVirtualEvents();
        ourDB->clearTableAndTellReaders(SLOT_CPUProfiling);
        ourDB->clearTableAndTellReaders(SLOT_J2EE);
        SampledTimes::clear();
        SampledLines::clear();
        WallSampling::dataCleared();
    }
    if (log) {
        userMessage(env, "CPU profiling data cleared");
    }
}

namespace {

// Measures the cost of a traced call, once for a process. Without a result times stay as they are.
void calibrate(JNIEnv* env) {
    jmethodID method = env->GetStaticMethodID(ourClassCoreGlobalRef, "calibrate", "()V");
    if (method != nullptr) {
        env->CallStaticVoidMethod(ourClassCoreGlobalRef, method);
    }
    logPendingException(env, "calibration");
}

// False for a start that is going to be refused: nothing is calibrated for it.
bool isStartable(long mode) {
    return (ourStatus & CPU_TIMES_BIT) == 0 && (mode & CPU_TIMES_BIT) != 0 &&
           (mode & ~CPU_PROFILING) == 0;
}

} // namespace

void calibrateOnce(JNIEnv* env) {
    if (getCalibration() == 0 && isStartable(CPU_TRACING)) {
        calibrate(env);
    }
}

void startCalibrating(JNIEnv* env) {
    setCalibration(-1);
    const ZString filters = "*\n+com.vandrik.runtime.Calibration";
    const ZString wallTime;
    ZString usedFilters;
    ZString usedWallTime;
    bool started = false;
    const bool tried = runGuarded(VDK_HERE, [&] {
        started = startMode(env, CPU_TRACING, &filters, &wallTime, SamplerChoice(), &usedFilters,
                            &usedWallTime) != 0;
    });
    if (!tried) {
        // It may have been begun; whoever runs already makes it return false instead.
        stopCPUProfilingImpl(env, false);
        throw VDKRuntimeException();
    }
    if (!started) {
        throwException(env, ALREADY_STARTED);
    }
}

ZString startCPUProfiling(JNIEnv* env, long mode, const ZString* filters,
                          const ZString* wallTimeSpec, const SamplerChoice& sampler) {
    const ZString refusal = refuseCPUProfiling(mode);
    if (!refusal.isEmpty()) {
        return refusal;
    }
    const ZString mixing = isStartable(mode) ? WallSampling::refuseMixing(sampler) : ZString();
    if (!mixing.isEmpty()) {
        return mixing;
    }
    const bool tracing = (mode & CPU_COUNTS_BIT) != 0;
    if (tracing && getCalibration() == 0 && isStartable(mode)) {
        calibrate(env);
    }
    const ZString everyMethod = WallSampling::EVERY_METHOD;
    ZString filterText;
    ZString wallTimeText;
    const long start =
        startMode(env, mode, filters, sampler.isOfElapsedTime() ? &everyMethod : wallTimeSpec,
                  sampler, &filterText, &wallTimeText);
    if (start == 0) {
        const char* failure = tracing ? "Cannot start CPU tracing" : "Cannot start CPU sampling";
        userMessage(env, failure, ALREADY_STARTED);
        return ZString(failure) + ": " + ALREADY_STARTED;
    }
    const ZString unable = tracing ? ZString() : Samplers::begin(env, sampler, start);
    if (!unable.isEmpty()) {
        return unable;
    }
    ZString detail;
    if (tracing) {
        detail = ZString("Filters:\n\n") + filterText + "\n";
    }
    detail.append(ZString("Wall time specification:\n\n") + wallTimeText);
    userMessage(env, tracing ? "CPU tracing started" : "CPU sampling started", detail);
    return "";
}
