#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// OnDemandCalls: with the option `ondemand`, the calls of tracing and of allocations are in the
// classes only while somebody records.
//
// DESCRIPTION
//   The first recording that needs them has the loaded classes retransformed, a batch at a time,
//   the application running on in between; from then on classes get them as they load. Only then
//   the class Callback is switched, so that counting begins at one moment. When the last one has
//   ended, a thread of the agent has the classes retransformed once more, and they carry what
//   they were loaded with. A start meanwhile ends that, and finds either state right.
//
// None may be called with ourLock held. Without the option they do nothing.

// What takeCalls and giveCalls of TracingSwitch are.
void takeRecordingCalls(JNIEnv* env, int recording, ZString* filters);
void giveRecordingCalls(JNIEnv* env, int recording);

// Nobody records any more, nor will: what was prepared is dropped, and a going back that is under
// way ends. For a detach, with ourIsAway set; the classes stay as they are.
void dropRecordingCalls(JNIEnv* env);

// The hook sees a class that is being loaded. Caller holds ourLock.
void noteLoadedWhileCallsCome(const ZString& name);
