#pragma once

#include "core/ground/ZString.h"

#include <jni.h>

// Tells the user something about profiling, through the same door as messages of the agent's Java
// side: the log, and the table of messages that a client shows. The detail may be empty. Runs Java
// code: the caller holds no lock of the agent. Before the Java side is there it only logs.
void userMessage(JNIEnv* env, const char* text, const ZString& detail = ZString());
