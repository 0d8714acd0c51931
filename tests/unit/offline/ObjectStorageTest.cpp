#include "offline/ObjectStorage.h"

#include "LogLines.h"
#include "TestGraph.h"
#include "core/ground/Exceptions.h"
#include "offline/OIDProcessor.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

TEST(ObjectStorageTest, countsAndIdsOutOfRangeAreInternalErrors) {
    EXPECT_THROW(ObjectStorage(-1, true), VDKRuntimeException);
    EXPECT_THROW(ObjectStorage(0x7fffffff, true), VDKRuntimeException);
    ObjectStorage storage(4, false);
    ASSERT_TRUE(storage.createClass(nullptr, 1, 0, 8, 0x7fffffff));
    EXPECT_THROW(storage.createClass(nullptr, 2, 0, 8, 1), VDKRuntimeException);
    OIDProcessor narrow(false, 1);
    const long beyond = 1L << 33;
    EXPECT_THROW(narrow.processOIDs(&beyond, 1), VDKRuntimeException);
}

TEST(RefTableTest, soundnessTellsHostileTables) {
    RefTable good("t", 4);
    good.createRefs(1, 2);
    good.setRef(1, 3, 1);
    EXPECT_TRUE(good.isSound(4));
    EXPECT_FALSE(good.isSound(3));
    good.setRef(1, -1, 0);
    EXPECT_FALSE(good.isSound(4));
    RefTable beyond("t", 4);
    beyond.getStartsAndCounts().set(2, 0x7fffffff);
    beyond.getStartsAndCounts().set(3, 1);
    EXPECT_FALSE(beyond.isSound(4));
    EXPECT_THROW(beyond.initReferenceIterator(1), VDKRuntimeException);
    RefTable negative("t", 4);
    negative.getStartsAndCounts().set(3, -5);
    EXPECT_FALSE(negative.isSound(4));
}

TEST(ReachabilityTest, referrersAreAscendingAndAsManyAsReferences) {
    for (unsigned seed = 1; seed <= 500; seed++) {
        const TestGraph graph = randomGraph(seed);
        const std::vector<int> bits = graph.reachableBits();
        std::vector<std::vector<int>> expected(graph.count);
        for (int row = 1; row < graph.count; row++) {
            for (int target : graph.references[row]) {
                if (target != 0 && graph.isAllowed(row)) {
                    expected[target].push_back(row);
                }
            }
        }
        for (int threads = 1; threads <= 3; threads++) {
            auto storage = graph.toStorage();
            std::vector<int> counts(graph.count);
            computeBackwardReferences(*storage, bits.data(), counts.data(), threads);
            EXPECT_EQ(counts, std::vector<int>(graph.count));
            for (int row = 1; row < graph.count; row++) {
                std::vector<int> found;
                auto list = storage->getBackwardReferences()->initReferenceIterator(row);
                while (list.hasNext()) {
                    found.push_back(list.next());
                }
                ASSERT_EQ(found, expected[row]) << "seed " << seed << " row " << row;
            }
        }
    }
}

#ifndef VDK_SANITIZED // a sanitizer needs more address space than any such limit leaves
namespace {

// Analyses a heap in a child process that may take `bytes` more than it has. 0: done, 1: memory ran
// out and nothing else happened.
int analyzeWithin(long bytes, int threads) {
    const pid_t child = fork();
    if (child == 0) {
        std::ifstream statm("/proc/self/statm");
        long pages = 0;
        statm >> pages;
        const rlim_t most = static_cast<rlim_t>(pages * sysconf(_SC_PAGESIZE) + bytes);
        const rlimit limit{most, most};
        setrlimit(RLIMIT_AS, &limit);
        alarm(600); // a hang is a failure, not the end of the run
        try {
            const int count = 200000;
            const int root = 1;
            ObjectStorage storage(count, true);
            for (int row = 1; row < count; row++) {
                storage.createClass(nullptr, row, 0, 16, 3);
                for (int i = 0; i < 3; i++) {
                    storage.setRef(row, (row * (i + 1) + i) % count, i);
                }
            }
            analyzeHeap(storage, &root, 1, nullptr, nullptr, threads);
        } catch (const std::bad_alloc&) {
            _exit(1);
        } catch (...) {
            _exit(2);
        }
        _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

} // namespace

TEST(OutOfMemory, endsInAnExceptionAtEveryPoint) {
    for (int threads = 1; threads <= 2; threads++) {
        int done = 0;
        int failed = 0;
        for (long megabytes = 1; megabytes < 150; megabytes += 3) {
            const int result = analyzeWithin(megabytes << 20, threads);
            ASSERT_TRUE(result == 0 || result == 1) << result << " at " << megabytes;
            done += result == 0;
            failed += result == 1;
        }
        EXPECT_GT(done, 0);
        EXPECT_GT(failed, 5);
    }
}
#endif
