#include "profiling/memory/LiveAllocations.h"

#include "core/ground/Globals.h"
#include "core/ground/ZMap.h"
#include "db/DB.h"
#include "profiling/memory/ObjectEnumerator.h"

namespace {

const char DESCRIPTION[] =
    "Live Allocations\n4\nthread\n0\nframe\n0\nlive_objects\n1\nlive_bytes\n1\n";
enum Column { THREAD_COLUMN, FRAME_COLUMN, OBJECTS_COLUMN, BYTES_COLUMN };

// Slot of the table: 0 before it was made, negative when it could not be.
int ourTable = 0;
// Row by thread and frame, plus 1.
ZMap<long, int>& ourRows = *new ZMap<long, int>(ZVECTOR_DEFAULT_CAPACITY);

long keyOf(int trn, int frame) {
    return static_cast<long>(static_cast<unsigned long>(static_cast<unsigned>(trn)) << 32 |
                             static_cast<unsigned>(frame));
}

class Counting {
public:
    explicit Counting(UserTable* userTable) : table(userTable) {}

    void add(const AllocatorRecord& row, const AllocationWorth& worth) {
        const long key = keyOf(row.trn, row.frame);
        // Objects of one loop stand in a row.
        if (key != lastKey) {
            lastRow = rowOf(key, row);
            lastKey = key;
        }
        sums[lastRow].objects += worth.objects;
        sums[lastRow].bytes += worth.bytes();
    }

    void store() {
        for (int i = 0; i < table->getCapacity(); i++) {
            int* row = table->getRecord(i, false);
            if (row != nullptr && row[0] >= 0) {
                storeRow(row, i, i < sums.getSize() ? sums[i] : Sum());
            }
        }
    }

private:
    struct Sum {
        long objects = 0;
        long bytes = 0;
    };

    int rowOf(long key, const AllocatorRecord& from) {
        int index = ourRows.get(key) - 1;
        if (index < 0) {
            index = table->nextIndex();
            int* row = table->getRecord(index, true);
            table->setIntColumn(row, THREAD_COLUMN, from.trn);
            table->setIntColumn(row, FRAME_COLUMN, from.frame);
            row[0] = ourDB->currentStamp;
            ourRows.put(key, index + 1);
        }
        while (sums.getSize() <= index) {
            sums.push(Sum());
        }
        return index;
    }

    void storeRow(int* row, int index, const Sum& sum) {
        if (sum.objects == 0) {
            ourRows.remove(keyOf(table->getIntColumn(row, THREAD_COLUMN),
                                 table->getIntColumn(row, FRAME_COLUMN)));
            table->deleteRow(index, ourDB->currentStamp);
            return;
        }
        if (table->getLongColumn(row, OBJECTS_COLUMN) != sum.objects ||
            table->getLongColumn(row, BYTES_COLUMN) != sum.bytes) {
            table->setLongColumn(row, OBJECTS_COLUMN, sum.objects);
            table->setLongColumn(row, BYTES_COLUMN, sum.bytes);
            row[0] = ourDB->currentStamp;
        }
    }

    UserTable* table;
    ZVector<Sum> sums;
    long lastKey = -1;
    int lastRow = 0;
};

} // namespace

void LiveAllocations::start() {
    if (ourTable == 0) {
        ourTable = ourDB->createUserTableByDescription(DESCRIPTION);
    }
}

int LiveAllocations::getTable() {
    return ourTable;
}

void LiveAllocations::bringUpToDate() {
    UserTable* const table = ourTable > 0 ? ourDB->getUserTable(ourTable) : nullptr;
    if (table == nullptr) {
        return;
    }
    Counting counting(table);
    ourObjectEnumerator.eachLive([&](const AllocatorRecord& row, const AllocationWorth& worth) {
        // Without a frame its origin was cleared.
        if (row.frame > 0) {
            counting.add(row, worth);
        }
    });
    counting.store();
}

void LiveAllocations::clear() {
    ourRows.clear();
    UserTable* const table = ourTable > 0 ? ourDB->getUserTable(ourTable) : nullptr;
    if (table != nullptr) {
        table->deleteLiveRows(ourDB->currentStamp);
    }
}

void LiveAllocations::reset() {
    ourTable = 0;
    ourRows.clear();
}
