#include "db/StringPool.h"

#include "core/ground/Options.h"
#include "db/DB.h"
#include "db/RowSet.h"
#include "db/StringTable.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {
char* duplicate(const char* text) {
    char* copy = strdup(text);
    if (copy == nullptr) {
        throw std::bad_alloc();
    }
    return copy;
}

// A collection walks whole tables. It has earned that when so many slots at the most come to each
// new text, or ended thread, since the last one.
constexpr long SLOTS_PER_EVENT = 1024;
// Fewer new texts than these are no growth.
constexpr int LEAST_GROWTH = 1000;

constexpr bool isString(FieldMeaning meaning) {
    // A number that happens to be that of a row keeps its text for one collection.
    return meaning == STRING_ROW || meaning == STRING_OR_NUMBER;
}

template <typename T>
constexpr bool holdsStrings() {
    for (const TableField& field : RecordTraits<T>::fields) {
        if (isString(field.meaning)) {
            return true;
        }
    }
    return false;
}

// Adds the strings of all rows of a table and gives the number of slots looked at. A row without a
// stamp counts too: properties has some whose name is there before the first value.
template <typename T>
long markTable(RowSet& used, DBTable<T>* table) {
    if constexpr (holdsStrings<T>()) {
        return table->eachSlot([&](const T& record) {
            RecordTraits<T>::eachField(record, [&](int number, const auto& value) {
                if constexpr (std::is_same<decltype(value), const int&>::value) {
                    if (isString(RecordTraits<T>::fields[number].meaning)) {
                        used.mark(value);
                    }
                }
            });
        });
    }
    return 0;
}

long markUserTable(RowSet& used, UserTable* table) {
    long visited = 0;
    table->getRows().eachRow([&](int, const int* row) {
        visited += table->getRowLength();
        for (int column = 0; column < table->getColumnCount(); column++) {
            const int type = table->getColumnType(column);
            if (type == COLUMN_TYPE_STRING || type == COLUMN_TYPE_CLASS_NAME) {
                used.mark(table->getColumn(row, column));
            }
        }
    });
    return visited;
}
} // namespace

void StringTable::clearTable() {
    if (pool != nullptr) {
        pool->forgetAll();
    }
    freeTexts();
    DBTable<StringRecord>::clearTable();
}

void StringTable::freeTexts() {
    eachRecord([](int, StringRecord& record) {
        free(record.text);
        record.text = nullptr;
    });
}

int StringPool::getDBIndex(const char* text, bool create) {
    if (text == nullptr) {
        return 0;
    }
    const int* known = indices.getPtr(text);
    if (known != nullptr) {
        return *known;
    }
    if (!create) {
        return 0;
    }
    char* copy = duplicate(text);
    const int index = db->stringTable->nextIndex();
    StringRecord* record = db->stringTable->getRecord(index, true);
    record->text = copy;
    record->stamp = db->currentStamp;
    indices.put(copy, index);
    newTexts++;
    return index;
}

void StringPool::setDBIndex(const char* text, int index) {
    Logger::assertTrue(index > 0, VDK_HERE);
    if (text != nullptr) {
        loadRow(index, db->currentStamp, duplicate(text));
    }
}

void StringPool::loadRow(int index, int stamp, char* text) {
    StringRecord* record = db->stringTable->getRecord(index, true);
    if (record->text != nullptr) {
        // Another row may have taken the same text over meanwhile.
        if (indices.get(record->text) == index) {
            indices.remove(record->text);
        }
        free(record->text);
    }
    record->text = text;
    record->stamp = stamp;
    if (text != nullptr) {
        // Out first: overwriting a value would keep the key of another row's text.
        indices.remove(text);
        indices.put(text, index);
    }
}

const char* StringPool::getText(int index) const {
    if (index <= 0) {
        return nullptr;
    }
    const StringRecord* record = db->stringTable->getRecord(index, false);
    return record == nullptr ? nullptr : record->text;
}

void StringPool::collectIfGrown() {
    if (newTexts >= LEAST_GROWTH && newTexts >= textsAfterLastWalk) {
        collectIfEarned(0);
    }
}

void StringPool::collectIfEarned(int newEvents) {
    events += newEvents;
    if ((events + newTexts) * SLOTS_PER_EVENT >= slotsOfLastWalk) {
        collectGarbageStrings();
    }
}

void StringPool::collectGarbageStrings() {
    const bool debug = Options::isDebug("string_gc");
    if (debug) {
        Logger::message("string_gc: start");
    }
    RowSet used(db->stringTable->getCapacity());
    long visited = db->stringTable->getCapacity();
#define VDK_MARK_TABLE(slot, base, member, tableName, firstIndex, capacity, size)                  \
    visited += markTable(used, db->member);
    VDK_TABLES(VDK_MARK_TABLE)
#undef VDK_MARK_TABLE
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        UserTable* table = db->getUserTable(slot);
        visited += table == nullptr ? 0 : markUserTable(used, table);
    }
    for (int i = 0; i < keptRows.getSize(); i++) {
        const ZSet<int>* kept = keptRows[i];
        for (int slot = 0; slot < kept->getCapacity(); slot++) {
            if (kept->isFull(slot)) {
                used.mark(kept->keyAt(slot));
            }
        }
    }
    db->stringTable->eachRecord([&](int index, StringRecord& record) {
        if (record.text != nullptr && record.stamp > 0 && !used.contains(index)) {
            if (indices.get(record.text) == index) {
                indices.remove(record.text);
            }
            free(record.text);
            record.text = nullptr;
            record.stamp = -db->currentStamp;
            db->stringTable->releaseIndex(index);
        }
    });
    indices.compact();
    slotsOfLastWalk = visited;
    textsAfterLastWalk = indices.getSize();
    newTexts = 0;
    events = 0;
    if (debug) {
        Logger::message("string_gc: end");
    }
}
