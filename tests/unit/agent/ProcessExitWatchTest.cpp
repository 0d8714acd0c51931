// Ends of real child processes.
#include "core/entry/ProcessExitWatch.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

int startChild() {
    const int pid = fork();
    if (pid == 0) {
        for (;;) {
            pause();
        }
    }
    return pid;
}

} // namespace

TEST(ProcessExitWatch, rowIsGivenOnceAfterTheEnd) {
    const int first = startChild();
    const int second = startChild();
    ASSERT_TRUE(ProcessExitWatch::add(first, 11));
    ASSERT_TRUE(ProcessExitWatch::add(second, 22));
    ZVector<int> rows;
    ProcessExitWatch::takeExited(&rows);
    EXPECT_EQ(0, rows.getSize());
    kill(second, SIGKILL);
    siginfo_t info;
    // Not reaped yet: that is the JVM's to do.
    waitid(P_PID, static_cast<id_t>(second), &info, WEXITED | WNOWAIT);
    ProcessExitWatch::takeExited(&rows);
    ASSERT_EQ(1, rows.getSize());
    EXPECT_EQ(22, rows[0]);
    waitpid(second, nullptr, 0);
    kill(first, SIGKILL);
    waitpid(first, nullptr, 0);
    ProcessExitWatch::takeExited(&rows);
    ASSERT_EQ(2, rows.getSize());
    EXPECT_EQ(11, rows[1]);
}

TEST(ProcessExitWatch, processThatIsNotThereIsRefused) {
    EXPECT_FALSE(ProcessExitWatch::add(0, 1));
    EXPECT_FALSE(ProcessExitWatch::add(-5, 1));
    EXPECT_FALSE(ProcessExitWatch::add(0x7fffffff, 1));
}
