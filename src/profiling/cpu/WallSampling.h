#pragma once

#include "core/ground/ZString.h"

#include <jvmti.h>

class ThreadInfo;

// WallSampling: sampling of elapsed time in place of CPU time: where threads spend their time,
// waits included. Each pass charges all chosen threads the time since the last pass, whatever they
// do. What they do stands below the frame as one more of a method without class, "[parked]" for
// one, so that trees, lists and exports have it without columns of their own. All methods are
// measured in wall time meanwhile. The rows are those of CPU times, so the two kinds of data are
// not mixed: a start is refused while there is data of the other one.
namespace WallSampling {

// Starts it for the threads whose name or group matches the pattern, as a user asked for it: why it
// was refused, empty if it runs. It ends as CPU sampling does. Null filters come from their file.
// Takes ourLock.
ZString start(JNIEnv* env, const ZString* filters, const ZString& threadPattern);

// Why CPU profiling can't be started now; empty if it can. Takes ourLock.
ZString refuseMixing();

// All with ourLock held.

bool isOn();
void begins(); // CPU profiling of some kind
// Charges a sample: the nanoseconds since the last pass.
void charge(ThreadInfo* info, int frame, int jvmtiState, long wallDeltaNs);
void ended();
void dataCleared();

} // namespace WallSampling
