#include "db/StringPool.h"

#include "DBTestSupport.h"

#include <gtest/gtest.h>

TEST(StringPool, setDBIndexReplacesTheOldText) {
    DB db(-1, -1);
    db.stringPool->setDBIndex("old", 7);
    EXPECT_EQ(7, db.stringPool->getDBIndex("old", false));
    db.stringPool->setDBIndex("new", 7);
    EXPECT_EQ(0, db.stringPool->getDBIndex("old", false));
    EXPECT_EQ(7, db.stringPool->getDBIndex("new", false));
    db.stringPool->setDBIndex(nullptr, 7);
    EXPECT_STREQ("new", db.stringPool->getText(7));
    // The pool of indices is the caller's affair.
    EXPECT_EQ(1, db.stringPool->getDBIndex("other", true));
    EXPECT_THROW(db.stringPool->setDBIndex("zero", 0), VDKRuntimeException);
}

TEST(StringPool, oneTextInTwoRowsSurvivesTheLossOfEither) {
    DB db(-1, -1);
    db.stringPool->setDBIndex("twice", 3);
    db.stringPool->setDBIndex("twice", 4);
    EXPECT_EQ(4, db.stringPool->getDBIndex("twice", false));
    db.stringPool->loadRow(3, -1, nullptr);
    EXPECT_EQ(4, db.stringPool->getDBIndex("twice", false));
    db.stringPool->loadRow(4, -1, nullptr);
    EXPECT_EQ(0, db.stringPool->getDBIndex("twice", false));
}

TEST(StringPool, collectsWhatOnlyADeletedAndNeutralRowNamed) {
    DB db(-1, -1);
    const int used = db.stringPool->getDBIndex("used", true);
    const int unused = db.stringPool->getDBIndex("unused", true);
    ThreadRecord* thread = db.threadTable->getRecord(1, true);
    thread->nameStrID = used;
    thread->stamp = 1;
    ThreadRecord* gone = db.threadTable->getRecord(2, true);
    gone->stamp = -1;
    db.currentStamp = 5;
    db.stringPool->collectGarbageStrings();
    EXPECT_EQ(used, db.stringPool->getDBIndex("used", false));
    EXPECT_EQ(0, db.stringPool->getDBIndex("unused", false));
    EXPECT_EQ(-5, db.stringTable->getRecordModificationStamp(unused));
    EXPECT_EQ(nullptr, db.stringPool->getText(unused));
    // The index comes back with the next new text.
    EXPECT_EQ(unused, db.stringPool->getDBIndex("next", true));
    EXPECT_EQ(5, db.stringTable->getRecordModificationStamp(unused));
}

namespace {
// Puts a text of its own into each field of the table that holds one, each in a row of its own.
template <typename T>
void fillStrings(DB& db, DBTable<T>* table, std::vector<int>& kept) {
    typedef RecordTraits<T> Traits;
    for (int field = 0; field < Traits::fieldCount; field++) {
        const FieldMeaning meaning = Traits::fields[field].meaning;
        if (meaning != STRING_ROW && meaning != STRING_OR_NUMBER) {
            continue;
        }
        const std::string text = std::string(Traits::tableName) + "." + Traits::fields[field].name;
        kept.push_back(db.stringPool->getDBIndex(text.c_str(), true));
        T* record = table->getRecord(10 + field, true);
        Traits::eachField(*record, [&](int number, auto& value) {
            if constexpr (std::is_same<decltype(value), int&>::value) {
                value = number == field ? kept.back() : value;
            }
        });
        record->stamp = -1;
    }
}
} // namespace

TEST(StringPool, everyFieldThatHoldsAStringKeepsIt) {
    DB db(-1, -1);
    std::vector<int> kept;
#define FILL(slot, base, member, tableName, firstIndex, capacity, size)                            \
    fillStrings(db, db.member, kept);
    VDK_TABLES(FILL)
#undef FILL
    EXPECT_EQ(15u, kept.size());
    // A number in the place of a string names no row.
    kept.push_back(db.setProperty("huge", 0x7fffffff));
    kept.push_back(db.setProperty("negative", -5));
    db.stringPool->collectGarbageStrings();
    for (int index : kept) {
        EXPECT_NE(nullptr, db.stringPool->getText(index)) << index;
    }
}

TEST(StringPool, rowsKeptOutsideTheTablesStayUntilTheyAreNot) {
    ZSet<int> named(8);
    DB db(-1, -1);
    db.stringPool->keepNamed(&named);
    const int kept = db.stringPool->getDBIndex("in a tag", true);
    named.add(kept);
    db.stringPool->collectGarbageStrings();
    EXPECT_STREQ("in a tag", db.stringPool->getText(kept));
    named.clear();
    db.stringPool->collectGarbageStrings();
    EXPECT_EQ(nullptr, db.stringPool->getText(kept));
}

TEST(StringPool, userTableColumnsKeepTheirStrings) {
    DB db(-1, -1);
    const int slot = db.createUserTableByDescription("T\n3\na\n2\nb\n4\nc\n3\n");
    const int inString = db.stringPool->getDBIndex("string column", true);
    const int inClass = db.stringPool->getDBIndex("class column", true);
    const int inKey = db.stringPool->getDBIndex("a foreign key is no string", true);
    UserTable* table = db.getUserTable(slot);
    int* row = table->getRecord(0, true);
    table->setColumn(row, 0, inString);
    table->setColumn(row, 1, inClass);
    table->setColumn(row, 2, inKey);
    row[0] = 1;
    table->getRecord(1, true)[0] = 1; // all columns 0
    db.stringPool->collectGarbageStrings();
    EXPECT_NE(nullptr, db.stringPool->getText(inString));
    EXPECT_NE(nullptr, db.stringPool->getText(inClass));
    EXPECT_EQ(nullptr, db.stringPool->getText(inKey));
}

TEST(StringPool, millionDroppedTextsTakeTheRoomOfAFew) {
    DB db(-1, -1);
    const int kept = db.setProperty("kept", 0);
    for (int i = 0; i < 1000000; i++) {
        db.stringPool->getDBIndex(("select " + std::to_string(i)).c_str(), true);
        db.stringPool->collectIfGrown();
    }
    EXPECT_LE(db.stringTable->getCapacity(), 2560);
    EXPECT_EQ(kept, db.stringPool->getDBIndex("kept", false));
}

// Every collection walks all rows, so it has to wait for so much more that has happened.
TEST(StringPool, collectionWaitsUntilItHasEarnedItsWalk) {
    DB db(-1, -1);
    constexpr int ROWS = 1000000;
    db.threadTable->setRecordModificationStamp(0, 1);
    for (int row = 0; row < ROWS; row += 256) {
        db.threadTable->setRecordModificationStamp(row, 1);
    }
    db.stringPool->collectGarbageStrings();
    const int unused = db.stringPool->getDBIndex("unused", true);
    db.stringPool->collectIfEarned(100);
    EXPECT_NE(nullptr, db.stringPool->getText(unused));
    db.stringPool->collectIfEarned(ROWS / 1024);
    EXPECT_EQ(nullptr, db.stringPool->getText(unused));
}
