#pragma once

#include "core/ground/ZVector.h"
#include "profiling/cpu/InterruptedStack.h"

#include <jvmti.h>

class ThreadInfo;
struct SampledThread;

// SampleCharges: from the stack that a signal found to rows of cpuprofiling. Caller holds ourLock.
namespace SampleCharges {

// Whether the JVM can be asked for the stack of a thread that it could not walk: one inside the JVM
// stands still in its Java frames.
bool canAsk(const InterruptedStack& stack);
// Charges a sample. asked, if not null, are the frames that the JVM told afterwards, innermost
// first.
void charge(JNIEnv* env, SampledThread* sampled, const InterruptedStack& stack,
            const ZVector<jvmtiFrameInfo>* asked);
// Charges what a thread used since its last sample, of which there will be no more.
void chargeRest(ThreadInfo* info, long cpuTimeNs, long mostForLastFrame);

} // namespace SampleCharges
