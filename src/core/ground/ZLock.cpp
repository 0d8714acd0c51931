#include "core/ground/ZLock.h"

#include "core/ground/Logger.h"

ZLock::ZLock(const char* lockName) : name(lockName) {
    pthread_mutexattr_t attributes;
    Logger::assertEquals(pthread_mutexattr_init(&attributes), 0, VDK_HERE);
    Logger::assertEquals(pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE), 0,
                         VDK_HERE);
    Logger::assertEquals(pthread_mutex_init(&mutex, &attributes), 0, VDK_HERE);
    pthread_mutexattr_destroy(&attributes);
}

ZLock::~ZLock() {
    pthread_mutex_destroy(&mutex);
}

void ZLock::enterLock() {
    Logger::assertEquals(pthread_mutex_lock(&mutex), 0, VDK_HERE);
    if (depth++ == 0) {
        owner.store(pthread_self(), std::memory_order_relaxed);
        held.store(true, std::memory_order_relaxed);
    }
}

void ZLock::exitLock() {
    // A failure is a lock left by a thread that does not hold it. LockHolder's destructor calls
    // this, so it must not throw; the result says nothing that could still be repaired.
    if (isHeldByCurrentThread() && --depth == 0) {
        held.store(false, std::memory_order_relaxed);
        owner.store(pthread_t(), std::memory_order_relaxed);
    }
    pthread_mutex_unlock(&mutex);
}
