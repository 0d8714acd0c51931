#pragma once

#include "core/ground/ZString.h"
#include "db/IndexPool.h"

class AbstractWriter;
class Progress;

// AbstractTable is the base of all tables of a DB. A row begins with its modification stamp: 0
// absent, positive live and last changed at that stamp, negative deleted at the absolute value.
// Tables have no lock: the database's owner does (ourLock for ourDB, and the lock of
// ObjectEnumerator for the allocator table).
class AbstractTable {
public:
    explicit AbstractTable(int firstIndex) : indexPool(firstIndex) {}
    virtual ~AbstractTable() = default;
    AbstractTable(const AbstractTable&) = delete;
    AbstractTable& operator=(const AbstractTable&) = delete;

    // Writes the number of rows changed after `stamp`, deleted ones included, and these rows in
    // ascending order. Reports to `progress` on the scale from progressFrom to progressTo.
    virtual void writeTable(AbstractWriter& writer, int stamp, int progressFrom, int progressTo,
                            Progress* progress) = 0;
    // Upper bound of all row indices: the end of every loop over a table. Not a count.
    virtual int getCapacity() const = 0;
    // Index of the first slot of the first chunk that exists, be it used or not; -1 if there is
    // none.
    virtual int getMinIndex() const = 0;
    // The row's stamp; 0 if it is absent or beyond the capacity.
    virtual int getRecordModificationStamp(int index) = 0;
    // Makes the row if need be. The index must not be negative.
    virtual void setRecordModificationStamp(int index, int stamp) = 0;
    // Back to the state after construction; only the chunk pointer array keeps its size. Readers
    // learn of it from the tablegeneration table, which the caller writes.
    virtual void clearTable() = 0;
    // Report line without newline; adds the bytes held to *total.
    virtual ZString getStatistics(long* total) = 0;

    int nextIndex() { return indexPool.nextIndex(); }
    int peekNextIndex() const { return indexPool.peekNextIndex(); }
    void releaseIndex(int index) { indexPool.releaseIndex(index); }
    void clearIndexPool() { indexPool.clearIndexPool(); }
    IndexPool& getIndexPool() { return indexPool; }

private:
    IndexPool indexPool;
};
