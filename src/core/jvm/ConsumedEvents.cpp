#include "core/jvm/ConsumedEvents.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"

#include <atomic>

ConsumedEvents ourConsumedEvents;

// The exception events are enabled now.
static std::atomic<bool> ourExceptionEventsEnabled{false};

void updateExceptionEvents() {
    const bool canCome = (ourCapabilities & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE) == 0;
    if (!canCome || ourJVMTI == nullptr) {
        return;
    }
    // Exception telemetry will want them too once it records; until then only tracing does, and an
    // event that nothing consumes would make every throw dearer.
    const bool isWanted = (ourStatus & CPU_COUNTS_BIT) != 0;
    if (ourExceptionEventsEnabled.exchange(isWanted) == isWanted) {
        return;
    }
    const jvmtiEventMode mode = isWanted ? JVMTI_ENABLE : JVMTI_DISABLE;
    if (ourConsumedEvents.exception != nullptr) {
        CHECK_JVMTI(ourJVMTI->SetEventNotificationMode(mode, JVMTI_EVENT_EXCEPTION, nullptr));
    }
    if (ourConsumedEvents.exceptionCatch != nullptr) {
        CHECK_JVMTI(ourJVMTI->SetEventNotificationMode(mode, JVMTI_EVENT_EXCEPTION_CATCH, nullptr));
    }
}
