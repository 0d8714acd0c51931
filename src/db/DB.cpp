#include "db/DB.h"

#include "core/ground/Options.h"
#include "db/StringTable.h"

#include <cstring>
#include <ctime>

DB* ourDB = nullptr;

namespace {
constexpr const char* TELEC_PROPERTIES[TELEC_FIELD_COUNT] = {
    "telec.heap.memory.max.kb", "telec.non.heap.memory.max.kb", "telec.unloaded.class.count",
    "telec.peak.thread.count",  "telec.created.thread.count",   "telec.deadlock.found",
};

void appendLine(ZString& text, const char* label, const ZString& value, const char* unit) {
    text.append(label);
    text.append(value);
    text.append(unit);
}
} // namespace

template <typename T>
DBTable<T>* DB::createTable() {
    typedef RecordTraits<T> Traits;
    DBTable<T>* table = new DBTable<T>(Traits::tableName, Traits::firstIndex, Traits::capacity);
    tables[Traits::slot] = table;
    return table;
}

template <>
DBTable<StringRecord>* DB::createTable<StringRecord>() {
    typedef RecordTraits<StringRecord> Traits;
    StringTable* table = new StringTable(Traits::tableName, Traits::firstIndex, Traits::capacity);
    tables[Traits::slot] = table;
    return table;
}

DB::DB(int telemetryRows, int probeTableRows)
    : telemetryLimit(telemetryRows), probeTableLengthLimit(probeTableRows),
      nextUserTableIndex(FIRST_USER_TABLE), currentStamp(1), startTime(time(nullptr)),
      threadFrameIndex(nullptr), j2eeIndex(nullptr), stringPool(nullptr),
      oldestFinishedThreads(nullptr) {
    for (AbstractTable*& table : tables) {
        table = nullptr;
    }
#define VDK_CREATE_TABLE(slot, base, member, tableName, firstIndex, capacity, size)                \
    member = createTable<base##Record>();
    VDK_TABLES(VDK_CREATE_TABLE)
#undef VDK_CREATE_TABLE
    threadFrameIndex = new ThreadFrameIndex(this);
    j2eeIndex = new J2EEIndex(this);
    stringPool = new StringPool(this);
    static_cast<StringTable*>(stringTable)->setPool(stringPool);
}

DB::~DB() {
    static_cast<StringTable*>(stringTable)->setPool(nullptr);
    delete stringPool;
    delete j2eeIndex;
    delete threadFrameIndex;
    for (AbstractTable* table : tables) {
        delete table;
    }
}

void DB::createAndInitializeDB(int telemetryLimit, int probeTableLengthLimit,
                               void (*createStandInThreads)()) {
    ourDB = new DB(telemetryLimit, probeTableLengthLimit);
    ourDB->sessionName = ourOptions->getSessionName();
    if (createStandInThreads != nullptr) {
        createStandInThreads();
    }
    for (const char* name : TELEC_PROPERTIES) {
        // Invisible until telemetry stores a first value and with it a stamp.
        const int index = ourDB->propertyTable->nextIndex();
        ourDB->propertyTable->getRecord(index, true)->nameStrID =
            ourDB->stringPool->getDBIndex(name, true);
    }
}

ZString DB::getStatistics() {
    ZString report;
    report.ensureCapacity(4096);
    long total = 0;
    for (AbstractTable* table : tables) {
        if (table != nullptr) {
            report.append(table->getStatistics(&total));
            report.append("\n");
        }
    }
    appendLine(report, "\ntelemetryLimit=", longToString(telemetryLimit), "\n");
    appendLine(report, "\nprobeTableLengthLimit=", longToString(probeTableLengthLimit), "\n");
    long textBytes = 0;
    stringTable->eachRecord([&](int, const StringRecord& record) {
        textBytes += record.text == nullptr ? 0 : static_cast<long>(strlen(record.text));
    });
    appendLine(report, "\nString bodies: ", getMegaBytesString(textBytes), " MB\n");
    const long indexBytes = threadFrameIndex->getAllocatedBytes();
    appendLine(report, "TFI: ", getMegaBytesString(indexBytes), " MB\n");
    total += textBytes + indexBytes;
    appendLine(report, "\nTotal size: ", getMegaBytesString(total), " MB\n");
    return report;
}

int DB::setProperty(const char* name, int value) {
    const int nameStrID = stringPool->getDBIndex(name, true);
    int index = findPropertyRecordIndex(nameStrID);
    if (index < 0) {
        index = propertyTable->nextIndex();
        propertyTable->getRecord(index, true)->nameStrID = nameStrID;
    }
    PropertyRecord* record = propertyTable->getRecord(index, true);
    record->value = value;
    record->stamp = currentStamp;
    return nameStrID;
}

void DB::setPropertyByRecordIndex(int recordIndex, int value) {
    PropertyRecord* record = propertyTable->getRecord(recordIndex, true);
    if (record->value != value) {
        record->value = value;
        record->stamp = currentStamp;
    }
}

int DB::findPropertyRecordIndex(int nameStrID) {
    // With create: the first six rows have a name, but no stamp at first.
    for (int i = 0; i < propertyTable->getCapacity(); i++) {
        if (propertyTable->getRecord(i, true)->nameStrID == nameStrID) {
            return i;
        }
    }
    return -1;
}

int DB::createUserTableByDescription(const ZString& description) {
    if (nextUserTableIndex == MAX_TABLE_COUNT) {
        return -1;
    }
    UserTable* table = UserTable::create(description);
    if (table == nullptr) {
        return -2;
    }
    tables[nextUserTableIndex] = table;
    return nextUserTableIndex++;
}

bool DB::createUserTableInSlot(int slot, const ZString& description) {
    if (slot < FIRST_USER_TABLE || slot >= MAX_TABLE_COUNT) {
        return false;
    }
    UserTable* table = UserTable::create(description);
    if (table == nullptr) {
        return false;
    }
    delete tables[slot];
    tables[slot] = table;
    if (nextUserTableIndex <= slot) {
        nextUserTableIndex = slot + 1;
    }
    return true;
}

UserTable* DB::getUserTable(int slot) {
    // Only user tables are ever stored behind the core tables.
    return slot < FIRST_USER_TABLE ? nullptr : static_cast<UserTable*>(getTable(slot));
}

void DB::clearTableAndTellReaders(int slot) {
    Logger::assertTrue(slot >= 0 && slot < CORE_TABLE_COUNT, VDK_HERE);
    if (slot == SLOT_J2EE) {
        j2eeIndex->clear();
    } else if (slot == SLOT_ThreadFrame) {
        threadFrameIndex->clearThreadFrameIndex();
    }
    tables[slot]->clearTable();
    tableGenerationTable->setRecordModificationStamp(slot, currentStamp);
}

void DB::addSnapshotRow(const ZString& path, long value) {
    const int index = snapshotTable->nextIndex();
    SnapshotRecord* record = snapshotTable->getRecord(index, true);
    record->pathStrID = stringPool->getDBIndex(path.c_str(), true);
    record->value = value;
    record->stamp = currentStamp;
}

bool DB::hasSnapshotRow(const ZString& path) {
    bool found = false;
    snapshotTable->eachRecord([&](int, const SnapshotRecord& record) {
        const char* text = stringPool->getText(record.pathStrID);
        found = found || (text != nullptr && path == text);
    });
    return found;
}
