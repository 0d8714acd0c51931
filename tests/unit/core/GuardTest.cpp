#include "core/ground/Guard.h"

#include "LogLines.h"
#include "core/ground/Globals.h"
#include "core/ground/ZLock.h"

#include <gtest/gtest.h>
#include <new>
#include <thread>

TEST(Guard, letsNoExceptionOutAndNamesThePlace) {
    ourStatus &= ~INTERNAL_ERROR_BIT;
    takeLog();
    EXPECT_TRUE(runGuarded("Sampling", 80, [] {}));
    EXPECT_EQ(takeLog(), "");
    EXPECT_EQ(ourStatus & INTERNAL_ERROR_BIT, 0);
    EXPECT_FALSE(runGuarded("Sampling", 80, [] { Logger::error("broken", "DB", 7); }));
    EXPECT_EQ(takeLog(), "error at DB:7: broken\nexception caught at Sampling:80\n");
    EXPECT_EQ(ourStatus & INTERNAL_ERROR_BIT, INTERNAL_ERROR_BIT);
    EXPECT_FALSE(runGuarded("A", 1, [] { throw LowDiskSpaceException(); }));
    EXPECT_FALSE(runGuarded("A", 1, [] { throw std::bad_alloc(); }));
    EXPECT_FALSE(runGuarded("A", 1, [] { throw 42; }));
}

TEST(Guard, assertionsSayWhatTheySaw) {
    const struct {
        void (*fail)();
        const char* text;
    } cases[] = {
        {[] { Logger::assertTrue(false, "F", 1); }, ""},
        {[] { Logger::assertNotNULL(nullptr, "F", 1); }, ": value is NULL"},
        {[] { Logger::assertEquals(3, 4, "F", 1); }, ": value=3 expected=4"},
        {[] { Logger::assertNotEquals(5, 5, "F", 1); }, ": unexpected value 5"},
        {[] { Logger::assertEquals2(1, 2, 3, "F", 1); }, ": value=1, expected 2 or 3"},
    };
    takeLog();
    for (const auto& each : cases) {
        EXPECT_THROW(each.fail(), VDKRuntimeException);
        EXPECT_EQ(takeLog(), std::string("error at F:1: assertion failed") + each.text + "\n");
    }
    EXPECT_NO_THROW(Logger::assertEquals2(3, 2, 3, "F", 6));
}

TEST(Guard, lockIsLeftWhenABlockUnwinds) {
    ZLock lock("test");
    EXPECT_FALSE(runGuarded("A", 1, [&] {
        LockHolder outer(lock, "A:1");
        LockHolder inner(lock, "A:2");
        Logger::assertTrue(false, "A", 3);
    }));
    // Hangs if the lock is still held.
    std::thread([&] { LockHolder holder(lock, "B:1"); }).join();
}
