#include "core/jvm/SuspendCapability.h"

#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/jvm/JvmGlobals.h"

namespace {

// Whether acquire took the capability. Guarded by ourLock.
bool ourTaken = false;

jvmtiCapabilities suspendOnly() {
    jvmtiCapabilities capabilities = {};
    capabilities.can_suspend = 1;
    return capabilities;
}

} // namespace

bool SuspendCapability::isTakenOnDemand() {
    return !ourIsIBM && !ourIsJRockit;
}

bool SuspendCapability::acquire() {
    if ((ourCapabilities & CAPABILITY_CANNOT_SUSPEND) != 0 || ourJVMTI == nullptr) {
        return false;
    }
    if (!isTakenOnDemand() || ourTaken) {
        return true;
    }
    const jvmtiCapabilities wanted = suspendOnly();
    const jvmtiError error = ourJVMTI->AddCapabilities(&wanted);
    if (error != JVMTI_ERROR_NONE) {
        ourCapabilities |= CAPABILITY_CANNOT_SUSPEND;
        Logger::message(ZString("can_suspend: not available now, error=") + longToString(error));
        return false;
    }
    ourTaken = true;
    return true;
}

void SuspendCapability::release() {
    if (!ourTaken) {
        return;
    }
    ourTaken = false;
    const jvmtiCapabilities given = suspendOnly();
    const jvmtiError error = ourJVMTI->RelinquishCapabilities(&given);
    if (error != JVMTI_ERROR_NONE) {
        Logger::message(ZString("can_suspend: not given back, error=") + longToString(error));
    }
}
