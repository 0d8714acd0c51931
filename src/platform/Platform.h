// The seam to the operating system: everything that differs between Linux and FreeBSD, and the few
// POSIX calls that tests want to replace as a whole. Platform_<system>.cpp implements one side,
// Platform_posix.cpp what both share; the build picks. No other file tests for the system.
//
// Contract for all functions: no exception, no lock, no allocation that outlives the call. What a
// system cannot tell is answered with the neutral value written here. Texts go out through
// callbacks or caller's buffers; they are zero-terminated and at most as long as the buffer.
#pragma once

#include <stddef.h>

class Platform {
public:
    // Returns false to end the walk.
    typedef bool (*ProcessVisitor)(int pid, void* context);
    typedef void (*ArgumentVisitor)(const char* argument, void* context);

    // "Linux" or "FreeBSD", for the log.
    static const char* name();

    // Id of this process.
    static int vdk_getpid();

    // Visits every live process of the machine that this one can see, zombies included. False if
    // the list cannot be had at all; then nothing was visited.
    static bool listProcesses(ProcessVisitor visitor, void* context);

    // True when the process exists and has not ended (a zombie has ended), as far as this process
    // may look.
    static bool isRunning(int pid);

    // True unless the system says for certain that no process has this id: also for processes
    // that listProcesses hides from this user.
    static bool mayExist(int pid);

    // Visits the arguments of a process, the executable first. False, and nothing visited, if they
    // cannot be had: no such process, a kernel thread, another user's process on a closed system.
    static bool processArguments(int pid, ArgumentVisitor visitor, void* context);

    // A number that differs between two processes that had the same id one after the other
    // (Linux: clock ticks since boot, FreeBSD: microseconds since 1970). 0 if unknown.
    static long processStartTime(int pid);

    // Effective user id of a process; -1 if unknown.
    static long processUser(int pid);

    // User who owns the other end of a connected TCP socket, where that is on this machine; -1 if
    // unknown.
    static long peerUser(int socket);

    // Host id as decimal text.
    static void hostID(char* buffer, size_t size);

    // Home directory of the password entry of the real user; of the environment where containers
    // run a user without an entry. False if there is none.
    static bool userHome(char* buffer, size_t size);

    // User plus system time of this process, nanoseconds; -1 on failure.
    static long processCPUTimeNs();

    // Memory of the machine that this process occupies, in bytes; -1 if unknown.
    static long processMemory();

    // The kernel's id of the calling thread: the one that thread clocks are named by.
    static long getCurrentThreadNativeID();

    // CPU time of a thread of this process by its native id, nanoseconds. -1 when the thread is
    // gone or the id was never one.
    static long threadCPUTimeNs(long nativeThreadID);

    // The same for the calling thread, without the cost of naming it.
    static long currentThreadCPUTimeNs();

    // The namespace that this process's id belongs to, as a number that no other of the machine
    // has; 0 where the system has no such namespaces or does not tell. In the initial one a process
    // sees all others.
    static unsigned pidNamespace();
    static const unsigned INITIAL_PID_NAMESPACE = 0xeffffffcu;

    // Monotonic clock, nanoseconds from an arbitrary start; falls back to the wall clock where
    // the system has none.
    static long monotonicTimeNs();

    // Attaches the System V segment of the key, making it with mode 0666 where it does not exist.
    // Null on failure; `outcome` tells what happened in either case.
    struct SharedMemoryOutcome {
        const char* failedCall; // "shmget" or "shmat"; null after success
        int segment;            // segment id; -1 when shmget failed
        int error;              // errno of the failed call
        bool nullAddress;       // shmat gave a null address instead of -1
    };
    static void* attachSharedMemory(int key, size_t size, SharedMemoryOutcome* outcome);

    // Attaches an existing segment only, for reading and writing; null if there is none.
    static void* attachExistingSharedMemory(int key, size_t size);

    // Copies the first bytes of an existing segment, which stays as it is. False if there is none
    // of that size that may be read.
    static bool readSharedMemory(int key, void* buffer, size_t size);

    // Opens `path` the way a process whose root folder is `folder` would: no link on the way leads
    // out of it. The path begins at that root, with or without a slash. -1 and errno on failure.
    static int openInRoot(int folder, const char* path, int flags);

    // Moves the calling thread into the namespace that an open /proc/<pid>/ns/<kind> stands for.
    // False and errno where this may not be done, or the system has no such namespaces.
    static bool enterNamespace(int descriptor);

    // The pages, aligned, of anonymous memory hold nothing of value any more: the system may take
    // them back. They stay mapped; what is in them from now on is undefined until written.
    static void releasePages(void* start, size_t bytes);
    // The pages, aligned, of anonymous memory are going to be written: the system gets them ready
    // where it can do so ahead. What is in them stays; any thread may use them meanwhile.
    static void populatePages(void* start, size_t bytes);

    // What was freed and is kept for later goes back to the system, where the allocator does not
    // see to that by itself. Takes milliseconds, in which other threads may wait for memory.
    static void releaseFreeMemory();

    // Text of an errno value, in English where the system can say it so; in the buffer or constant.
    // Null if there is none.
    static const char* errorText(int error, char* buffer, size_t size);

    // The process that listens on the other end of a connected local socket; 0 if unknown.
    static int peerProcess(int descriptor);

    // Blocks the calling thread for at least this time.
    static void sleepMicroseconds(unsigned microseconds);
};
