#include "core/ground/Globals.h"

std::atomic<long> ourStatus{STACK_TELEMETRY | EXCEPTION_TELEMETRY};
std::atomic<long> ourCapabilities{CAPABILITY_CAN_TRACE | CAPABILITY_CAN_RECORD_ALLOCATIONS |
                                  CAPABILITY_CAN_RECORD_J2EE};

ZLock& ourLock = *new ZLock("ourLock");

std::atomic<bool> ourVMInitCalled{false};
std::atomic<bool> ourVMDeathCalled{false};

bool ourIsIBM = false;
bool ourIsOldIBM = false;
bool ourIsJRockit = false;
bool ourIsJRockitR28 = false;
bool ourIs6u4OrNewer = false;
