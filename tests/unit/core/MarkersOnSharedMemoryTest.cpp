// The marker area on keys of the test's own: layout, cut names, dead processes, hostile records.
#include "machine/MarkersOnSharedMemory.h"

#include "SharedMemoryKeys.h"
#include "core/ground/Exceptions.h"
#include "platform/Platform.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const int SLOTS = MarkerArea::RECORD_COUNT;

class MarkersOnSharedMemoryTest : public testing::Test {
protected:
    void SetUp() override {
        areaKey = ownSharedMemoryKey(0);
        mutexKey = ownSharedMemoryKey(1);
        markers = std::make_unique<MarkersOnSharedMemory>(areaKey, mutexKey);
        ASSERT_TRUE(markers->isAttached());
    }
    void TearDown() override {
        shmctl(shmget(areaKey, 1, 0), IPC_RMID, nullptr);
        shmctl(shmget(mutexKey, 1, 0), IPC_RMID, nullptr);
    }
    MarkerRecord& slot(int index) { return markers->getArea()->records[index]; }
    void fill(int index, int pid, int port, int state) {
        slot(index).pid = pid;
        slot(index).port = port;
        slot(index).state = state;
    }
    int deadPid() {
        const int pid = fork();
        if (pid == 0) {
            _exit(0);
        }
        waitpid(pid, nullptr, 0);
        return pid;
    }
    int areaKey = 0;
    int mutexKey = 0;
    std::unique_ptr<MarkersOnSharedMemory> markers;
};

} // namespace

TEST_F(MarkersOnSharedMemoryTest, recordLiesInTheSegmentByteByByte) {
    markers->createMarker(10001, 1, "shop");
    const MarkerRecord& record = slot(getpid() % SLOTS);
    unsigned char expected[60] = {0x11, 0x27, 0, 0, 1, 0, 0, 0, 's', 'h', 'o', 'p'};
    const int pid = getpid();
    memcpy(expected + 56, &pid, 4);
    EXPECT_EQ(0, memcmp(expected, &record, sizeof expected));
}

TEST_F(MarkersOnSharedMemoryTest, namesAreCutAtFortySevenBytes) {
    const std::string fits(46, 'a');
    const std::string tooLong(47, 'b');
    markers->createMarker(1, 1, fits.c_str());
    EXPECT_EQ(fits, markers->getSessionName(getpid()).c_str());
    markers->createMarker(1, 1, tooLong.c_str());
    EXPECT_EQ(std::string(44, 'b') + "...", markers->getSessionName(getpid()).c_str());
}

TEST_F(MarkersOnSharedMemoryTest, quotedNamesAreDecodedBeforeTheyAreCut) {
    markers->createMarker(1, 1, "VDKQUOTED612c62");
    EXPECT_STREQ("a,b", markers->getSessionName(getpid()).c_str());
}

TEST_F(MarkersOnSharedMemoryTest, shorterNameLeavesNothingOfTheLongerOne) {
    markers->createMarker(1, 1, "a-long-name");
    markers->createMarker(1, 1, "ab");
    EXPECT_EQ(0, memcmp("ab\0\0\0\0\0\0\0\0\0", slot(getpid() % SLOTS).sessionName, 11));
}

TEST_F(MarkersOnSharedMemoryTest, processKeepsItsRecord) {
    markers->createMarker(10001, 1, "one");
    markers->createMarker(10002, 1, "two");
    ZVector<Marker> found;
    ASSERT_TRUE(markers->fillMarked(1, &found));
    ASSERT_EQ(1, found.getSize());
    EXPECT_EQ(10002, found[0].port);
}

TEST_F(MarkersOnSharedMemoryTest, equalRemaindersTakeAdjacentSlotsAndWrapAround) {
    MarkerArea* area = markers->getArea();
    EXPECT_EQ(&slot(5), findMarkerByPID(area, 5, true));
    EXPECT_EQ(&slot(6), findMarkerByPID(area, 5 + SLOTS, true));
    EXPECT_EQ(&slot(SLOTS - 1), findMarkerByPID(area, SLOTS - 1, true));
    EXPECT_EQ(&slot(0), findMarkerByPID(area, 2 * SLOTS - 1, true));
    EXPECT_EQ(&slot(6), findMarkerByPID(area, 5 + SLOTS, false));
    EXPECT_EQ(nullptr, findMarkerByPID(area, 5 + 2 * SLOTS, false));
}

TEST_F(MarkersOnSharedMemoryTest, fullAreaIsAnInternalError) {
    for (int i = 0; i < SLOTS; i++) {
        slot(i).pid = 1;
    }
    EXPECT_THROW(findMarkerByPID(markers->getArea(), 77, true), VDKRuntimeException);
    EXPECT_THROW(markers->createMarker(1, 1, "x"), VDKRuntimeException);
}

TEST_F(MarkersOnSharedMemoryTest, deadProcessesAreClearedAndTheirNamesStay) {
    fill(3, deadPid(), 10001, 1);
    strcpy(slot(3).sessionName, "gone");
    fill(4, INT_MIN, 10001, 1);
    fill(5, getppid(), 10003, 1);
    markers->clearDeadRecords();
    EXPECT_EQ(0, slot(3).pid);
    EXPECT_EQ(0, slot(3).port);
    EXPECT_EQ(0, slot(3).state);
    EXPECT_STREQ("gone", slot(3).sessionName);
    EXPECT_EQ(0, slot(4).pid);
    EXPECT_EQ(getppid(), slot(5).pid);
    EXPECT_EQ(10003, slot(5).port);
}

TEST_F(MarkersOnSharedMemoryTest, fillShowsEachProcessOnceAndOnlyWantedStates) {
    fill(10, getpid(), 10001, 1);
    fill(11, getpid(), 10002, 1);
    fill(12, getppid(), 10003, 2);
    fill(13, 1, 10004, 3);
    ZVector<Marker> found;
    ASSERT_TRUE(markers->fillMarked(1, &found));
    ASSERT_EQ(2, found.getSize());
    EXPECT_EQ(10001, found[0].port);
    EXPECT_EQ(1, found[1].pid);
    EXPECT_EQ(3, found[1].state);
}

TEST_F(MarkersOnSharedMemoryTest, recordsThatNoAgentWritesAreNotShown) {
    const int ports[] = {0, -1, 65536, INT_MIN, INT_MAX};
    for (int i = 0; i < 5; i++) {
        fill(20 + i, getpid(), ports[i], -1);
    }
    ZVector<Marker> found;
    ASSERT_TRUE(markers->fillMarked(-1, &found));
    EXPECT_EQ(0, found.getSize());
}

TEST_F(MarkersOnSharedMemoryTest, nameWithoutAnEndIsBoundedByItsField) {
    fill(30, getpid(), 1, 1);
    memset(slot(30).sessionName, 'n', sizeof slot(30).sessionName);
    slot(30).zero = 'z';
    EXPECT_EQ(std::string(47, 'n'), markers->getSessionName(getpid()).c_str());
}

TEST_F(MarkersOnSharedMemoryTest, unknownProcessHasNoName) {
    EXPECT_STREQ("", markers->getSessionName(getppid()).c_str());
    // 0 marks free slots and is nobody's id.
    strcpy(slot(0).sessionName, "free");
    EXPECT_STREQ("", markers->getSessionName(0).c_str());
}

TEST_F(MarkersOnSharedMemoryTest, areaThatCannotBeHadLeavesTheProcessUnmarked) {
    const int key = ownSharedMemoryKey(2);
    const int tooSmall = shmget(key, 16, IPC_CREAT | 0666);
    MarkersOnSharedMemory none(key, mutexKey);
    EXPECT_FALSE(none.isAttached());
    none.createMarker(1, 1, "x");
    none.clearDeadRecords();
    ZVector<Marker> found;
    EXPECT_FALSE(none.fillMarked(1, &found));
    EXPECT_STREQ("", none.getSessionName(getpid()).c_str());
    shmctl(tooSmall, IPC_RMID, nullptr);
}

TEST_F(MarkersOnSharedMemoryTest, clientReadsWithoutLockAndLeavesAllAsItIs) {
    const int dead = deadPid();
    fill(3, dead, 10001, 1); // of another pid namespace, as far as a client can know
    memset(slot(3).sessionName, 'x', MarkerRecord::NAME_BYTES);
    fill(4, getpid(), 0, 1);
    fill(5, getpid(), 10002, 2);
    fill(6, getpid(), 10003, 1);
    fill(7, getpid(), 10004, 1);
    int* word = static_cast<int*>(Platform::attachExistingSharedMemory(mutexKey, sizeof(int)));
    ASSERT_NE(nullptr, word);
    *word = getppid(); // kept by a living process
    ZVector<MarkerRecord> found;
    ASSERT_TRUE(readMarkers(1, &found, areaKey));
    ASSERT_EQ(2, found.getSize());
    EXPECT_EQ(dead, found[0].pid);
    EXPECT_EQ(10003, found[1].port);
    EXPECT_EQ(dead, slot(3).pid);
    EXPECT_EQ(getppid(), *word);
    EXPECT_FALSE(readMarkers(1, &found, ownSharedMemoryKey(2)));
}
