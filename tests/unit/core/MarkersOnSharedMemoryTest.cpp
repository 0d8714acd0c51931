// The marker area on keys of the test's own: layout, cut names, dead processes, hostile records.
#include "machine/MarkersOnSharedMemory.h"

#include "DeadProcess.h"
#include "SharedMemoryKeys.h"
#include "core/ground/Exceptions.h"
#include "platform/Platform.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

const int SLOTS = MarkerArea::RECORD_COUNT;

class MarkersOnSharedMemoryTest : public testing::Test {
protected:
    void SetUp() override {
        areaKey = ownSharedMemoryKey(0);
        mutexKey = ownSharedMemoryKey(1);
        notesKey = ownSharedMemoryKey(3);
        markers = std::make_unique<MarkersOnSharedMemory>(areaKey, mutexKey, notesKey);
        ASSERT_TRUE(markers->isAttached());
    }
    void TearDown() override {
        shmctl(shmget(areaKey, 1, 0), IPC_RMID, nullptr);
        shmctl(shmget(mutexKey, 1, 0), IPC_RMID, nullptr);
        shmctl(shmget(notesKey, 1, 0), IPC_RMID, nullptr);
    }
    MarkerRecord& slot(int index) { return markers->getView().area->records[index]; }
    // The record in the slot is of a process in another pid namespace.
    void noteForeign(int index) { markers->getView().notes->notes[index] = {slot(index).pid, 77}; }
    void fill(int index, int pid, int port, int state) {
        slot(index).pid = pid;
        slot(index).port = port;
        slot(index).state = state;
    }
    // What is shown of the area, as "pid:port:state ".
    std::string marked(int state) {
        ZVector<Marker> found;
        EXPECT_TRUE(markers->fillMarked(state, &found));
        std::string text;
        for (int i = 0; i < found.getSize(); i++) {
            text += std::to_string(found[i].pid) + ":" + std::to_string(found[i].port) + ":" +
                    std::to_string(found[i].state) + " ";
        }
        return text;
    }
    int areaKey = 0;
    int mutexKey = 0;
    int notesKey = 0;
    std::unique_ptr<MarkersOnSharedMemory> markers;
};

} // namespace

TEST_F(MarkersOnSharedMemoryTest, recordLiesInTheSegmentByteByByteAndKeepsItsPlace) {
    // The second name is the shorter one: nothing of the first may be left.
    markers->createMarker(10002, 2, "a-long-name");
    markers->createMarker(10001, 1, "shop");
    unsigned char expected[60] = {0x11, 0x27, 0, 0, 1, 0, 0, 0, 's', 'h', 'o', 'p'};
    const int pid = getpid();
    memcpy(expected + 56, &pid, 4);
    EXPECT_EQ(0, memcmp(expected, &slot(pid % SLOTS), sizeof expected));
    EXPECT_EQ(std::to_string(pid) + ":10001:1 ", marked(1));
}

TEST_F(MarkersOnSharedMemoryTest, namesAreDecodedAndCutAtTheirField) {
    const std::string cases[][2] = {
        {std::string(46, 'a'), std::string(46, 'a')},
        {std::string(47, 'b'), std::string(44, 'b') + "..."},
        {"VDKQUOTED612c62", "a,b"},
    };
    for (const auto& c : cases) {
        markers->createMarker(1, 1, c[0].c_str());
        EXPECT_EQ(c[1], markers->getSessionName(getpid()).c_str());
    }
    // Without an end in the segment.
    MarkerRecord& record = slot(getpid() % SLOTS);
    memset(record.sessionName, 'n', sizeof record.sessionName);
    record.zero = 'z';
    EXPECT_EQ(std::string(47, 'n'), markers->getSessionName(getpid()).c_str());
    EXPECT_STREQ("", markers->getSessionName(getppid()).c_str());
    // 0 marks free slots and is nobody's id.
    strcpy(slot(0).sessionName, "free");
    EXPECT_STREQ("", markers->getSessionName(0).c_str());
}

TEST_F(MarkersOnSharedMemoryTest, equalRemaindersTakeAdjacentSlotsAndWrapAround) {
    const MarkerView area = {markers->getView().area};
    EXPECT_EQ(&slot(5), findMarkerByPID(area, 5, true));
    EXPECT_EQ(&slot(6), findMarkerByPID(area, 5 + SLOTS, true));
    EXPECT_EQ(&slot(SLOTS - 1), findMarkerByPID(area, SLOTS - 1, true));
    EXPECT_EQ(&slot(0), findMarkerByPID(area, 2 * SLOTS - 1, true));
    EXPECT_EQ(&slot(6), findMarkerByPID(area, 5 + SLOTS, false));
    EXPECT_EQ(nullptr, findMarkerByPID(area, 5 + 2 * SLOTS, false));
    for (int i = 0; i < SLOTS; i++) {
        slot(i).pid = 1;
    }
    EXPECT_THROW(findMarkerByPID(markers->getView(), 77, true), VDKRuntimeException);
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

// Containers may share the area: their ids say nothing here.
TEST_F(MarkersOnSharedMemoryTest, recordsOfOtherPidNamespacesAreNeitherClearedNorShared) {
    const int dead = deadPid(), own = getpid() % SLOTS;
    fill(3, dead, 10001, 1);
    noteForeign(3);
    fill(own, getpid(), 10002, 1);
    noteForeign(own);
    markers->createMarker(10003, 1, "mine");
    EXPECT_EQ(dead, slot(3).pid);
    EXPECT_EQ(10002, slot(own).port);
    EXPECT_EQ(10003, slot((own + 1) % SLOTS).port);
    EXPECT_STREQ("mine", markers->getSessionName(getpid()).c_str());
    ZVector<Marker> found;
    ASSERT_TRUE(markers->fillMarked(1, &found));
    ASSERT_EQ(1, found.getSize());
    EXPECT_EQ(10003, found[0].port);

    // A note of a process that has gone says nothing of the next one in its slot.
    fill(3, deadPid(), 10001, 1);
    markers->clearDeadRecords();
    EXPECT_EQ(0, slot(3).pid);
}

TEST_F(MarkersOnSharedMemoryTest, fullAreaGivesUpARecordOfAnotherPidNamespaceFirst) {
    for (int i = 0; i < SLOTS; i++) {
        fill(i, 1, 10001, 1);
    }
    noteForeign(500);
    markers->createMarker(10002, 1, "mine");
    EXPECT_EQ(getpid(), slot(500).pid);
    EXPECT_EQ(10002, slot(500).port);
}

TEST_F(MarkersOnSharedMemoryTest, eachProcessIsShownOnceAndOnlyInWantedStates) {
    fill(10, getpid(), 10001, 1);
    fill(11, getpid(), 10002, 1);
    fill(12, getppid(), 10003, 2);
    fill(13, 1, 10004, 3);
    EXPECT_EQ(std::to_string(getpid()) + ":10001:1 1:10004:3 ", marked(1));
    // What no agent writes is not shown.
    int index = 10;
    for (int port : {0, -1, 65536, INT_MIN, INT_MAX}) {
        fill(index++, getpid(), port, -1);
    }
    EXPECT_EQ("", marked(-1));
}

TEST_F(MarkersOnSharedMemoryTest, areaThatCannotBeHadLeavesTheProcessUnmarked) {
    const int key = ownSharedMemoryKey(2);
    const int tooSmall = shmget(key, 16, IPC_CREAT | 0666);
    MarkersOnSharedMemory none(key, mutexKey, notesKey);
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
    fill(8, getpid(), 10005, 1);
    noteForeign(8);
    ZVector<NamedMarker> found;
    ASSERT_TRUE(readMarkers(1, &found, areaKey, notesKey));
    ASSERT_EQ(3, found.getSize());
    EXPECT_EQ(dead, found[0].marker.pid);
    EXPECT_EQ(std::string(MarkerRecord::NAME_BYTES, 'x'), found[0].sessionName);
    EXPECT_EQ(10003, found[1].marker.port);
    EXPECT_EQ(0u, found[1].marker.pidNamespace);
    EXPECT_EQ(10005, found[2].marker.port);
    EXPECT_EQ(77u, found[2].marker.pidNamespace);
    EXPECT_EQ(dead, slot(3).pid);
    EXPECT_EQ(getppid(), *word);
    EXPECT_FALSE(readMarkers(1, &found, ownSharedMemoryKey(2), notesKey));
}
