#include "core/jvm/ConsumedEvents.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"

ConsumedEvents ourConsumedEvents;
std::atomic<bool> ourCountsExceptionsByClass{false};

namespace {

// One that is enabled and disabled while the JVM runs.
struct SwitchedEvent {
    jvmtiEvent event;
    bool isEnabled;
};

// Two switches at once must not leave the older state behind. No handler of an event takes it.
ZLock& ourSwitchLock = *new ZLock("ConsumedEventsLock");
SwitchedEvent ourException = {JVMTI_EVENT_EXCEPTION, false};
SwitchedEvent ourExceptionCatch = {JVMTI_EVENT_EXCEPTION_CATCH, false};
SwitchedEvent ourMonitorEvents[] = {
    {JVMTI_EVENT_MONITOR_CONTENDED_ENTER, false},
    {JVMTI_EVENT_MONITOR_CONTENDED_ENTERED, false},
    {JVMTI_EVENT_MONITOR_WAIT, false},
    {JVMTI_EVENT_MONITOR_WAITED, false},
};

// Caller holds ourSwitchLock.
void update(SwitchedEvent& row, bool isWanted) {
    if (row.isEnabled != isWanted) {
        CHECK_JVMTI(ourJVMTI->SetEventNotificationMode(isWanted ? JVMTI_ENABLE : JVMTI_DISABLE,
                                                       row.event, nullptr));
        row.isEnabled = isWanted;
    }
}

bool isOn(long statusBits) {
    return (ourStatus & statusBits) != 0;
}

} // namespace

void updateExceptionEvents() {
    const bool canCome = (ourCapabilities & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE) == 0;
    if (!canCome || ourJVMTI == nullptr) {
        return;
    }
    LockHolder lock(ourSwitchLock);
    update(ourException, ourConsumedEvents.exception != nullptr &&
                             (isOn(EXCEPTION_TELEMETRY) || ourCountsExceptionsByClass));
    update(ourExceptionCatch, ourConsumedEvents.exceptionCatch != nullptr &&
                                  isOn(EXCEPTION_TELEMETRY | CPU_COUNTS_BIT | CPU_J2EE_BIT));
}

void updateMonitorEvents() {
    if (ourJVMTI == nullptr || ourConsumedEvents.monitorWait == nullptr) {
        return;
    }
    LockHolder lock(ourSwitchLock);
    for (SwitchedEvent& row : ourMonitorEvents) {
        update(row, isOn(MONITORS_BIT));
    }
}

void forgetConsumedEvents() {
    LockHolder lock(ourSwitchLock);
    ourException.isEnabled = false;
    ourExceptionCatch.isEnabled = false;
    for (SwitchedEvent& row : ourMonitorEvents) {
        row.isEnabled = false;
    }
}
