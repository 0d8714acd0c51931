// The calling thread's CPU time, read in user space where the system allows it: some ten
// nanoseconds instead of a system call. For what reads it twice a call.
#pragma once

class ThreadClock {
public:
    // Nanoseconds since the thread's start; 0 if the system does not tell. Never goes back on a
    // thread. May be ahead of Platform::currentThreadCPUTimeNs by what a hypervisor took of the
    // last RENEWAL_NS, and behind it by what an interrupt took. No lock; not from signal handlers.
    static long readNs();

    // Whether it is read in user space, found out once by a trial of a millisecond. Gives it
    // up for good where the clock turns out to run ahead too far.
    static bool isInUserSpace();

    static const long RENEWAL_NS = 10000000;
};
