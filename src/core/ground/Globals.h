#pragma once

#include "core/ground/ZLock.h"

#include <atomic>

// Process-wide state of the agent that names no JVM type. All of it lives until the process ends.

// Bits of ourStatus: what is running now. Keep in sync with com.vandrik.api.ProfilingModesExt.
constexpr long ALLOCATION_RECORDING_BIT = 0x2;
constexpr long CPU_TIMES_BIT = 0x4;
constexpr long CPU_COUNTS_BIT = 0x8;
constexpr long CPU_J2EE_BIT = 0x20;
constexpr long MONITORS_BIT = 0x80;
constexpr long INTERNAL_ERROR_BIT = 0x100;
constexpr long STACK_TELEMETRY = 0x200;
constexpr long EXCEPTION_TELEMETRY = 0x400;
constexpr long CPU_SAMPLING = CPU_TIMES_BIT;
constexpr long CPU_TRACING = CPU_TIMES_BIT | CPU_COUNTS_BIT;
constexpr long CPU_PROFILING = CPU_TIMES_BIT | CPU_COUNTS_BIT | CPU_J2EE_BIT;

// Bits of ourCapabilities: what may run at all. A clear bit means that the bytecode a feature needs
// is never inserted, so the feature can't be switched on later.
constexpr long CAPABILITY_CAN_TRACE = 0x40;
constexpr long CAPABILITY_CAN_RECORD_ALLOCATIONS = 0x100;
constexpr long CAPABILITY_ATTACHED_AGENT = 0x400;
constexpr long CAPABILITY_CAN_RECORD_J2EE = 0x1000;
constexpr long CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE = 0x4000;
constexpr long CAPABILITY_CANNOT_SUSPEND = 0x8000;
// Probes mask values in SQL and URLs.
constexpr long CAPABILITY_REDACTS = 0x10000;
// Calls are in the classes only while somebody records; for clients.
constexpr long CAPABILITY_ON_DEMAND = 0x80000;

// What a process begins with.
constexpr long INITIAL_STATUS = STACK_TELEMETRY | EXCEPTION_TELEMETRY;
constexpr long INITIAL_CAPABILITIES =
    CAPABILITY_CAN_TRACE | CAPABILITY_CAN_RECORD_ALLOCATIONS | CAPABILITY_CAN_RECORD_J2EE;

// Changed by the natives that own the bits, under ourLock; read by hot paths without it.
extern std::atomic<long> ourStatus;
extern std::atomic<long> ourCapabilities;

// The agent's main lock: guards the database, the per-thread stacks, thread start and end, class
// rewriting, snapshots and fetches. Recursive, because redefinition re-enters the class load hook
// on the same thread. Never destroyed: daemon threads may run to the very end of the process.
extern ZLock& ourLock;

// Lifecycle marks, set once; the second is off while an agent that was away comes back.
extern std::atomic<bool> ourMemoryRanOut;
extern std::atomic<bool> ourVMInitCalled;
extern std::atomic<bool> ourVMDeathCalled;

// Number of the agent's stay in this JVM. It rises where a stay ends, and with it the threads of
// that stay end.
extern std::atomic<int> ourStay;
// From the beginning of a detach until the next attach: no recording begins, no class gets calls.
extern std::atomic<bool> ourIsAway;
// Why a recording cannot begin then.
constexpr char AWAY_REFUSAL[] = "The agent is detached from this JVM";

// What kind of JVM this is, found once before the options are parsed.
extern bool ourIsIBM;
extern bool ourIsOldIBM;
extern bool ourIsJRockit;
extern bool ourIsJRockitR28;
extern bool ourIs6u4OrNewer;
