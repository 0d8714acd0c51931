#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// Samplers: who samples from a start of sampling on, and what clients are told of it.

// What a start of sampling asks for.
struct SamplerChoice {
    enum Who {
        OF_OPTIONS,
        WALK,
        SIGNAL,      // or no sampling at all
        ELAPSED_TIME // by the stack walker: WallSampling
    };

    Who who = OF_OPTIONS;
    ZString threadPattern; // of elapsed times: threads or groups; empty for all

    // By its name in the protocol; false for one that is none.
    bool setByName(const ZString& name);
    bool isOfElapsedTime() const { return who == ELAPSED_TIME; }
};

namespace Samplers {

// Brings in who was chosen, once sampling is on. `start` is the number of that start: one that has
// been stopped since brings in nobody. Where signals cannot be had the stack walker, which needs no
// start, goes on alone: empty, unless it was signals or nothing, in which case why. Runs Java code:
// not to be called with a lock held.
ZString begin(JNIEnv* env, const SamplerChoice& choice, long start);
void end(JNIEnv* env);

// On the sampler thread: a pass of sampling by signals; goes over to the stack walker where that
// has become impossible.
void takeSignalSamples(JNIEnv* env, long waitMs);
// Brings what clients are told of lost samples and refused timers up to date. Takes ourLock.
void tellLosses();

} // namespace Samplers
