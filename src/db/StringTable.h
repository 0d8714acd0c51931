#pragma once

#include "db/DBTable.h"

class StringPool;

// The table string: a DBTable whose rows own their texts.
class StringTable : public DBTable<StringRecord> {
public:
    StringTable(const char* tableName, int firstIndex, int capacity)
        : DBTable<StringRecord>(tableName, firstIndex, capacity), pool(nullptr) {}
    ~StringTable() override { freeTexts(); }
    // The pool's keys are the texts of the rows: it has to forget them first.
    void clearTable() override;
    void setPool(StringPool* stringPool) { pool = stringPool; }

private:
    void freeTexts();

    StringPool* pool;
};
