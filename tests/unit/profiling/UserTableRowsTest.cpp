#include "profiling/UserTableRows.h"

#include "ToyJvm.h"
#include "profiling/ClassLoadingProbe.h"

#include <gtest/gtest.h>

namespace {

class UserTableRowsTest : public testing::Test {
protected:
    UserTableRowsTest()
        : slot(ourDB->createUserTableByDescription(
              "T\n4\nuptime_ns\n1\nuptime_ns.end\n1\nspent_cpu_ns\n1\nthread\n0\n")),
          table(ourDB->getUserTable(slot)) {}
    int stampOf(int row) { return table->getRecordModificationStamp(row); }

    ToyJvm jvm;
    int slot;
    UserTable* table;
};

} // namespace

TEST_F(UserTableRowsTest, shortEventIsDeletedAndItsIndexComesBack) {
    const int row = createUserTableRow(nullptr, slot, -1, 60000);
    EXPECT_FALSE(closeUserTableRow(nullptr, slot, row, 60000));
    EXPECT_EQ(-1, stampOf(row));
    EXPECT_FALSE(isUserTableRowClosed(slot, row));
    EXPECT_FALSE(closeUserTableRow(nullptr, slot, row, 0)) << "there is nothing to close";
    EXPECT_EQ(-1, stampOf(row));
    EXPECT_EQ(row, createUserTableRow(nullptr, slot, -1, 0));
    EXPECT_FALSE(isUserTableRowClosed(slot, row)) << "the new row is open";
}

TEST_F(UserTableRowsTest, longEventIsVisibleOnceItIsClosedAndMeasuredOnce) {
    const int row = createUserTableRow(nullptr, slot, -1, 1);
    EXPECT_EQ(-1, stampOf(row));
    table->setLongColumn(table->getRecord(row, true), 0, -10000000000);
    EXPECT_TRUE(closeUserTableRow(nullptr, slot, row, 1));
    EXPECT_EQ(1, stampOf(row));
    EXPECT_TRUE(isUserTableRowClosed(slot, row));
    const long end = table->getLongColumn(table->getRecord(row, false), 1);
    const long cpu = table->getLongColumn(table->getRecord(row, false), 2);
    closeUserTableRow(nullptr, slot, row, 0);
    EXPECT_EQ(end, table->getLongColumn(table->getRecord(row, false), 1));
    EXPECT_EQ(cpu, table->getLongColumn(table->getRecord(row, false), 2));
}

TEST_F(UserTableRowsTest, limitGivesTheSentinelThatAllIgnore) {
    ourDB->probeTableLengthLimit = 2;
    EXPECT_EQ(0, createUserTableRow(nullptr, slot, -1, 0));
    EXPECT_EQ(1, createUserTableRow(nullptr, slot, -1, 0));
    EXPECT_EQ(NO_USER_TABLE_ROW, createUserTableRow(nullptr, slot, -1, 0));
    EXPECT_EQ(2, table->peekNextIndex()) << "the index came back";
    EXPECT_FALSE(closeUserTableRow(nullptr, slot, NO_USER_TABLE_ROW, 0));
    EXPECT_FALSE(isUserTableRowClosed(slot, NO_USER_TABLE_ROW));
}

TEST_F(UserTableRowsTest, slotsWithoutATableAndForeignRowsAreIgnored) {
    for (int bad : {-1, 0, 31, 127, 128, 1 << 30}) {
        EXPECT_EQ(NO_USER_TABLE_ROW, createUserTableRow(nullptr, bad, -1, 0)) << bad;
        EXPECT_FALSE(closeUserTableRow(nullptr, bad, 0, 0)) << bad;
    }
    for (int bad : {-1, 5, 1 << 30}) {
        EXPECT_FALSE(closeUserTableRow(nullptr, slot, bad, 0)) << bad;
    }
}

TEST_F(UserTableRowsTest, timeIsSpentOnOneThreadOrUnknown) {
    ThreadInfo first("first", nullptr, 0, nullptr);
    ThreadInfo second("second", nullptr, 0, nullptr);
    struct {
        ThreadInfo* maker;
        ThreadInfo* closer; // null for a virtual thread
        bool known;
    } const rows[] = {
        {&first, &first, true},   {&first, &second, false},  {&first, nullptr, false},
        {nullptr, &first, false}, {nullptr, nullptr, false},
    };
    for (const auto& c : rows) {
        jvm.storedInfo = c.maker;
        const int row = createUserTableRow(jvm.env(), slot, -1, 0);
        EXPECT_EQ(c.maker == nullptr ? 0 : c.maker->trn,
                  table->getIntColumn(table->getRecord(row, false), 3));
        jvm.storedInfo = c.closer;
        EXPECT_TRUE(closeUserTableRow(jvm.env(), slot, row, 0));
        const long spent = table->getLongColumn(table->getRecord(row, false), 2);
        EXPECT_EQ(c.known, spent >= 0) << spent;
        EXPECT_LT(spent, 1000000000);
        EXPECT_LE(-1, spent);
    }
}

TEST_F(UserTableRowsTest, agentThreadsFeedNoTableUnlessEnabled) {
    ThreadInfo info("VDKAgent-Telemetry", nullptr, 0, nullptr);
    jvm.storedInfo = &info;
    EXPECT_EQ(NO_USER_TABLE_ROW, createUserTableRow(jvm.env(), slot, -1, 0));
    info.temporaryEnabled = true;
    EXPECT_EQ(0, createUserTableRow(jvm.env(), slot, -1, 0));
}

TEST(ClassLoadingProbe, unloadsQueueUpAndAreFlushedInOrder) {
    ToyJvm jvm;
    const int first = ourDB->stringPool->getDBIndex("a.First", true);
    const int second = ourDB->stringPool->getDBIndex("a.Second", true);
    ClassLoadingProbe::onClassUnload(0);
    ClassLoadingProbe::onClassUnload(second);
    ClassLoadingProbe::onClassUnload(first);
    EXPECT_EQ(nullptr, ourDB->getUserTable(FIRST_USER_TABLE));
    ClassLoadingProbe::flushUnloadedClassesToDB();
    UserTable* table = ourDB->getUserTable(FIRST_USER_TABLE);
    ASSERT_NE(nullptr, table);
    EXPECT_EQ(2, table->peekNextIndex());
    EXPECT_EQ(second, table->getClassNameColumn(table->getRecord(0, false), 3));
    EXPECT_EQ(first, table->getClassNameColumn(table->getRecord(1, false), 3));
    EXPECT_STREQ("unloaded",
                 ourDB->stringPool->getText(table->getStringColumn(table->getRecord(0, false), 4)));
    EXPECT_EQ(0, table->getIntColumn(table->getRecord(0, false), 1)) << "no thread";
}
