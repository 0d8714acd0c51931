#pragma once

#include <jni.h>

// The natives of com/vandrik/runtime/Callback as RegisterNatives takes them.
extern const JNINativeMethod ourAgentNativeMethods[];
extern const int ourAgentNativeMethodCount;

// Binds all natives. A refusal means that archive and library disagree: an internal error.
void registerCallbackNatives(JNIEnv* env, jclass callback);
