#pragma once

#include "offline/RefTable.h"

// Told of a row or object that an operation can't take. The text names the violated condition, such
// as "index > 0"; a and b are its two sides. Called before anything is changed.
class RowErrors {
public:
    virtual ~RowErrors() = default;
    virtual void violated(const char* condition, int a, int b) = 0;
};

// Keep in sync with the reader of com.vandrik.Natives: the arrays by number, in the order of files.
enum ReadKind {
    READ_START_COUNT = 0,
    READ_REFERENCES = 1,
    READ_DOMINATORS = 2,
    READ_SIZES = 3,
    READ_RETAINED_SIZES = 4,
    READ_GENERATIONS = 5,
    READ_ALLOCATOR_FRAMES = 6,
    READ_ALLOCATOR_THREADS = 7,
    READ_META_POSITIONS = 8,
    READ_META_LENGTHS = 9,
    READ_ARRAY_LENGTHS = 10,
    READ_PRIMITIVE_POSITIONS = 11,
    READ_OID_HIGH_PARTS = 12,
    READ_KIND_COUNT = 13
};

// Where the lengths of arrays come from that no row of a storage has set.
class ArrayLengths {
public:
    virtual ~ArrayLengths() = default;
    // -1 for a non-array. Any number of threads may ask.
    virtual int arrayLength(int row) const = 0;
};

// ObjectStorage: the column store of a heap: one row an object, one paged array an attribute, and a
// table of references. A row's number, from 1 below the object count, is the object's identity in
// all algorithms; row 0 is reserved. The first reference of an instance or array is its class.
//
// Filling it: make it with the number of rows plus one, then either row by row with the create
// operations and setRef, or from several threads by
//     getReferences().reserve(total); getSizes().ensure(count); ...
// once, and for each row setList, setRefAt, setSize, ... where each row belongs to one thread. No
// operation allocates for a row; pages are the only allocations. Then computeBackwardReferences,
// DominatorComputer, calculateRetainedSizes, or all of it through analyzeHeap.
//
// No locks: one thread at a time, but for the bulk fill and for any number of readers.
class ObjectStorage {
public:
    // rowErrors may be null. withScratch makes the tables that DominatorComputer needs. An
    // objectCount below 1 is reported and an internal error. Throws std::bad_alloc.
    ObjectStorage(RowErrors* rowErrors, int objectCount, bool withScratch);
    ObjectStorage(int objectCount, bool withScratch)
        : ObjectStorage(nullptr, objectCount, withScratch) {}
    // A storage of columns that a file has, backward references included. It owns them once it is
    // made. Nothing can be set.
    ObjectStorage(int objectCount, StoredColumns* columns);
    ~ObjectStorage();
    ObjectStorage(const ObjectStorage&) = delete;
    ObjectStorage& operator=(const ObjectStorage&) = delete;

    // Rows: false, reported to rowErrors (which may be null), and nothing changed for a bad index.
    bool checkIndex(RowErrors* rowErrors, int index) const {
        return (index > 0 && index < objectCount) || failIndex(rowErrors, index);
    }
    bool createObject(RowErrors* rowErrors, int index, int classRow, int generation, int size,
                      int fieldCount);
    bool createPrimArray(RowErrors* rowErrors, int index, int classRow, int length, int size,
                         int generation);
    bool createObjectArray(RowErrors* rowErrors, int index, int classRow, int generation, int size,
                           int length);
    bool createClass(RowErrors* rowErrors, int index, int generation, int size, int refCount);

    // Valid rows are 1 to getObjectCount() - 1.
    int getObjectCount() const { return objectCount; }
    RefTable& getReferences() { return references; }
    const RefTable& getReferences() const { return references; }
    // The referrers of each row; null until they were computed or loaded.
    RefTable* getBackwardReferences() const { return backwardReferences; }
    // The columns of a file that answer for this storage; null if it has its own.
    const StoredColumns* getStored() const { return stored; }
    // Takes ownership; the table before it, if any, is deleted.
    void setBackwardReferences(RefTable* table);

    int getRef(int row, int position) const { return references.getRef(row, position); }
    void setRef(int row, int reference, int position) {
        references.setRef(row, reference, position);
    }
    int getRefCount(int row) const { return references.getCount(row); }

    // Attributes. The row is the caller's to check; a negative one is an internal error.
    int getDominator(int row) const {
        return stored != nullptr ? stored->dominator(row) : dominators.get(row);
    }
    void setDominator(int row, int value) { dominators.set(row, value); }
    // Bytes, -1 for a row never made.
    int getSize(int row) const {
        return stored != nullptr ? StoredColumns::narrow(stored->sizes, row) : sizes.get(row);
    }
    void setSize(int row, int value) { sizes.set(row, value); }
    long getRetainedSize(int row) const {
        return stored != nullptr ? stored->retainedSizes.get(row) : retainedSizes.getLong(row);
    }
    void setRetainedSize(int row, long value) { retainedSizes.setLong(row, value); }
    int getGeneration(int row) const {
        return stored != nullptr ? StoredColumns::optional(stored->generations, row, 0)
                                 : generations.get(row);
    }
    int getAllocatorFrame(int row) const {
        return stored != nullptr ? StoredColumns::optional(stored->allocatorFrames, row, 0)
                                 : allocatorFrames.get(row);
    }
    int getAllocatorThread(int row) const {
        return stored != nullptr ? StoredColumns::optional(stored->allocatorThreads, row, -1)
                                 : allocatorThreads.get(row);
    }
    void setAllocator(int row, int frame, int thread) {
        allocatorFrames.set(row, frame);
        allocatorThreads.set(row, thread);
    }
    // Where the row's record begins in the file that was read. The high halves take memory only in
    // files beyond 4 GB. ensureRecordPositions makes all of it ahead of a fill by several threads.
    long getRecordPosition(int row) const {
        if (stored != nullptr) {
            return static_cast<long>(stored->recordPositions.get(row));
        }
        const unsigned long high = static_cast<unsigned>(recordPositionHighs.get(row));
        return static_cast<long>(high << 32 | static_cast<unsigned>(recordPositions.get(row)));
    }
    void setRecordPosition(int row, long position) {
        recordPositions.set(row, static_cast<int>(position));
        if (position >> 32 != 0) {
            recordPositionHighs.set(row, static_cast<int>(position >> 32));
        }
    }
    void ensureRecordPositions(unsigned long fileSize);
    long getMetaPosition(int row) const { return metaPositions.getLong(row); }
    int getMetaLength(int row) const { return metaLengths.get(row); }
    void setMeta(int row, long position, int length) {
        metaPositions.setLong(row, position);
        metaLengths.set(row, length);
    }
    // -1 for a non-array.
    int getArrayLength(int row) const {
        if (stored != nullptr) {
            return StoredColumns::narrow(stored->arrayLengths, row);
        }
        const int own = arrayLengths.get(row);
        return own == -1 && otherLengths != nullptr ? otherLengths->arrayLength(row) : own;
    }
    // Takes ownership.
    void setOtherLengths(const ArrayLengths* lengths) {
        delete otherLengths;
        otherLengths = lengths;
    }
    void setArrayLength(int row, int value) { arrayLengths.set(row, value); }
    long getPrimitiveDataPosition(int row) const {
        return stored != nullptr ? static_cast<long>(stored->primitivePositions.get(row))
                                 : primitivePositions.getLong(row);
    }
    void setPrimitiveDataPosition(int row, long value) { primitivePositions.setLong(row, value); }
    int getOIDHighPart(int row) const { return oidHighParts.get(row); }
    void setOIDHighPart(int row, int value) { oidHighParts.set(row, value); }

    // The paged array of a ReadKind from READ_REFERENCES on; null for any other number.
    BigIntArray64* arrayOfKind(int readKind);
    // Stores data[i - from] at element i of the array of that kind. False, and nothing done, for a
    // number that is no kind. A stretch that the array can't hold is an internal error.
    bool readArray(int readKind, const int* data, int from, int to);

    // Rows made by createClass or added here, in that order: written to the index of a file.
    ZVector<int>& getClassRows() { return classRows; }

    // Sums the shallow sizes up the dominator tree into the retained sizes, which must be
    // untouched. Every row gets its retained size; one without a dominator its own size and what it
    // dominates.
    void calculateRetainedSizes();

    // Scratch tables of DominatorComputer; null when they weren't asked for or are used up.
    unsigned long* getBucketTable() const { return bucketTable; }
    unsigned* getMarkBits() const { return markBits; }
    int getMarkWords() const { return objectCount / 32 + 1; }
    void deleteBucketTable();
    void deleteMarkBits();

private:
    bool failIndex(RowErrors* rowErrors, int index) const;

    int objectCount;
    StoredColumns* stored = nullptr;
    const ArrayLengths* otherLengths = nullptr;
    RefTable* backwardReferences;
    RefTable references;
    BigIntArray64 dominators;
    BigIntArray64 sizes;
    BigIntArray64 retainedSizes;
    BigIntArray64 generations;
    BigIntArray64 allocatorFrames;
    BigIntArray64 allocatorThreads;
    BigIntArray64 metaPositions;
    BigIntArray64 metaLengths;
    BigIntArray64 arrayLengths;
    BigIntArray64 primitivePositions;
    BigIntArray64 oidHighParts;
    BigIntArray64 recordPositions; // low halves
    BigIntArray64 recordPositionHighs;
    // By node: 0 for an empty bucket, its one member, or a ZSet<int>* if the node's mark bit is
    // set.
    unsigned long* bucketTable;
    unsigned* markBits;
    ZVector<int> classRows;
};
