#pragma once

#include "core/ground/ZString.h"

#include <jvmti.h>

class ThreadInfo;
struct SamplerChoice;
struct ThreadPlace;

// WallSampling: sampling of elapsed time in place of CPU time: where threads spend their time,
// waits included. Each pass charges all chosen threads the time since the last pass, whatever they
// do. What they do stands below the frame as one more of a method without class, "[parked]" for
// one, so that trees, lists and exports have it without columns of their own. All methods are
// measured in wall time meanwhile. The rows are those of CPU times, so the two kinds of data are
// not mixed: a start is refused while there is data of the other one.
namespace WallSampling {

// What its methods are measured in wall time by.
extern const char EVERY_METHOD[];

// Why CPU profiling can't be started so now; empty if it can. Takes ourLock.
ZString refuseMixing(const SamplerChoice& choice);

// All with ourLock held.

bool isOn();
void begins(const SamplerChoice& choice); // CPU profiling of some kind
// Whether it is of this thread, too.
bool isChosen(const ThreadInfo* info);
// Charges a sample: the nanoseconds since the last pass.
void charge(ThreadInfo* info, const ThreadPlace& place, long wallDeltaNs);
void ended();
void dataCleared();

} // namespace WallSampling
