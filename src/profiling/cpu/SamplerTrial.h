#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// SamplerTrial: whether signals can be used for sampling in this JVM.
namespace SamplerTrial {

// Of Java: 8, 17.
int getRelease();
// Why not, by what is known of JVMs; empty if nothing is.
ZString refuseJvm();
// Lets the current thread spin in Java code under a timer until a signal has brought a stack that
// the JVM could walk. Empty, or why that did not happen. Takes some milliseconds.
ZString run(JNIEnv* env);

} // namespace SamplerTrial
