#pragma once

// The agent's time base. getTimeNs() is monotonic nanoseconds on a scale that only ever rises, by
// bounded steps, whatever the system clock does. It begins at 0 when the library is loaded.
// No lock: it is the hottest function of tracing and runs on all threads at once.
long getTimeNs();

// Puts a raw clock reading on the ever-growing scale: a step below 2 counts as 1, a step above 60 s
// as 60 s. The first reading ever gives 0. With `shared` a reading less than 60 s behind the last
// one comes from a clock that cannot go back, by a thread that others have overtaken since: it
// counts as the next nanosecond, and so threads that were held up do not push the whole scale
// forward.
long getEverGrowingTimeNs(long raw, bool shared = false);

// CPU clocks, in nanoseconds. No lock either.

// User plus system time of this process; -1 if the system doesn't tell.
long getProcessCPUTimeNs();
// Time of a thread by its native id; 0 for a thread that has ended.
long getThreadCPUTimeNs(long nativeThreadID);
// Of the calling thread, in some ten nanoseconds; see ThreadClock for how true it is.
long getCurrentThreadCPUTimeNs();

// UptimeProvider: time since the JVM's start, on the scale of getTimeNs(). It counts from the load
// of the library until correctUptimeMs is told the JVM's own uptime. Correction happens under
// ourLock; reads take no lock.
class UptimeProvider {
public:
    UptimeProvider();
    long getUptimeNs() const;
    long getUptimeMs() const;
    // Moves the start back so that uptime is etalonMs now. Uptime only moves forward: an etalon
    // below the present uptime is logged and not applied.
    void correctUptimeMs(long etalonMs);

private:
    long startNs;
};

// The one instance. It lives until the process ends.
extern UptimeProvider& ourUptimeProvider;
