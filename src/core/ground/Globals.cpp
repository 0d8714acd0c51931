#include "core/ground/Globals.h"

std::atomic<long> ourStatus{INITIAL_STATUS};
std::atomic<long> ourCapabilities{INITIAL_CAPABILITIES};

ZLock& ourLock = *new ZLock("ourLock");

std::atomic<bool> ourMemoryRanOut{false};
std::atomic<bool> ourVMInitCalled{false};
std::atomic<bool> ourVMDeathCalled{false};
std::atomic<int> ourStay{0};
std::atomic<bool> ourIsAway{false};

bool ourIsIBM = false;
bool ourIsOldIBM = false;
bool ourIsJRockit = false;
bool ourIsJRockitR28 = false;
bool ourIs6u4OrNewer = false;
