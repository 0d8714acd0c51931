#pragma once

// CPU clocks, in nanoseconds. They take no lock and call nothing of the JVM.

// User plus system time of this process; -1 if the system doesn't tell.
long getProcessCPUTimeNs();
// Time of a thread by its native id; 0 for a thread that has ended.
long getThreadCPUTimeNs(long nativeThreadID);
long getCurrentThreadCPUTimeNs();
