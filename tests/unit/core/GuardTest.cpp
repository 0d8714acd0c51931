#include "core/ground/Guard.h"

#include "core/ground/Globals.h"
#include "core/ground/ZLock.h"

#include <gtest/gtest.h>
#include <new>
#include <string>
#include <thread>

namespace {

std::string logged;
void keep(const char* line) {
    logged += line;
    logged += "\n";
}

class Guarded : public testing::Test {
protected:
    void SetUp() override {
        logged.clear();
        Logger::setSink(keep);
        ourStatus &= ~INTERNAL_ERROR_BIT;
    }
    void TearDown() override { Logger::setSink(nullptr); }
};

TEST_F(Guarded, letsNoExceptionOutAndNamesThePlace) {
    EXPECT_TRUE(runGuarded("Sampling", 80, [] {}));
    EXPECT_EQ(logged, "");
    EXPECT_EQ(ourStatus & INTERNAL_ERROR_BIT, 0);
    EXPECT_FALSE(runGuarded("Sampling", 80, [] { Logger::error("broken", "DB", 7); }));
    EXPECT_EQ(logged, "error at DB:7: broken\nexception caught at Sampling:80\n");
    EXPECT_EQ(ourStatus & INTERNAL_ERROR_BIT, INTERNAL_ERROR_BIT);
    EXPECT_FALSE(runGuarded("A", 1, [] { throw LowDiskSpaceException(); }));
    EXPECT_FALSE(runGuarded("A", 1, [] { throw std::bad_alloc(); }));
    EXPECT_FALSE(runGuarded("A", 1, [] { throw 42; }));
}

TEST_F(Guarded, assertionsSayWhatTheySaw) {
    const struct {
        void (*fail)();
        const char* text;
    } cases[] = {
        {[] { Logger::assertTrue(false, "F", 1); }, "error at F:1: assertion failed\n"},
        {[] { Logger::assertNotNULL(nullptr, "F", 2); },
         "error at F:2: assertion failed: value is NULL\n"},
        {[] { Logger::assertEquals(3, 4, "F", 3); },
         "error at F:3: assertion failed: value=3 expected=4\n"},
        {[] { Logger::assertNotEquals(5, 5, "F", 4); },
         "error at F:4: assertion failed: unexpected value 5\n"},
        {[] { Logger::assertEquals2(1, 2, 3, "F", 5); },
         "error at F:5: assertion failed: value=1, expected 2 or 3\n"},
    };
    for (const auto& each : cases) {
        logged.clear();
        EXPECT_THROW(each.fail(), VDKRuntimeException);
        EXPECT_EQ(logged, each.text);
    }
    EXPECT_NO_THROW(Logger::assertEquals2(3, 2, 3, "F", 6));
}

TEST_F(Guarded, lockIsLeftWhenABlockUnwinds) {
    ZLock lock("test");
    EXPECT_FALSE(runGuarded("A", 1, [&] {
        LockHolder outer(lock, "A:1");
        LockHolder inner(lock, "A:2");
        Logger::assertTrue(false, "A", 3);
    }));
    bool entered = false;
    std::thread other([&] {
        LockHolder holder(lock, "B:1");
        entered = true;
    });
    other.join();
    EXPECT_TRUE(entered);
}

} // namespace
