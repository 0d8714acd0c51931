#include "db/UserTable.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>
#include <memory>

namespace {
std::unique_ptr<UserTable> make(const char* description) {
    return std::unique_ptr<UserTable>(UserTable::create(description));
}
constexpr const char* CLASS_LOADING = "Class Loading\n5\nuptime_ns\n1\nthread\n0\nframe\n0\n"
                                      "Class\n4\nLoaded or Unloaded\n2\n";
} // namespace

TEST(UserTable, descriptionGivesNameColumnsAndRowLength) {
    const auto table = make(CLASS_LOADING);
    ASSERT_NE(nullptr, table);
    EXPECT_STREQ("Class Loading", table->getName().c_str());
    EXPECT_STREQ(CLASS_LOADING, table->getDescription().c_str());
    EXPECT_EQ(5, table->getColumnCount());
    EXPECT_EQ(1 + 2 + 1 + 1 + 1 + 1, table->getRowLength());
    EXPECT_EQ(COLUMN_TYPE_CLASS_NAME, table->getColumnType(3));
    EXPECT_EQ(4, table->findColumn("Loaded or Unloaded"));
    EXPECT_EQ(-1, table->findColumn("loaded"));
}

TEST(UserTable, predefinedColumnsAreFoundByName) {
    const auto table = make("T\n8\nuptime_ns\n1\nuptime_ns.end\n1\nspent_cpu_ns\n1\nthread\n0\n"
                            "thread.end\n0\nframe\n0\nframe.end\n0\nother\n0\n");
    ASSERT_NE(nullptr, table);
    for (int which = 0; which < PREDEFINED_COLUMN_COUNT; which++) {
        EXPECT_EQ(which, table->getPredefinedColumn(static_cast<PredefinedColumn>(which)));
    }
    EXPECT_EQ(-1, make("T\n0\n")->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_THREAD));
}

TEST(UserTable, malformedDescriptionsMakeNoTable) {
    const char* const malformed[] = {"",
                                     "T",
                                     "T\n",
                                     "T\nx\n",
                                     "T\n\n",
                                     "T\n-1\n",
                                     "T\n1\n",
                                     "T\n1\na\n",
                                     "T\n1\na\n0",
                                     "T\n1\na\nint\n",
                                     "T\n1\na\n5\n",
                                     "T\n1\na\n-1\n",
                                     "T\n2\na\n0\n",
                                     "T\n99999999999999999999\na\n0\n",
                                     "T\n2147483647\na\n0\n",
                                     "T\n1\nthread\n1\n",
                                     "T\n2\nframe\n0\nframe\n0\n"};
    DB db(-1, -1);
    for (const char* description : malformed) {
        EXPECT_EQ(nullptr, make(description)) << description;
        EXPECT_EQ(-2, db.createUserTableByDescription(description)) << description;
    }
    EXPECT_EQ(32, db.createUserTableByDescription("T\n0\n"));
}

TEST(UserTable, unknownTypeIsNamed) {
    ZVectorSafe<ZString> names;
    names.push("a");
    ZVector<int> types;
    types.push(9);
    EXPECT_THROW(UserTable("T", "T\n", &names, &types), VDKRuntimeException);
    EXPECT_NE(std::string::npos, takeLog().find("unexpected column type: 9"));
}

TEST(UserTable, longColumnIsStoredLowWordFirst) {
    const auto table = make("T\n2\na\n0\nb\n1\n");
    int* row = table->getRecord(3, true);
    table->setLongColumn(row, 1, 0x1122334455667788L);
    EXPECT_EQ(0x55667788, row[2]);
    EXPECT_EQ(0x11223344, row[3]);
    EXPECT_EQ(0x1122334455667788L, table->getLongColumn(row, 1));
    table->setLongColumn(row, 1, -2);
    EXPECT_EQ(-2, table->getLongColumn(row, 1));
}

TEST(UserTable, columnsAreCheckedForNumberAndType) {
    const auto table = make("T\n5\ni\n0\nl\n1\ns\n2\nk\n3\nc\n4\n");
    int* row = table->getRecord(0, true);
    table->setIntColumn(row, 0, 1);
    table->setStringColumn(row, 2, 2);
    table->setForeignKeyColumn(row, 3, 3);
    table->setClassNameColumn(row, 4, 4);
    EXPECT_EQ(1, table->getColumn(row, 0));
    EXPECT_EQ(2, table->getStringColumn(row, 2));
    EXPECT_EQ(3, table->getForeignKeyColumn(row, 3));
    EXPECT_EQ(4, table->getClassNameColumn(row, 4));
    EXPECT_THROW(table->getIntColumn(row, 1), VDKRuntimeException);
    EXPECT_THROW(table->getLongColumn(row, 0), VDKRuntimeException);
    EXPECT_THROW(table->getStringColumn(row, 4), VDKRuntimeException);
    EXPECT_THROW(table->getClassNameColumn(row, 5), VDKRuntimeException);
    EXPECT_THROW(table->getIntColumn(row, -1), VDKRuntimeException);
    takeLog();
    EXPECT_THROW(table->getColumn(row, 1), VDKRuntimeException);
    EXPECT_NE(std::string::npos, takeLog().find("unexpected column type: 1"));
}

TEST(UserTable, rowIsWrittenAsItsWords) {
    const auto table = make("T\n2\na\n0\nb\n1\n");
    int* row = table->getRecord(2, true);
    table->setIntColumn(row, 0, 5);
    table->setLongColumn(row, 1, 6);
    row[0] = -3;
    MemoryWriter writer;
    Progress progress;
    table->writeTable(writer, 2, 0, 0, &progress);
    EXPECT_EQ("01 00 00 00 02 00 00 00 FD FF FF FF 05 00 00 00 06 00 00 00 00 00 00 00",
              hex(writer.take()));
    MemoryWriter nothing;
    table->writeTable(nothing, 3, 0, 0, &progress);
    EXPECT_EQ("00 00 00 00", hex(nothing.take()));
}

TEST(UserTable, statisticsShowEvenAVeryLongName) {
    const std::string name(1000, 'n');
    const auto table = make((name + "\n0\n").c_str());
    long total = 0;
    EXPECT_EQ(name + " records=       0/    1280 allocated=   0.0 MB",
              table->getStatistics(&total).c_str());
    EXPECT_EQ(5 * 8, total);
}
