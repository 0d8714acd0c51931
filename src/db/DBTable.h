#pragma once

#include "core/ground/Logger.h"
#include "db/AbstractTable.h"
#include "db/AbstractWriter.h"
#include "db/Progress.h"
#include "db/Records.h"
#include "db/TableStatistics.h"
#include "db/ZIntChunkMap.h"

// DBTable<T>: a table of records of type T (Records.h), addressed by row index.
//
// A new row is made by nextIndex() and getRecord(index, true); the caller fills the fields and last
// of all stores the database's current stamp in the first word. Deleting means neutral fields, the
// negated current stamp and releaseIndex. A record pointer stays valid as long as the table is not
// cleared. Locking as in AbstractTable.
template <typename T>
class DBTable : public AbstractTable {
public:
    DBTable(const char* tableName, int firstIndex, int capacity);

    // The row of a non-negative index. Without create null for an absent row; with create always a
    // usable record, whose stamp is 0 until the caller stores one.
    T* getRecord(int index, bool create) {
        Logger::assertTrue(index >= 0, VDK_HERE);
        return records.getPtr(index, create);
    }
    // The slot of an index without any lock, or null if its chunk was never made; what it holds may
    // be absent or change at any time. Only for a table whose capacity was reserved at
    // construction.
    T* getRecordUnlocked(int index) const { return records.getPtrUnlocked(index); }

    void writeTable(AbstractWriter& writer, int stamp, int progressFrom, int progressTo,
                    Progress* progress) override;
    int getCapacity() const override { return records.getCapacity(); }
    int getMinIndex() const override {
        return records.getChunkCount() < 1 ? -1 : records.getMinKey();
    }
    int getRecordModificationStamp(int index) override;
    void setRecordModificationStamp(int index, int stamp) override {
        Logger::assertTrue(index >= 0, VDK_HERE);
        records.getPtr(index, true)->stamp = stamp;
    }
    void clearTable() override {
        clearIndexPool();
        records.freeAllChunks();
    }
    ZString getStatistics(long* total) override;

    const ZString& getName() const { return name; }
    ZIntChunkMap<T>& getRecords() { return records; }
    // Calls visitor(index, record) for every present row, deleted ones included, in ascending
    // order. The visitor may change the row and may add rows.
    template <typename Visitor>
    void eachRecord(Visitor&& visitor);
    // Calls visitor(record) for every slot that has memory, whatever its stamp. Gives their number.
    template <typename Visitor>
    long eachSlot(Visitor&& visitor);

private:
    ZIntChunkMap<T> records;
    ZString name;
};

// Encodes the fields of a record behind its stamp.
struct FieldWriter {
    AbstractWriter& writer;
    void operator()(int, int value) { writer.writeInt(value); }
    void operator()(int, long value) { writer.writeLong(value); }
    void operator()(int, const char* value) { writer.writeString(value); }
    void operator()(int, const TelemetryValues& values) {
        for (int value : values.value) {
            writer.writeInt(value);
        }
    }
};

// True if a row with this stamp changed after `since`, be it live or deleted.
inline bool isNewerStamp(int stamp, int since) {
    return (stamp < 0 ? -static_cast<long>(stamp) : stamp) > since;
}

// Implementation

template <typename T>
DBTable<T>::DBTable(const char* tableName, int firstIndex, int capacity)
    : AbstractTable(firstIndex),
      records((Logger::assertTrue(capacity >= 1, VDK_HERE), capacity), T()), name(tableName) {}

template <typename T>
template <typename Visitor>
void DBTable<T>::eachRecord(Visitor&& visitor) {
    for (int chunk = records.getFirstChunk(); chunk < records.getChunkCount(); chunk++) {
        if (records.chunkAt(chunk) == nullptr) {
            continue;
        }
        for (int slot = 0; slot < ZIntChunkMap<T>::CHUNK_SIZE; slot++) {
            T& record = records.chunkAt(chunk)[slot];
            if (records.isPresent(record)) {
                visitor((chunk << ZIntChunkMap<T>::CHUNK_SHIFT) + slot, record);
            }
        }
    }
}

template <typename T>
template <typename Visitor>
long DBTable<T>::eachSlot(Visitor&& visitor) {
    long visited = 0;
    for (int chunk = records.getFirstChunk(); chunk < records.getChunkCount(); chunk++) {
        const T* slots = records.chunkAt(chunk);
        for (int slot = 0; slots != nullptr && slot < ZIntChunkMap<T>::CHUNK_SIZE; slot++) {
            visitor(slots[slot]);
            visited++;
        }
    }
    return visited;
}

template <typename T>
void DBTable<T>::writeTable(AbstractWriter& writer, int stamp, int progressFrom, int progressTo,
                            Progress* progress) {
    // Rows of allocator leave the process in heap snapshots only, in a form of their own.
    Logger::assertTrue(RecordTraits<T>::slot != SLOT_Allocator, VDK_HERE);
    Logger::assertNotNULL(progress, VDK_HERE);
    int count = 0;
    eachRecord([&](int, const T& record) { count += isNewerStamp(record.stamp, stamp); });
    writer.writeInt(count);
    if (count < 1) {
        return;
    }
    int written = 0;
    const double scale = static_cast<double>(progressTo - progressFrom);
    eachRecord([&](int index, T& record) {
        if (!isNewerStamp(record.stamp, stamp)) {
            return;
        }
        writer.writeInt(index);
        writer.writeInt(record.stamp);
        RecordTraits<T>::eachField(record, FieldWriter{writer});
        progress->updateProgress(progressFrom + static_cast<int>(scale * written / count));
        written++;
    });
}

template <typename T>
int DBTable<T>::getRecordModificationStamp(int index) {
    if (index < 0 || index >= records.getCapacity()) {
        return 0;
    }
    const T* record = records.getPtr(index, false);
    return record == nullptr ? 0 : record->stamp;
}

template <typename T>
ZString DBTable<T>::getStatistics(long* total) {
    const long bytes = records.getAllocatedBytes();
    *total += bytes;
    int live = 0;
    eachRecord([&](int, const T& record) { live += record.stamp > 0; });
    return getTableStatistics(name.c_str(), live, getCapacity(), bytes);
}
