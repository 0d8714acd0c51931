// The seam to the operating system, against real processes, threads and segments.
#include "platform/Platform.h"

#include "SharedMemoryKeys.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <pwd.h>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

const long MS = 1000000;
// For what comes soon, or not at all.
const long PATIENCE_NS = 120000 * MS;

bool collectPid(int pid, void* context) {
    static_cast<std::vector<int>*>(context)->push_back(pid);
    return true;
}

bool stopAtFirst(int, void* context) {
    ++*static_cast<int*>(context);
    return false;
}

void collectArgument(const char* argument, void* context) {
    static_cast<std::vector<std::string>*>(context)->push_back(argument);
}

bool contains(const std::vector<int>& pids, int pid) {
    for (int candidate : pids) {
        if (candidate == pid) {
            return true;
        }
    }
    return false;
}

// A child that runs a shell with these arguments until it is ended: the script stops itself.
const char SCRIPT[] = "kill -STOP $$";

class Child {
public:
    explicit Child(const std::vector<const char*>& furtherArguments = {}) {
        std::vector<const char*> arguments = {"sh", "-c", SCRIPT};
        arguments.insert(arguments.end(), furtherArguments.begin(), furtherArguments.end());
        std::vector<char*> copied;
        for (const char* argument : arguments) {
            copied.push_back(const_cast<char*>(argument));
        }
        copied.push_back(nullptr);
        int ready[2];
        EXPECT_EQ(0, pipe2(ready, O_CLOEXEC));
        pid = fork();
        if (pid == 0) {
            execv("/bin/sh", copied.data());
            _exit(127);
        }
        // The pipe closes at exec, so from here on the arguments are the program's.
        close(ready[1]);
        char byte;
        EXPECT_EQ(0, read(ready[0], &byte, 1));
        close(ready[0]);
    }
    ~Child() {
        end();
        reap();
    }
    void end() {
        if (pid > 0) {
            kill(pid, SIGKILL);
        }
    }
    void reap() {
        if (pid > 0) {
            waitpid(pid, nullptr, 0);
            pid = 0;
        }
    }
    int pid;
};

// Burns CPU of the calling thread for about this long by its own clock.
void burn(long ns) {
    const long end = Platform::currentThreadCPUTimeNs() + ns;
    while (Platform::currentThreadCPUTimeNs() < end) {
    }
}

} // namespace

TEST(Platform, listHoldsThisProcessAndItsParent) {
    std::vector<int> pids;
    ASSERT_TRUE(Platform::listProcesses(collectPid, &pids));
    EXPECT_TRUE(contains(pids, getpid()));
    EXPECT_TRUE(contains(pids, getppid()));
    EXPECT_FALSE(contains(pids, 0));
    int visits = 0;
    EXPECT_TRUE(Platform::listProcesses(stopAtFirst, &visits));
    EXPECT_EQ(1, visits) << "the visitor ends it";
}

TEST(Platform, argumentsComeOutOneByOneEmptyAndLongOnesIncluded) {
    const std::string longArgument(100000, 'x');
    Child child({"", "with blank", longArgument.c_str()});
    std::vector<std::string> arguments;
    ASSERT_TRUE(Platform::processArguments(child.pid, collectArgument, &arguments));
    EXPECT_EQ((std::vector<std::string>{"sh", "-c", SCRIPT, "", "with blank", longArgument}),
              arguments);
    arguments.clear();
    EXPECT_FALSE(Platform::processArguments(INT_MAX, collectArgument, &arguments));
    EXPECT_TRUE(arguments.empty());
}

TEST(Platform, zombieIsNotRunningButMayExistUntilItIsReaped) {
    Child child;
    EXPECT_TRUE(Platform::isRunning(child.pid));
    child.end();
    siginfo_t info;
    ASSERT_EQ(0, waitid(P_PID, static_cast<id_t>(child.pid), &info, WEXITED | WNOWAIT));
    EXPECT_FALSE(Platform::isRunning(child.pid));
    EXPECT_TRUE(Platform::mayExist(child.pid));
    const int pid = child.pid;
    child.reap();
    EXPECT_FALSE(Platform::mayExist(pid));
    EXPECT_FALSE(Platform::isRunning(pid));
}

TEST(Platform, idsThatNoProcessHasAreNeitherRunningNorExisting) {
    for (int pid : {0, -1, INT_MIN, INT_MAX}) {
        EXPECT_FALSE(Platform::isRunning(pid)) << pid;
        EXPECT_FALSE(Platform::mayExist(pid)) << pid;
        EXPECT_EQ(0, Platform::processStartTime(pid)) << pid;
    }
}

TEST(Platform, startTimeTellsTwoProcessesApart) {
    Child first;
    // The clock behind it ticks a hundred times a second.
    Platform::sleepMicroseconds(30000);
    Child second;
    const long firstTime = Platform::processStartTime(first.pid);
    EXPECT_GT(firstTime, 0);
    EXPECT_GT(Platform::processStartTime(second.pid), firstTime);
    EXPECT_EQ(firstTime, Platform::processStartTime(first.pid));
}

TEST(Platform, userIsTheOwnerOfTheProcess) {
    EXPECT_EQ(static_cast<long>(geteuid()), Platform::processUser(getpid()));
    EXPECT_EQ(-1, Platform::processUser(INT_MAX));
}

TEST(Platform, homeIsThatOfThePasswordEntryNotOfTheEnvironment) {
    const passwd* const entry = getpwuid(getuid());
    if (entry == nullptr) {
        GTEST_SKIP() << "this user has no password entry";
    }
    const std::string expected = entry->pw_dir;
    setenv("HOME", "/elsewhere", 1);
    char home[PATH_MAX];
    ASSERT_TRUE(Platform::userHome(home, sizeof home));
    EXPECT_EQ(expected, home);
    char tiny[1];
    EXPECT_FALSE(Platform::userHome(tiny, sizeof tiny));
}

// The clock of another thread, read between two moments at which that thread reads it itself.
TEST(Platform, threadClockReadsTheThreadThatIsNamed) {
    long nativeID = 0;
    long before = 0;
    long after = 0;
    pthread_barrier_t barrier;
    pthread_barrier_init(&barrier, nullptr, 2);
    const long monotonicBefore = Platform::monotonicTimeNs();
    const long processBefore = Platform::processCPUTimeNs();
    std::thread busy([&] {
        nativeID = Platform::getCurrentThreadNativeID();
        burn(50 * MS);
        before = Platform::currentThreadCPUTimeNs();
        pthread_barrier_wait(&barrier);
        pthread_barrier_wait(&barrier);
        after = Platform::currentThreadCPUTimeNs();
    });
    pthread_barrier_wait(&barrier);
    const long other = Platform::threadCPUTimeNs(nativeID);
    pthread_barrier_wait(&barrier);
    busy.join();
    pthread_barrier_destroy(&barrier);
    EXPECT_GE(before, 50 * MS);
    EXPECT_GE(other, before);
    EXPECT_LE(other, after);
    EXPECT_GE(Platform::processCPUTimeNs() - processBefore, 45 * MS);
    EXPECT_GE(Platform::monotonicTimeNs() - monotonicBefore, 45 * MS);
}

TEST(Platform, memoryOfThisProcessGrowsWithWhatItTouches) {
    const long before = Platform::processMemory();
    EXPECT_GT(before, 1L << 20);
    const std::string touched(64 << 20, 'x');
    EXPECT_GT(Platform::processMemory(), before + (60L << 20)) << touched.size();
}

TEST(Platform, threadClockOfADeadThreadOrNoThreadIsMinusOne) {
    long nativeID = 0;
    std::thread gone([&] { nativeID = Platform::getCurrentThreadNativeID(); });
    gone.join();
    // The kernel takes the thread down a while after join returns.
    const long end = Platform::monotonicTimeNs() + PATIENCE_NS;
    while (Platform::threadCPUTimeNs(nativeID) != -1 && Platform::monotonicTimeNs() < end) {
        Platform::sleepMicroseconds(1000);
    }
    EXPECT_EQ(-1, Platform::threadCPUTimeNs(nativeID));
    for (long id : {0L, -1L, 1L, static_cast<long>(INT_MAX), LONG_MAX, LONG_MIN}) {
        EXPECT_EQ(-1, Platform::threadCPUTimeNs(id)) << id;
    }
}

TEST(Platform, segmentIsSharedBetweenTwoAttachments) {
    const int key = ownSharedMemoryKey(0);
    Platform::SharedMemoryOutcome outcome;
    EXPECT_EQ(nullptr, Platform::attachExistingSharedMemory(key, sizeof(int)));
    int* first = static_cast<int*>(Platform::attachSharedMemory(key, sizeof(int), &outcome));
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(nullptr, outcome.failedCall);
    int* second = static_cast<int*>(Platform::attachExistingSharedMemory(key, sizeof(int)));
    ASSERT_NE(nullptr, second);
    *first = 4711;
    EXPECT_EQ(4711, *second);
    shmctl(outcome.segment, IPC_RMID, nullptr);
    shmdt(first);
    shmdt(second);
}

TEST(Platform, segmentThatIsTooSmallIsRefusedWithTheReason) {
    const int key = ownSharedMemoryKey(0);
    Platform::SharedMemoryOutcome outcome;
    void* small = Platform::attachSharedMemory(key, 16, &outcome);
    ASSERT_NE(nullptr, small);
    const int segment = outcome.segment;
    EXPECT_EQ(nullptr, Platform::attachSharedMemory(key, 1 << 20, &outcome));
    EXPECT_STREQ("shmget", outcome.failedCall);
    EXPECT_EQ(EINVAL, outcome.error);
    EXPECT_EQ(-1, outcome.segment);
    shmctl(segment, IPC_RMID, nullptr);
    shmdt(small);
}
