#pragma once

#include <jvmti.h>

// Registers all handlers on the main environment and enables what is enabled during the load.
void registerEventHandlers(jvmtiEnv* environment);

// Enables the class load hook, once the JVM is initialised. Earlier it costs the JVM its archives:
// some demand that no hook is on at load, and end the JVM.
void enableClassFileLoadHook(jvmtiEnv* environment, JNIEnv* env);

// Enables the object-free event of the environments whose tags serve class unloading and object
// maps. The results of these calls are not checked: without the event only old
// entries stay.
void registerUnloadHandler(jvmtiEnv* environment);
void registerObjectMapHandler(jvmtiEnv* environment);

// What a detach leaves on: the ends of the JVM and of threads that are known, and the class load
// hook where it is kept. registerEventHandlers and registerUnloadHandler bring the rest back.
void disableEvents(bool keepsHook);
