// The lock between processes, with real processes and keys of the test's own.
#include "machine/InterProcessMutex.h"

#include "DeadProcess.h"
#include "SharedMemoryKeys.h"
#include "core/ground/Exceptions.h"
#include "platform/Platform.h"

#include <climits>
#include <gtest/gtest.h>

namespace {

const long MS = 1000000;

class InterProcessMutexTest : public testing::Test {
protected:
    void SetUp() override {
        key = ownSharedMemoryKey(0);
        Platform::SharedMemoryOutcome outcome;
        word = static_cast<int*>(Platform::attachSharedMemory(key, sizeof(int), &outcome));
        ASSERT_NE(nullptr, word);
        segment = outcome.segment;
    }
    void TearDown() override { shmctl(segment, IPC_RMID, nullptr); }
    int key = 0;
    int segment = -1;
    int* word = nullptr;
};

} // namespace

TEST_F(InterProcessMutexTest, deadOwnerIsReplacedWithinOnePoll) {
    InterProcessMutex mutex(key);
    for (int owner : {deadPid(), -1, INT_MIN, INT_MAX}) {
        *word = owner;
        const long before = Platform::monotonicTimeNs();
        // No time to wait leaves one poll.
        EXPECT_TRUE(mutex.lock(0)) << owner;
        EXPECT_GE(Platform::monotonicTimeNs() - before, 90 * MS) << owner;
        EXPECT_EQ(getpid(), *word);
        mutex.unlock();
    }
}

TEST_F(InterProcessMutexTest, livingOwnerIsWaitedForAndThenGivenUp) {
    InterProcessMutex mutex(key);
    *word = getppid();
    const long before = Platform::monotonicTimeNs();
    EXPECT_FALSE(mutex.lock(250));
    EXPECT_GE(Platform::monotonicTimeNs() - before, 250 * MS);
    EXPECT_EQ(getppid(), *word);
    // Whoever did that once may hold all locks: the next one is not waited for, but a dead owner of
    // it is still replaced.
    EXPECT_FALSE(mutex.lock(3600000));
    *word = deadPid();
    EXPECT_TRUE(mutex.lock(3600000));
    mutex.unlock();
}

TEST_F(InterProcessMutexTest, ownerStandsInTheWordWhileItHoldsTheLock) {
    InterProcessMutex mutex(key);
    {
        InterProcessLock lock(mutex);
        EXPECT_TRUE(lock.isHeld());
        EXPECT_EQ(getpid(), *word);
        EXPECT_FALSE(mutex.lock(150)) << "not recursive";
    }
    EXPECT_EQ(0, *word);
    // Somebody else's word is left alone.
    ASSERT_TRUE(mutex.lock());
    *word = getppid();
    mutex.unlock();
    EXPECT_EQ(getppid(), *word);
}

TEST_F(InterProcessMutexTest, excludesProcessesFromEachOther) {
    // Three children read, wait and write back a counter; without the lock additions get lost.
    Platform::SharedMemoryOutcome outcome;
    int* counter = static_cast<int*>(
        Platform::attachSharedMemory(ownSharedMemoryKey(1), sizeof(int), &outcome));
    ASSERT_NE(nullptr, counter);
    const int counterSegment = outcome.segment;
    const int processes = 3;
    const int rounds = 5;
    for (int i = 0; i < processes; i++) {
        if (fork() == 0) {
            InterProcessMutex mutex(key);
            for (int round = 0; round < rounds; round++) {
                while (!mutex.lock()) {
                }
                const int value = *counter;
                usleep(2000);
                *counter = value + 1;
                mutex.unlock();
                usleep(1000);
            }
            _exit(0);
        }
    }
    for (int i = 0; i < processes; i++) {
        int status = 0;
        wait(&status);
        EXPECT_EQ(0, status);
    }
    EXPECT_EQ(processes * rounds, *counter);
    shmctl(counterSegment, IPC_RMID, nullptr);
}

TEST_F(InterProcessMutexTest, withoutASegmentItIsInvalidAndLockingFailsItsAssertion) {
    // A segment that is too small for the word cannot be had, and neither can one of no key.
    const int privateKey = ownSharedMemoryKey(2);
    const int tiny = shmget(privateKey, 1, IPC_CREAT | 0666);
    ASSERT_NE(-1, tiny);
    InterProcessMutex mutex(privateKey);
    EXPECT_FALSE(mutex.isValid());
    EXPECT_THROW(mutex.lock(), VDKRuntimeException);
    EXPECT_THROW(mutex.unlock(), VDKRuntimeException);
    InterProcessLock lock(mutex);
    EXPECT_FALSE(lock.isHeld());
    shmctl(tiny, IPC_RMID, nullptr);
}
