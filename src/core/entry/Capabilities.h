#pragma once

#include <jvmti.h>

// Asks the main environment for what the agent needs. Missing capabilities are logged; a missing
// optional one is left out and its bit in ourCapabilities set, a missing required one stays in the
// request, so that the JVM's own error code tells the user. Returns the result of AddCapabilities.
jvmtiError requestCapabilities(jvmtiEnv* environment);
