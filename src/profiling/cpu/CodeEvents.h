#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// CodeEvents: what a walk out of a signal handler needs the JVM to do ahead: handles of all
// methods, which the walk cannot make, and news of compiled code. Costs something only while it
// runs.
namespace CodeEvents {

// Empty, or why it can't be done. Not to be called with ourLock held.
ZString start(JNIEnv* env);
// To be called when no handler looks at code any more.
void stop();

} // namespace CodeEvents
