#pragma once

#include "core/ground/ZSet.h"
#include "db/IndexPool.h"
#include "db/Records.h"
#include "db/ThreadKeys.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/cpu/TracedStack.h"

#include <jvmti.h>

// The J2EE calls of a thread that are open: entry times and rows of j2ee, outermost first.
struct J2EEStack {
    ZVector<long> j2eeStartTimes;
    ZVector<J2EERecord*> j2eeRecords;

    void forget() {
        j2eeStartTimes.clear();
        j2eeRecords.clear();
    }
};

// ThreadInfo: the agent's state of one thread, reached through JVMTI thread-local storage. It lives
// from the thread's start to its end; the thread's row, and its rows in the result tables, live on
// until the thread is one of the oldest dead ones. Threads that the agent does not know, virtual
// threads among them, have none.
//
// ourLock guards everything but what TracedStack leaves to the thread itself. What an engine keeps
// of a thread is a part of its own that only the engine writes.
class ThreadInfo : public ThreadKeys {
public:
    // Gives the thread its row and its keys. A null group stands for "". threadObject is a global
    // reference that the creator releases. Caller holds ourLock.
    ThreadInfo(const char* name, const char* group, long nativeID, jobject thread);
    ThreadInfo(const ThreadInfo&) = delete;
    ThreadInfo& operator=(const ThreadInfo&) = delete;

    // All with ourLock held.

    // Text of the row's name, "<NULL>" if there is none.
    const char* getThreadName() const;
    bool hasName() const;
    // Brings the name up to date: threads can be renamed. A failing JVMTI call changes nothing.
    void ensureThreadHasName(JNIEnv* env, jthread thread);
    void setName(const char* name);

    // From here on the thread is one of ourAllThreadInfos.
    void onThreadStart();
    // The thread has ended: merges the oldest dead threads beyond the limit away, and now and then
    // collects strings. The caller deletes the object.
    void onThreadEnd();

    // Row of cpuprofiling for this thread in a frame; null for an unknown pair without create.
    CPUProfilingRecord* getCPUProfilingRecord(int frame, bool create);
    // Row of allocinfo for this thread in a frame, made if need be.
    AllocInfoRecord* getAllocInfo(int frame);
    J2EERecord* getJ2EERecord(int nameStrID, int typeID, int frame);
    // Forgets open calls and the last clock reading, and deletes the rows of j2ee.
    void clearCPUAndJ2EEInfo();
    // CPU time of the thread, by its native id, or by the JVM for a thread that began before the
    // agent; 0 when neither can tell. Nanoseconds.
    long readCpuTimeNs() const;

    long nativeThreadID;   // the operating system's id, 0 if unknown
    jobject threadObject;  // global reference, null if none
    int threadRecordIndex; // row of thread
    // What the thread's name tells of it; the thread asks without a lock whenever a traced call
    // begins.
    std::atomic<bool> agentThread;
    std::atomic<bool> calibrationThread;
    // Runs virtual threads. Its calls aren't traced: while it mounts one the JVM holds back whoever
    // asks about threads, which must not wait for ourLock.
    bool carrierThread;
    bool temporaryEnabled; // an agent thread may write rows of probe tables
    const int registry;    // ourRegistry when it was made

    TracedStack traced;   // of tracing
    SampleMemory sampled; // of sampling
    J2EEStack j2ee;       // of J2EE profiling

    static IndexPool& ourIndexForTFIPool; // 0 in a row means merged away, so keys begin at 1
    static int ourRunningNumber;          // of the last thread made
    // Number of the registry that createStandInThreads began: a thread may outlive one in which an
    // attach failed.
    static int ourRegistry;

private:
    void deriveKind(const char* name);
};

extern ZSet<ThreadInfo*>& ourAllThreadInfos;

// Calls visit(info) for every live thread. Caller holds ourLock; no thread may start or end
// meanwhile.
template <typename Visitor>
void eachThreadInfo(Visitor&& visit) {
    for (int slot = 0; slot < ourAllThreadInfos.getCapacity(); slot++) {
        if (ourAllThreadInfos.isFull(slot)) {
            visit(ourAllThreadInfos.keyAt(slot));
        }
    }
}
// Stands for all threads that were merged away.
extern ThreadInfo* ourOldestFinishedThreads;
// Stands for all threads during the start phase of the JVM.
extern ThreadInfo* ourVMStartThread;

// Begins the registry of threads, frames and methods for a new ourDB, and makes the two threads
// that stand for others. Runs once, as a step of making the database.
void createStandInThreads();

// The ThreadInfo of a thread, null standing for the current one. Null for a thread that the agent
// does not know, one in its end, a virtual thread. Takes no lock.
ThreadInfo* getThreadInfoJVMTI(jthread thread);
// The same in the live phase only, without asking for the phase: for walks over all threads.
ThreadInfo* getStoredThreadInfo(jthread thread);
// The current thread's; null outside the start and live phases.
ThreadInfo* getThreadInfo();

// Whether the current thread, if it is one of the agent, may write rows of probe tables.
void setThreadTemporaryEnabled(bool enabled);
