#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "core/ground/Logger.h"
#include "core/ground/UptimeProvider.h"

namespace {

constexpr long SECOND = 1000000000L;

std::string lastLine;

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

TEST(TimeNs, risesForEveryCallerOnManyThreads) {
    std::vector<std::thread> threads;
    std::atomic<int> faults{0};
    const auto wallStart = std::chrono::steady_clock::now();
    const long start = getTimeNs();
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
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count();
    const double measured = static_cast<double>(getTimeNs() - start) / 1e9;
    EXPECT_NEAR(measured / wall, 1.0, 0.05) << "contention must not push the scale";
}

TEST(UptimeProvider, isCorrectedForwardOnly) {
    Logger::setSink([](const char* line) { lastLine = line; });
    UptimeProvider uptime;
    uptime.correctUptimeMs(5000);
    EXPECT_GE(uptime.getUptimeMs(), 5000);
    EXPECT_LT(uptime.getUptimeMs(), 10000);
    EXPECT_EQ(lastLine.rfind("Correcting uptime: etalon=5000ms diff=", 0), 0u) << lastLine;
    const long before = uptime.getUptimeMs();
    uptime.correctUptimeMs(10);
    EXPECT_NE(lastLine.find("diff=-"), std::string::npos);
    EXPECT_GE(uptime.getUptimeMs(), before);
    Logger::setSink(nullptr);
}

} // namespace
