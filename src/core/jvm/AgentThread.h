#pragma once

#include <jvmti.h>

// Starts a daemon thread of the agent's own; by its name, which begins "VDKAgent-", nothing records
// it.
void runAgentThread(JNIEnv* env, const char* name, jvmtiStartFunction body,
                    const void* argument = nullptr);
