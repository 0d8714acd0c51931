#include "core/ground/UptimeProvider.h"

#include "LogLines.h"

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

constexpr long SECOND = 1000000000L;
constexpr long MS = 1000000L;

long nanoseconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count();
}

TEST(EverGrowingTime, stepsAreBoundedAndNeverNegative) {
    const struct {
        long rawStep, expected;
    } cases[] = {{2, 2},
                 {1, 1},
                 {0, 1},
                 {-SECOND, 1},
                 {5 * SECOND, 5 * SECOND},
                 {120 * SECOND, 60 * SECOND},
                 {60 * SECOND, 60 * SECOND},
                 {-90 * SECOND, 1},
                 {1000, 1000}};
    long raw = 1L << 60;
    long last = getEverGrowingTimeNs(raw);
    for (const auto& each : cases) {
        raw += each.rawStep;
        const long now = getEverGrowingTimeNs(raw);
        EXPECT_EQ(now - last, each.expected) << each.rawStep;
        last = now;
    }
}

TEST(EverGrowingTime, readingThatOthersHaveOvertakenDoesNotPushTheScale) {
    const long raw = 1L << 61;
    const long start = getEverGrowingTimeNs(raw, true);
    EXPECT_EQ(getEverGrowingTimeNs(raw + 5 * SECOND, true) - start, 5 * SECOND);
    // Read five seconds ago, by a thread that was held up since.
    EXPECT_EQ(getEverGrowingTimeNs(raw, true) - start, 5 * SECOND + 1);
    EXPECT_EQ(getEverGrowingTimeNs(raw + 5 * SECOND + 10, true) - start, 5 * SECOND + 10);
}

TEST(TimeNs, risesForEveryCallerOnManyThreads) {
    std::vector<std::thread> threads;
    std::atomic<int> faults{0};
    const auto outerStart = std::chrono::steady_clock::now();
    const long start = getTimeNs();
    const auto innerStart = std::chrono::steady_clock::now();
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([&faults] {
            long last = getTimeNs();
            for (int i = 0; i < 200000; i++) {
                const long now = getTimeNs();
                faults += now <= last;
                last = now;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(faults, 0);
    // Contention must not push the scale: what it says lies between two spans of the wall clock,
    // the one inside its own and the one around it.
    const auto innerEnd = std::chrono::steady_clock::now();
    const long measured = getTimeNs() - start;
    const auto outerEnd = std::chrono::steady_clock::now();
    EXPECT_GE(measured, nanoseconds(innerEnd - innerStart) * 0.95);
    EXPECT_LE(measured, nanoseconds(outerEnd - outerStart) * 1.05);
}

TEST(UptimeProvider, isCorrectedForwardOnly) {
    takeLog();
    UptimeProvider uptime;
    const long start = getTimeNs();
    uptime.correctUptimeMs(5000);
    EXPECT_GE(uptime.getUptimeMs(), 5000);
    const long corrected = uptime.getUptimeNs();
    EXPECT_LE(corrected, 5001 * MS + getTimeNs() - start);
    EXPECT_EQ(takeLog().rfind("Correcting uptime: etalon=5000ms diff=", 0), 0u);
    const long before = uptime.getUptimeMs();
    uptime.correctUptimeMs(10);
    EXPECT_NE(takeLog().find("diff=-"), std::string::npos);
    EXPECT_GE(uptime.getUptimeMs(), before);
}

} // namespace
