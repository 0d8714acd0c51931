#include "profiling/cpu/Samplers.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "db/DB.h"
#include "platform/ThreadTimers.h"
#include "profiling/UserMessage.h"
#include "profiling/cpu/InterruptedStack.h"
#include "profiling/cpu/SampledThreads.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/cpu/SignalSampling.h"
#include "profiling/cpu/Tracing.h"

namespace {

// Held while the sampler changes, so that starts and stops by clients, by triggers and by the
// sampler thread do not meet halfway. Never taken under ourLock.
ZLock& ourSamplersLock = *new ZLock("SamplersLock");

// Who samples: "signal", "elapsed", "walk", or "walk: " and why signals were not possible. Without
// it, the stack walker.
const char SAMPLER_PROPERTY[] = "vdk.sampling.sampler";
const char WALK[] = "walk";
// Since the last start by signals: samples that found no place, threads without a timer.
const char LOST_PROPERTY[] = "vdk.sampling.lost";
const char REFUSED_PROPERTY[] = "vdk.sampling.refused.timers";

const struct {
    const char* name;
    SamplerChoice::Who who;
} NAMES[] = {{WALK, SamplerChoice::WALK},
             {"signal", SamplerChoice::SIGNAL},
             {"wall", SamplerChoice::ELAPSED_TIME}};

// Caller holds ourLock.
void tell(const ZString& text) {
    static ZString& told = *new ZString(WALK);
    if (told != text) {
        told = text;
        ourDB->setProperty(SAMPLER_PROPERTY, ourDB->stringPool->getDBIndex(text.c_str(), true));
    }
}

void tellCount(const char* property, int* told, int count) {
    if (*told != count) {
        *told = count;
        ourDB->setProperty(property, count);
    }
}

// Caller holds ourLock.
bool isCurrent(long start) {
    return isSamplingOn() && countCPUStarts() == start;
}

bool areSignalsWanted(const SamplerChoice& choice) {
    return choice.who == SamplerChoice::SIGNAL ||
           (choice.who == SamplerChoice::OF_OPTIONS && ourOptions->signalSampler);
}

void undo(JNIEnv* env, long start) {
    {
        LockHolder lock(ourLock);
        if (!isCurrent(start)) {
            return;
        }
    }
    stopCPUProfilingImpl(env, false);
}

void fallBack(JNIEnv* env, const ZString& reason) {
    {
        LockHolder lock(ourLock);
        tell(ZString(WALK) + ": " + reason);
    }
    userMessage(env, "Sampling by signals is not possible; the stack walker samples", reason);
}

// Under the lock of samplers: one who stopped sampling by signals meanwhile was right.
bool giveUpSignals(JNIEnv* env) {
    LockHolder switching(ourSamplersLock);
    if (!SignalSampling::isOn() || ThreadTimers::holdsSignal()) {
        return false;
    }
    SignalSampling::stop(env);
    return true;
}

} // namespace

bool SamplerChoice::setByName(const ZString& name) {
    for (const auto& known : NAMES) {
        if (name == known.name) {
            who = known.who;
            return true;
        }
    }
    return false;
}

ZString Samplers::begin(JNIEnv* env, const SamplerChoice& choice, long start) {
    ZString refusal;
    {
        LockHolder switching(ourSamplersLock);
        {
            LockHolder lock(ourLock);
            if (!isCurrent(start)) {
                return "";
            }
            tell(choice.isOfElapsedTime() ? "elapsed" : WALK);
        }
        if (areSignalsWanted(choice)) {
            refusal = SignalSampling::start(env);
        }
        if (SignalSampling::isOn()) {
            LockHolder lock(ourLock);
            tell("signal");
        }
    }
    if (refusal.isEmpty()) {
        return "";
    }
    if (choice.who == SamplerChoice::SIGNAL) {
        undo(env, start);
        return ZString("Sampling by signals is not possible: ") + refusal;
    }
    fallBack(env, refusal);
    return "";
}

void Samplers::end(JNIEnv* env) {
    LockHolder switching(ourSamplersLock);
    SignalSampling::stop(env);
    tellLosses();
}

void Samplers::takeSignalSamples(JNIEnv* env, long waitMs) {
    SignalSampling::takeSamples(env, waitMs);
    tellLosses();
    if (!ThreadTimers::holdsSignal()) {
        const long signal = ThreadTimers::signalNumber();
        if (giveUpSignals(env)) {
            fallBack(env, ZString("another library took signal ") + longToString(signal) +
                              " while it was in use");
        }
    }
}

void Samplers::tellLosses() {
    static int toldLost = 0;
    static int toldRefused = 0;
    LockHolder lock(ourLock);
    tellCount(LOST_PROPERTY, &toldLost, static_cast<int>(InterruptedStacks::getLost()));
    tellCount(REFUSED_PROPERTY, &toldRefused, SampledThreads::getRefused());
}
