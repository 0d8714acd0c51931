#pragma once

class ThreadInfo;

// SampledTimes: beside the time that sampling charges to stacks, the CPU time that the threads used
// while they were sampled. The two differ by what passed unseen: a sample that meets a thread in a
// wait drops the time since the one before, and what a thread does after its last sample ends with
// it. A user table "Sampled CPU" holds the sums, one row a thread; those of threads that ended long
// ago are added to the row of ourOldestFinishedThreads. All functions: caller holds ourLock.
namespace SampledTimes {

// CPU time that a sample found, charged to the thread's stack or not. Bad readings count nothing.
void add(ThreadInfo* info, long cpuNs, bool charged);

// The first sample of a thread that begins while sampling is on charges what it used since: to be
// called on that thread.
void threadStarts(ThreadInfo* info);
// Takes the rest of the current thread's time, which no sample sees any more.
void threadEnds(ThreadInfo* info);

// Deletes all sums; called with the data that they belong to.
void clear();
// Forgets the table, for a new ourDB.
void reset();

} // namespace SampledTimes
