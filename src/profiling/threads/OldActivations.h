#pragma once

#include <jvmti.h>

// With the option `ondemand` methods get calls while they run: an activation that began before
// goes on with the code that has none, and will not tell of its end.

// Takes what the JVM needs to tell. Before the first tracing.
void prepareOldActivations();
// Whether this activation of a method that carries calls carries them too. `method` is its row.
bool carriesCalls(jmethodID activation, int method);
