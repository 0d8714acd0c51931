#pragma once

#include <atomic>
#include <jvmti.h>

// What the agent holds of the JVM. Set once during start, before anything that reads it runs, and
// never freed.

extern JavaVM* ourVM;

// The main environment: owns the capabilities, the event callbacks, the raw monitor and the native
// method prefix; its tags serve allocation and generations. Non-null means that the agent is
// loaded.
extern jvmtiEnv* ourJVMTI;
extern jvmtiEnv* ourJVMTI2; // retransformation; made on attach only
extern jvmtiEnv* ourJVMTI3; // tags of J2EE frames
extern jvmtiEnv* ourJVMTI4; // tags of class instance statistics
extern jvmtiEnv* ourJVMTI5; // tags of monitor class names
extern jvmtiEnv* ourJVMTI7; // tags of exception class names
extern jvmtiEnv* ourJVMTI8; // tags of loaded classes; has its own object-free callback
extern jvmtiEnv* ourJVMTI9; // tags of object maps; has its own object-free callback

// Objects may have tags of ourJVMTI since these were last taken away.
extern std::atomic<bool> ourHasTaggedObjects;

// "vdk_jvmti_sampler_lock": serves the sampler's timed wait alone.
extern jrawMonitorID ourJVMTISamplerLock;

// com/vandrik/runtime/Core and com/vandrik/runtime/Callback, as global references.
extern jclass ourClassCoreGlobalRef;
extern jclass ourClassCallbackGlobalRef;
