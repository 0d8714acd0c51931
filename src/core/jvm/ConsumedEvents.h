#pragma once

#include <atomic>
#include <jvmti.h>

// Handlers of events that cost something while they are enabled. The ability that consumes one
// sets its handler here before the agent is loaded; an event without a handler is neither
// registered nor enabled.
struct ConsumedEvents {
    jvmtiEventClassFileLoadHook classFileLoadHook = nullptr;
    jvmtiEventException exception = nullptr;
    jvmtiEventExceptionCatch exceptionCatch = nullptr;
    jvmtiEventObjectFree objectFree = nullptr;
    jvmtiEventVMObjectAlloc vmObjectAlloc = nullptr;
    jvmtiEventSampledObjectAlloc sampledObjectAlloc = nullptr;
    jvmtiEventMonitorWait monitorWait = nullptr;
    jvmtiEventMonitorWaited monitorWaited = nullptr;
    jvmtiEventMonitorContendedEnter monitorContendedEnter = nullptr;
    jvmtiEventMonitorContendedEntered monitorContendedEntered = nullptr;
};

extern ConsumedEvents ourConsumedEvents;

// Whether somebody wants exceptions counted by class, beside what the status asks for.
extern std::atomic<bool> ourCountsExceptionsByClass;

// Each enables or disables its events as the present state asks: a handler is there, the JVM can
// send them, and what is on consumes them. To be called when one of these changes, without ourLock:
// the JVM may have to wait until no virtual thread is being mounted.
//
// Both exception events serve exception telemetry, the first one counts by class as well, that of
// the catch tracing and J2EE events too.
void updateExceptionEvents();
void updateMonitorEvents();

// For a new environment, in which no event is enabled.
void forgetConsumedEvents();
