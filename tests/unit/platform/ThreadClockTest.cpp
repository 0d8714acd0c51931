// The clock in user space beside the system's own, on threads that work, sleep and give way.
#include "platform/ThreadClock.h"

#include "platform/Platform.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <time.h>
#include <vector>

namespace {

const long MS = 1000000;
// What an interrupt between two readings may take, and what a hypervisor may.
const long BEHIND_NS = 5 * MS;
const long AHEAD_NS = 50 * MS;

struct Tally {
    long readings = 0;
    long backward = 0;
    long behind = 0;
    long ahead = 0;
};

Tally compare(int kind, long ms) {
    Tally tally;
    long last = 0;
    const long end = Platform::monotonicTimeNs() + ms * MS;
    while (Platform::monotonicTimeNs() < end) {
        for (int i = 0; i < 1000; i++) {
            ThreadClock::readNs();
        }
        const long before = Platform::currentThreadCPUTimeNs();
        const long read = ThreadClock::readNs();
        const long after = Platform::currentThreadCPUTimeNs();
        tally.readings++;
        tally.backward += read < last ? 1 : 0;
        tally.behind += read < before - BEHIND_NS ? 1 : 0;
        tally.ahead += read > after + AHEAD_NS ? 1 : 0;
        last = read;
        if (kind % 3 == 1) {
            std::this_thread::yield();
        } else if (kind % 3 == 2) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return tally;
}

} // namespace

TEST(ThreadClock, readsWhatTheSystemSaysWhileThreadsTakeTheCoresFromEachOther) {
    std::vector<std::thread> threads;
    std::vector<Tally> tallies(6);
    for (int i = 0; i < 6; i++) {
        threads.emplace_back([&tallies, i] { tallies[i] = compare(i, 1500); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const Tally& tally : tallies) {
        EXPECT_GT(tally.readings, 0);
        EXPECT_EQ(tally.backward, 0);
        EXPECT_EQ(tally.behind, 0);
        // More than a hypervisor takes in a second would be a clock that runs on while others do.
        EXPECT_LE(tally.ahead, tally.readings / 20);
    }
}

TEST(ThreadClock, standsStillWhileItsThreadSleeps) {
    const long before = ThreadClock::readNs();
    for (int i = 0; i < 20; i++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ThreadClock::readNs();
    }
    EXPECT_LT(ThreadClock::readNs() - before, 100 * MS);
}

// In a thread of which nothing was read yet, so that there is no moment to count from.
TEST(ThreadClock, firstReadingOfAThreadIsItsOwnTime) {
    long first = 0;
    std::thread([&first] { first = ThreadClock::readNs(); }).join();
    EXPECT_GT(first, 0);
    EXPECT_LT(first, 1000 * MS);
}
