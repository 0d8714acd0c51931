#pragma once

#include "core/ground/ZString.h"

#include <jvmti.h>

// Starts a daemon thread of the agent's own; by its name, which begins "VDKAgent-", nothing records
// it.
void runAgentThread(JNIEnv* env, const char* name, jvmtiStartFunction body,
                    const void* argument = nullptr);

// Wakes all that were started here, at the end of a stay, and waits for their ends. The names of
// those that have not ended in time; empty if there are none.
ZString awaitAgentThreads(JNIEnv* env, long limitMs);

// The argument of a thread that ends with the agent's stay in the JVM, and whether that is over.
const void* presentStay();
bool isStayOver(const void* stay);
