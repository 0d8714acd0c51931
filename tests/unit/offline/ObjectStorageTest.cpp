#include "offline/ObjectStorage.h"

#include "TestGraph.h"
#include "core/ground/Exceptions.h"
#include "core/ground/Logger.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotWriter.h"
#include "offline/HeapIndexWriter.h"
#include "offline/OIDProcessor.h"
#include "offline/OfflineGlobals.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Remembers the last thing reported.
class LastError : public RowErrors {
public:
    void violated(const char* condition, int a, int b) override {
        text = std::string(condition) + " " + std::to_string(a) + " " + std::to_string(b);
    }
    std::string text;
};

class Quiet : public testing::Test {
protected:
    void SetUp() override {
        Logger::setSink([](const char*) {});
    }
    void TearDown() override { Logger::setSink(nullptr); }
};

typedef Quiet ObjectStorageTest;
typedef Quiet RefTableTest;
typedef Quiet ReachabilityTest;
typedef Quiet OIDProcessorTest;
typedef Quiet OutOfMemory;

} // namespace

TEST_F(ObjectStorageTest, refusesBadRowsAndChangesNothing) {
    ObjectStorage storage(10, false);
    LastError errors;
    for (int bad : {0, -1, 10, 0x7fffffff}) {
        EXPECT_FALSE(storage.createObject(&errors, bad, 1, 2, 24, 3));
        EXPECT_EQ(errors.text, bad <= 0 ? "index > 0 " + std::to_string(bad) + " 0"
                                        : "index < myObjectCount " + std::to_string(bad) + " 10");
        EXPECT_FALSE(storage.createPrimArray(nullptr, bad, 1, 2, 24, 3));
        EXPECT_FALSE(storage.createObjectArray(nullptr, bad, 1, 2, 24, 3));
        EXPECT_FALSE(storage.createClass(nullptr, bad, 1, 2, 3));
    }
    EXPECT_EQ(storage.getReferences().getReferenceCount(), 0);
    EXPECT_EQ(storage.getClassRows().getSize(), 0);
    for (int kind = READ_REFERENCES; kind < READ_KIND_COUNT; kind++) {
        EXPECT_EQ(storage.arrayOfKind(kind)->getAllocatedPages(), 0) << kind;
    }
}

TEST_F(ObjectStorageTest, countsOutOfRangeAreInternalErrors) {
    LastError errors;
    EXPECT_THROW(ObjectStorage(&errors, 0, false), VDKRuntimeException);
    EXPECT_EQ(errors.text, "objectCount > 0 0 0");
    EXPECT_THROW(ObjectStorage(-1, true), VDKRuntimeException);
    EXPECT_THROW(ObjectStorage(0x7fffffff, true), VDKRuntimeException);
    ObjectStorage storage(4, false);
    EXPECT_THROW(storage.createObject(nullptr, 1, 0, 0, 8, -1), VDKRuntimeException);
    EXPECT_THROW(storage.createObject(nullptr, 1, 0, 0, 8, 0x7fffffff), VDKRuntimeException);
    ASSERT_TRUE(storage.createClass(nullptr, 1, 0, 8, 0x7fffffff));
    EXPECT_THROW(storage.createClass(nullptr, 2, 0, 8, 1), VDKRuntimeException);
}

TEST_F(ObjectStorageTest, attributesOfTheDefaultValueTakeNoPage) {
    ObjectStorage storage(10, false);
    storage.createObject(nullptr, 1, 2, 0, 24, 0);
    EXPECT_EQ(storage.arrayOfKind(READ_GENERATIONS)->getAllocatedPages(), 0);
    storage.setGeneration(1, 5);
    storage.setGeneration(1, 0);
    EXPECT_EQ(storage.getGeneration(1), 0);
    EXPECT_EQ(storage.arrayOfKind(READ_ARRAY_LENGTHS)->getAllocatedPages(), 0);
}

TEST_F(ObjectStorageTest, bulkReadChecksKindAndStretch) {
    ObjectStorage storage(3, false);
    const int data[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    EXPECT_FALSE(storage.readArray(13, data, 0, 1));
    EXPECT_FALSE(storage.readArray(-1, data, 0, 1));
    EXPECT_TRUE(storage.readArray(READ_START_COUNT, data, 0, 8));
    EXPECT_THROW(storage.readArray(READ_START_COUNT, data, 0, 9), VDKRuntimeException);
    EXPECT_THROW(storage.readArray(READ_SIZES, data, -1, 1), VDKRuntimeException);
    EXPECT_EQ(storage.arrayOfKind(READ_START_COUNT), nullptr);
    EXPECT_EQ(storage.arrayOfKind(13), nullptr);
}

TEST_F(RefTableTest, listsFollowEachOtherAndKeepTheirPlace) {
    RefTable table("t", 5);
    table.createRefs(3, 2);
    table.createRefs(1, 0);
    table.createRefs(2, 3);
    table.setRef(3, 7, 1);
    table.setRef(2, 8, 0);
    EXPECT_EQ(table.getStart(2), 2);
    EXPECT_EQ(table.getReferenceCount(), 5);
    EXPECT_EQ(table.getRef(3, 0), 0);
    EXPECT_EQ(table.getRef(3, 1), 7);
    EXPECT_EQ(table.getRef(2, 0), 8);
    EXPECT_THROW(table.getRef(3, 2), VDKRuntimeException);
    EXPECT_THROW(table.getRef(1, 0), VDKRuntimeException);
    EXPECT_THROW(table.setRef(3, 1, -1), VDKRuntimeException);
    EXPECT_THROW(table.createRefs(5, 1), VDKRuntimeException);
    EXPECT_THROW(table.createRefs(1, -1), VDKRuntimeException);
}

TEST_F(RefTableTest, soundnessTellsHostileTables) {
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

TEST_F(ReachabilityTest, walksCyclesAndChainsOnceAndRefusesBadObjects) {
    const int count = 200000;
    ObjectStorage storage(count, false);
    for (int row = 1; row < count; row++) {
        storage.createClass(nullptr, row, 0, 1, 1);
        storage.setRef(row, row + 1 < count ? row + 1 : 1, 0);
    }
    std::vector<int> bits(bitFieldWords(count));
    EXPECT_TRUE(markAsVisited(nullptr, storage, 5, bits.data()));
    EXPECT_EQ(sumOfMarkedSizes(storage, bits.data()), count - 1);
    LastError errors;
    EXPECT_FALSE(markAsVisited(&errors, storage, 5, bits.data()));
    EXPECT_EQ(errors.text, "!isMarked(bitField, object) 0 0");
    EXPECT_FALSE(markAsVisited(&errors, storage, 0, bits.data()));
    EXPECT_EQ(errors.text, "object != 0 0 0");
    EXPECT_THROW(markAsVisited(nullptr, storage, count, bits.data()), VDKRuntimeException);
    EXPECT_THROW(markAsVisited(nullptr, storage, -1, bits.data()), VDKRuntimeException);
}

TEST_F(ReachabilityTest, whatAGroupRetainsIsWhatTheRootsMissWithoutIt) {
    for (unsigned seed = 1; seed <= 500; seed++) {
        const TestGraph graph = randomGraph(seed);
        auto storage = graph.toStorage();
        const int rootCount = static_cast<int>(graph.roots.size());
        TestGraph without = graph;
        without.allowed.assign(graph.count, true);
        std::vector<int> reachable(bitFieldWords(graph.count));
        markReachable(nullptr, *storage, graph.roots.data(), rootCount, reachable.data());
        const std::vector<int> group{1, 1 + static_cast<int>(seed) % (graph.count - 1)};
        std::vector<int> groupBits(reachable.size());
        for (int row : group) {
            without.allowed[row] = false;
            setMark(groupBits.data(), row);
        }
        const std::vector<bool> still = without.reachedWithout(0);
        std::vector<int> byList(reachable.size());
        std::vector<int> byBits(reachable.size());
        ASSERT_TRUE(markAllButRetained(nullptr, *storage, nullptr, group.data(), 2,
                                       graph.roots.data(), rootCount, reachable.data(),
                                       byList.data()));
        ASSERT_TRUE(markAllButRetained(nullptr, *storage, groupBits.data(), nullptr, 0,
                                       graph.roots.data(), rootCount, reachable.data(),
                                       byBits.data()));
        EXPECT_EQ(byList, byBits);
        for (int row = 1; row < graph.count; row++) {
            const bool retained =
                isMarked(reachable.data(), row) && !still[row] && !isMarked(groupBits.data(), row);
            ASSERT_EQ(!isMarked(byList.data(), row), retained) << "seed " << seed;
        }
    }
}

TEST_F(ReachabilityTest, referrersAreAscendingAndAsManyAsReferences) {
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
        for (int threads = 1; threads <= 2; threads++) {
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

TEST_F(OIDProcessorTest, rowsAreTheOrderOfTheIds) {
    for (bool wide : {false, true}) {
        OIDProcessor processor(wide, 4);
        const long ids[] = {30, 10, 0x7fffffff, 20};
        processor.processOIDs(ids, 3);
        processor.processOIDs(ids + 3, 1);
        EXPECT_THROW(processor.processOIDs(ids, 1), VDKRuntimeException);
        processor.convertOIDsToIndices();
        EXPECT_EQ(processor.getIndex(10), 1);
        EXPECT_EQ(processor.getIndex(20), 2);
        EXPECT_EQ(processor.getIndex(0x7fffffff), 4);
        EXPECT_EQ(processor.getIndex(15), 0);
        EXPECT_EQ(processor.getIndex(10 + (1L << 40)), 0);
    }
    OIDProcessor narrow(false, 1);
    const long beyond = 1L << 33;
    EXPECT_THROW(narrow.processOIDs(&beyond, 1), VDKRuntimeException);
    EXPECT_THROW(OIDProcessor(true, -1), VDKRuntimeException);
}

// Keep the closing sections byte for byte: tag, version, class rows, empty stretch, twelve arrays.
TEST_F(ObjectStorageTest, snapshotEndsWithTheArraysAndItsExpectedLength) {
    DB db(-1, 20000);
    ObjectStorage storage(3, false);
    storage.createClass(nullptr, 2, 0, 96, 0);
    storage.createObject(nullptr, 1, 2, 0, 24, 0);
    char path[] = "/tmp/vdk-snapshot-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    {
        SnapshotWriter writer(file);
        Progress progress;
        writeHeapSnapshot(db, storage, writer, &progress, 1);
        EXPECT_EQ(writer.getErrorMessage(), nullptr);
        EXPECT_EQ(progress.getLastPercent(), 99);
    }
    close(file);
    EXPECT_EQ(ourIndexFileFullLength, 0);
    std::ifstream stream(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)),
                            std::istreambuf_iterator<char>());
    unlink(path);
    const long indexSize = 1 + 4 + 4 + 4 + 4 + 8 + 12 * 8 + 2 * 4L * 1048578;
    EXPECT_EQ(getHeapIndexSize(storage), indexSize);
    ASSERT_GT(static_cast<long>(bytes.size()), indexSize);
    const std::string closing = bytes.substr(bytes.size() - static_cast<size_t>(indexSize), 33);
    EXPECT_EQ(closing, std::string("\x2c\x0d\0\0\0\0\0\0\0\x01\0\0\0\x02\0\0\0"
                                   "\xff\xff\xff\xff\xff\xff\xff\xff\0\0\0\0\0\0\x10\0",
                                   33));
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

TEST_F(OutOfMemory, endsInAnExceptionAtEveryPoint) {
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
