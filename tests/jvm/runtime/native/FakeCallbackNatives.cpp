// A body for each native of Callback that does nothing, so that the runtime classes run in a JVM
// without the agent. HarnessNatives.cpp replaces those that tests look at.
#include "core/jvm/CallbackNatives.h"

#define FAKE_BODY(name, signature, type, parameters)                                               \
    __attribute__((weak)) type JNICALL Java_com_vandrik_runtime_Callback_##name parameters {       \
        return type();                                                                             \
    }
#define FAKE_MISSING(name, signature, type, parameters, ability)                                   \
    FAKE_BODY(name, signature, type, parameters)

#pragma GCC diagnostic ignored "-Wunused-parameter"

VDK_CALLBACK_NATIVES(FAKE_BODY, FAKE_MISSING)
