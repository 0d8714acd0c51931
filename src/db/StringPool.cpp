#include "db/StringPool.h"

#include "core/ground/Options.h"
#include "core/ground/ZSet.h"
#include "db/DB.h"
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

void mark(ZSet<int>& used, int index) {
    if (index != 0) {
        used.add(index);
    }
}

// Adds the strings of all rows of a table. A property's or a telemetry value's number is marked
// too, though it may be no string: one that happens to have that number survives a collection.
template <typename T>
void markTable(ZSet<int>& used, DBTable<T>* table) {
    table->eachRecord([&](int, const T& record) {
        RecordTraits<T>::eachField(record, [&](int number, const auto& value) {
            if constexpr (std::is_same<decltype(value), const int&>::value) {
                if (RecordTraits<T>::fields[number].meaning == STRING_ROW) {
                    mark(used, value);
                }
            }
        });
    });
}

template <typename T>
void markValues(ZSet<int>& used, DBTable<T>* table) {
    table->eachRecord([&](int, const T& record) { mark(used, record.value); });
}

void markUserTable(ZSet<int>& used, UserTable* table) {
    for (int index = 0; index < table->getCapacity(); index++) {
        const int* row = table->getRecord(index, false);
        if (row == nullptr) {
            continue;
        }
        for (int column = 0; column < table->getColumnCount(); column++) {
            const int type = table->getColumnType(column);
            if (type == COLUMN_TYPE_STRING || type == COLUMN_TYPE_CLASS_NAME) {
                mark(used, table->getColumn(row, column));
            }
        }
    }
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

void StringPool::collectGarbageStrings() {
    const bool debug = Options::isDebug("string_gc");
    if (debug) {
        Logger::message("string_gc: start");
    }
    ZSet<int> used(db->stringTable->getCapacity());
    markTable(used, db->threadTable);
    markTable(used, db->methodTable);
    markTable(used, db->j2eeTable);
    markTable(used, db->monitorTable);
    markTable(used, db->instanceCountsTable);
    markTable(used, db->snapshotTable);
    markTable(used, db->generationTable);
    markTable(used, db->propertyTable);
    markTable(used, db->exceptionTable);
    markTable(used, db->telemetryExtTable);
    markValues(used, db->propertyTable);
    markValues(used, db->telemetryExtTable);
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        UserTable* table = db->getUserTable(slot);
        if (table != nullptr) {
            markUserTable(used, table);
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
    if (debug) {
        Logger::message("string_gc: end");
    }
}
