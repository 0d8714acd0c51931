#pragma once

#include "core/ground/ZSet.h"

#include <jvmti.h>

class ThreadInfo;

// SampledLines: which lines of the source the time of samples was spent in, with the option
// `samplelines`. A user table "Sampled Lines" has a row for each thread, frame and line of the
// frame's method, with a part of what the frame itself was charged; what is missing to the whole
// was spent in lines that nobody knows: natives, classes without line numbers, leaves of stacks
// that could not be walked. All functions: caller holds ourLock.
namespace SampledLines {

// The line in which a frame's method stood, by the stack that the frame was made from, innermost
// call first. 0 if it is not known, or nobody wants to know.
int lineOf(JNIEnv* env, int frame, const jvmtiFrameInfo* stack, int depth);

// Time that was charged to the frame itself. Nothing happens for line 0.
void add(ThreadInfo* info, int frame, int line, long timeNs);

void threadEnds(ThreadInfo* info);
// Adds the rows of these ended threads to those of ourOldestFinishedThreads.
void mergeThreads(const ZSet<int>& trns);
// Deletes all rows; called with the data that they belong to.
void clear();
// Forgets the table, for a new ourDB.
void reset();

} // namespace SampledLines
