#pragma once

// InterProcessMutex: a lock between processes, made of one int in a System V segment: the process
// id of the owner, 0 if free. An owner that has died is replaced after one polling round. The
// segment is writable by everybody on the machine, so a wait for it is bounded: whoever protects a
// resource with it must be able to go on, with less comfort, when the lock can't be had.
// Not recursive.
class InterProcessMutex {
public:
    // Attaches the segment, making it where it does not exist.
    explicit InterProcessMutex(int key);
    InterProcessMutex(const InterProcessMutex&) = delete;
    InterProcessMutex& operator=(const InterProcessMutex&) = delete;

    // False when the segment can't be had; then lock and unlock fail their assertion.
    bool isValid() const { return owner != nullptr; }

    // Waits until this process owns the lock, at most about limitMs. False when a living process
    // still holds it then. After a wait in vain no lock is waited for during the next minute.
    bool lock(int limitMs = DEFAULT_LIMIT_MS);

    void unlock();

    static const int DEFAULT_LIMIT_MS = 2000;

    // Keys of the locks; each process that takes part uses the same.
    static const int MARKER_KEY = 0x42341491;
    static const int ARCHIVE_KEY = 0x42341492;

private:
    int* owner;
};

// Holds an InterProcessMutex for the length of a block, if it can be had in time. Anybody may write
// a living process's id into the words: after one wait in vain this process waits for no lock more
// than one polling round, so that its start is delayed once and not at each lock.
class InterProcessLock {
public:
    explicit InterProcessLock(InterProcessMutex& sharedMutex);
    ~InterProcessLock() {
        if (held) {
            mutex.unlock();
        }
    }
    InterProcessLock(const InterProcessLock&) = delete;
    InterProcessLock& operator=(const InterProcessLock&) = delete;
    bool isHeld() const { return held; }

private:
    InterProcessMutex& mutex;
    bool held;
};
