#include "db/StringPool.h"

#include "DBTestSupport.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

TEST(StringPool, internsByContent) {
    DB db(-1, -1);
    char first[] = "abc";
    char second[] = "abc";
    const int index = db.stringPool->getDBIndex(first, true);
    EXPECT_EQ(1, index);
    EXPECT_EQ(index, db.stringPool->getDBIndex(second, true));
    EXPECT_EQ(index, db.stringPool->getDBIndex(second, false));
    EXPECT_STREQ("abc", db.stringPool->getText(index));
    EXPECT_EQ(2, db.stringPool->getDBIndex("", true));
}

TEST(StringPool, nullAndUnknownTextsMakeNothing) {
    DB db(-1, -1);
    EXPECT_EQ(0, db.stringPool->getDBIndex(nullptr, true));
    EXPECT_EQ(0, db.stringPool->getDBIndex("x", false));
    EXPECT_EQ(-1, db.stringTable->getMinIndex());
    EXPECT_EQ(nullptr, db.stringPool->getText(0));
    EXPECT_EQ(nullptr, db.stringPool->getText(99));
    EXPECT_EQ(nullptr, db.stringPool->getText(-1));
}

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
    takeLog();
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

TEST(StringPool, everyFieldThatHoldsAStringKeepsIt) {
    DB db(-1, -1);
    const int fields[] = {1, 2, 6, 7, 8, 14, 21, 26, 33, 41, 43, 44, 52, 54, 55};
    std::vector<int> kept;
    for (int number : fields) {
        const std::string text = "kept by field " + std::to_string(number);
        const int index = db.stringPool->getDBIndex(text.c_str(), true);
        kept.push_back(index);
        // One row a field, so that no other field can keep it.
        db.setIntField(number, 10 + number, index);
    }
    for (int number : fields) {
        for (int slot = 1; slot < CORE_TABLE_COUNT; slot++) {
            if (slot != SLOT_Method || number < 9) {
                db.tables[slot]->setRecordModificationStamp(10 + number, -1);
            }
        }
    }
    db.stringPool->collectGarbageStrings();
    for (int index : kept) {
        EXPECT_NE(nullptr, db.stringPool->getText(index));
    }
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

TEST(StringPool, survivesManyRoundsOfNewNames) {
    DB db(-1, -1);
    const int kept = db.stringPool->getDBIndex("kept", true);
    db.threadTable->getRecord(1, true)->nameStrID = kept;
    db.threadTable->getRecord(1, true)->stamp = 1;
    for (int round = 0; round < 50; round++) {
        for (int i = 0; i < 100; i++) {
            const std::string name = "request " + std::to_string(round * 100 + i);
            db.stringPool->getDBIndex(name.c_str(), true);
        }
        db.stringPool->collectGarbageStrings();
    }
    // Rows were reused: the table did not grow with the 5000 names.
    EXPECT_EQ(1280, db.stringTable->getCapacity());
    EXPECT_EQ(kept, db.stringPool->getDBIndex("kept", false));
}
