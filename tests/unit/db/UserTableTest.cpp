#include "db/UserTable.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>
#include <memory>

namespace {
std::unique_ptr<UserTable> make(const char* description) {
    return std::unique_ptr<UserTable>(UserTable::create(description));
}
} // namespace

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

TEST(UserTable, rowIsWrittenAsItsWords) {
    const auto table = make("T\n2\na\n0\nb\n1\n");
    int* row = table->getRecord(2, true);
    table->setIntColumn(row, 0, 5);
    table->setLongColumn(row, 1, 0x1122334455667788L);
    EXPECT_EQ(0x1122334455667788L, table->getLongColumn(row, 1));
    row[0] = -3;
    EXPECT_EQ("01 00 00 00 02 00 00 00 FD FF FF FF 05 00 00 00 88 77 66 55 44 33 22 11",
              hex(tableOf(*table, 2)));
    EXPECT_EQ("00 00 00 00", hex(tableOf(*table, 3)));
    table->setLongColumn(row, 1, -2);
    EXPECT_EQ(-2, table->getLongColumn(row, 1));
}

TEST(UserTable, statisticsShowEvenAVeryLongName) {
    const std::string name(1000, 'n');
    const auto table = make((name + "\n0\n").c_str());
    long total = 0;
    EXPECT_EQ(name + " records=       0/    1280 allocated=   0.0 MB",
              table->getStatistics(&total).c_str());
    EXPECT_EQ(5 * 8, total);
}
