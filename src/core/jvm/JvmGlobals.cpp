#include "core/jvm/JvmGlobals.h"

JavaVM* ourVM = nullptr;
jvmtiEnv* ourJVMTI = nullptr;
jvmtiEnv* ourJVMTI2 = nullptr;
jvmtiEnv* ourJVMTI3 = nullptr;
jvmtiEnv* ourJVMTI4 = nullptr;
jvmtiEnv* ourJVMTI5 = nullptr;
jvmtiEnv* ourJVMTI7 = nullptr;
jvmtiEnv* ourJVMTI8 = nullptr;
jvmtiEnv* ourJVMTI9 = nullptr;
std::atomic<bool> ourHasTaggedObjects{false};
jrawMonitorID ourJVMTISamplerLock = nullptr;
jclass ourClassCoreGlobalRef = nullptr;
jclass ourClassCallbackGlobalRef = nullptr;
