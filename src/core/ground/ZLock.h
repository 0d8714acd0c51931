#pragma once

#include "core/ground/ZString.h"

#include <atomic>
#include <pthread.h>

// ZLock: a named recursive lock. A thread that holds it may enter it again. There are no timed
// locks and no try-locks.
//
// Lock order, outermost first: "ExceptionSwitchLock", "CallSwitchLock", "SamplersLock",
// "CallbackRedefinitionLock" and "ParksLock" (held over redefinitions and other calls into the JVM
// that may load classes, whose hook takes ourLock; never taken under it), ourLock,
// "ObjectEnumeratorLock", every other ZLock. A lock of the agent is not held while waiting for a
// Java thread.
class ZLock {
public:
    explicit ZLock(const char* lockName);
    ~ZLock();
    ZLock(const ZLock&) = delete;
    ZLock& operator=(const ZLock&) = delete;

    void enterLock();
    void exitLock();
    bool isHeldByCurrentThread() const {
        return held.load(std::memory_order_relaxed) && pthread_equal(owner.load(), pthread_self());
    }
    const ZString& getName() const { return name; }

private:
    pthread_mutex_t mutex;
    ZString name;
    // Only the holder writes these. A thread that does not hold the lock never finds itself here.
    int depth = 0;
    std::atomic<bool> held{false};
    std::atomic<pthread_t> owner{};
};

// LockHolder: holds a ZLock for the length of a block. A text names a well-known place, in the form
// "JVMTI_Agent:315"; it is there for the reader and is not stored.
class LockHolder {
public:
    explicit LockHolder(ZLock& heldLock) : lock(&heldLock) { lock->enterLock(); }
    LockHolder(ZLock& heldLock, const char* /*place*/) : lock(&heldLock) { lock->enterLock(); }
    ~LockHolder() { lock->exitLock(); }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;

private:
    ZLock* lock;
};
