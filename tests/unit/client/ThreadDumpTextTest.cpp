#include "client/agent/ThreadDumpText.h"

#include <gtest/gtest.h>

using namespace vdk;

TEST(ThreadDumpText, threadsFramesLocksAndDeadlocksAreRead) {
    ThreadDump dump = parseThreadDump(
        "Full thread dump OpenJDK 64-Bit Server VM (17.0.15+6: x):\n\n"
        "\"http \"1\" id=9 daemon\" daemon prio=5 id=17 BLOCKED\n"
        "\tat com.shop.Cart.add(Cart.java:12)\n"
        "\t- waiting to lock <0x1f> (a com.shop.Cart) owned by \"main\" id=1\n"
        "\tat app//com.shop.Web.<init>(Native Method)\n"
        "\t- locked <0x2a> (a java.lang.Object)\n"
        "\n\tLocked synchronizers:\n\t- <0x3b> (a java.util.concurrent.locks.ReentrantLock)\n\n"
        "\"two\nlines\" id=18 NEW\n\n"
        "Found a deadlock of 2 threads:\n\t\"main\" id=1\n\t\t"
        "waiting to lock <0x1f> (a com.shop.Cart) owned by \"http\" id=17\n\t\"http\" id=17\n");
    EXPECT_EQ(dump.jvm, "OpenJDK 64-Bit Server VM (17.0.15+6: x)");
    ASSERT_EQ(dump.threads.size(), 2u);
    const DumpedThread& first = dump.threads[0];
    EXPECT_EQ(first.name, "http \"1\" id=9 daemon");
    EXPECT_TRUE(first.daemon);
    EXPECT_EQ(first.priority, 5);
    EXPECT_EQ(first.id, 17);
    EXPECT_EQ(first.state, "BLOCKED");
    ASSERT_EQ(first.frames.size(), 2u);
    EXPECT_EQ(first.frames[0].method, "com.shop.Cart.add");
    EXPECT_EQ(first.frames[0].source, "Cart.java:12");
    EXPECT_EQ(first.frames[0].locks,
              std::vector<std::string>(
                  {"waiting to lock <0x1f> (a com.shop.Cart) owned by \"main\" id=1"}));
    EXPECT_EQ(first.frames[1].method, "app//com.shop.Web.<init>");
    EXPECT_EQ(first.ownedLocks.size(), 1u);
    EXPECT_EQ(dump.threads[1].name, "two\nlines");
    EXPECT_EQ(dump.threads[1].id, 18);
    EXPECT_FALSE(dump.threads[1].daemon);
    EXPECT_EQ(dump.deadlocked, std::vector<int64_t>({1, 17}));
}

TEST(ThreadDumpText, textsOfNoDumpGiveNothing) {
    for (const char* text : {"", "\n", "\tat a.b(c)", "\"", "\"open\n\tat x.y(z)", "\t- note"}) {
        EXPECT_TRUE(parseThreadDump(text).threads.empty()) << text;
    }
}
