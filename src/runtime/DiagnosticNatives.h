#pragma once

#include <jni.h>

// Binds the natives of com/vandrik/runtime/OOMEDumper. False, perhaps with a Java exception
// pending, means that class and library disagree.
bool registerDiagnosticNatives(JNIEnv* env, jclass oomeDumper);
