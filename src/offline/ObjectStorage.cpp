#include "offline/ObjectStorage.h"

#include "offline/MemAllocator.h"

namespace {

// Checked ahead of all tables: rows of the references are one more than there are objects.
int tableRows(RowErrors* rowErrors, int objectCount) {
    if (objectCount < 1 && rowErrors != nullptr) {
        rowErrors->violated("objectCount > 0", objectCount, 0);
    }
    Logger::assertTrue(objectCount > 0 && objectCount < 0x3fffffff, VDK_HERE);
    return objectCount + 1;
}

} // namespace

ObjectStorage::ObjectStorage(RowErrors* rowErrors, int wantedCount, bool withScratch)
    : objectCount(wantedCount), backwardReferences(nullptr),
      references("r", tableRows(rowErrors, wantedCount)), dominators("i"), sizes("ss"),
      retainedSizes("rs"), generations("g"), allocatorFrames("af"), allocatorThreads("at"),
      metaPositions("mp"), metaLengths("ml"), arrayLengths("al"), primitivePositions("po"),
      oidHighParts("ohp"), recordPositions("rp"), recordPositionHighs("rph"), bucketTable(nullptr),
      markBits(nullptr) {
    sizes.setFillValue(-1);
    allocatorThreads.setFillValue(-1);
    arrayLengths.setFillValue(-1);
    if (!withScratch) {
        return;
    }
    // Most nodes never have a bucket: small pages, which stay untouched.
    bucketTable = static_cast<unsigned long*>(
        MemAllocator::allocateZeroed((static_cast<size_t>(objectCount) + 1) * sizeof(long), false));
    try {
        markBits = static_cast<unsigned*>(
            MemAllocator::allocateZeroed(static_cast<size_t>(getMarkWords()) * sizeof(unsigned)));
    } catch (...) {
        deleteBucketTable();
        throw;
    }
}

ObjectStorage::ObjectStorage(int storedCount, StoredColumns* columns)
    : objectCount(storedCount), stored(columns), backwardReferences(nullptr),
      references("r", storedCount, &columns->references), dominators("i"), sizes("ss"),
      retainedSizes("rs"), generations("g"), allocatorFrames("af"), allocatorThreads("at"),
      metaPositions("mp"), metaLengths("ml"), arrayLengths("al"), primitivePositions("po"),
      oidHighParts("ohp"), recordPositions("rp"), recordPositionHighs("rph"), bucketTable(nullptr),
      markBits(nullptr) {
    backwardReferences = new RefTable("brt", storedCount, &columns->backwardReferences);
}

ObjectStorage::~ObjectStorage() {
    deleteBucketTable();
    deleteMarkBits();
    delete backwardReferences;
    delete stored;
    delete otherLengths;
}

void ObjectStorage::ensureRecordPositions(unsigned long fileSize) {
    recordPositions.ensure(objectCount);
    if (fileSize >> 32 != 0) {
        recordPositionHighs.ensure(objectCount);
    }
}

bool ObjectStorage::failIndex(RowErrors* rowErrors, int index) const {
    if (rowErrors != nullptr) {
        if (index <= 0) {
            rowErrors->violated("index > 0", index, 0);
        } else {
            rowErrors->violated("index < myObjectCount", index, objectCount);
        }
    }
    return false;
}

bool ObjectStorage::createObject(RowErrors* rowErrors, int index, int classRow, int generation,
                                 int size, int fieldCount) {
    if (!checkIndex(rowErrors, index)) {
        return false;
    }
    Logger::assertTrue(fieldCount >= 0 && fieldCount < 0x7fffffff, VDK_HERE);
    references.createRefs(index, fieldCount + 1);
    references.setRef(index, classRow, 0);
    generations.setSparsely(index, generation);
    sizes.set(index, size);
    return true;
}

bool ObjectStorage::createPrimArray(RowErrors* rowErrors, int index, int classRow, int length,
                                    int size, int generation) {
    if (!createObject(rowErrors, index, classRow, generation, size, 0)) {
        return false;
    }
    arrayLengths.set(index, length);
    return true;
}

bool ObjectStorage::createObjectArray(RowErrors* rowErrors, int index, int classRow, int generation,
                                      int size, int length) {
    if (!createObject(rowErrors, index, classRow, generation, size, length)) {
        return false;
    }
    arrayLengths.set(index, length);
    return true;
}

bool ObjectStorage::createClass(RowErrors* rowErrors, int index, int generation, int size,
                                int refCount) {
    if (!checkIndex(rowErrors, index)) {
        return false;
    }
    references.createRefs(index, refCount);
    generations.setSparsely(index, generation);
    sizes.set(index, size);
    classRows.push(index);
    return true;
}

void ObjectStorage::setBackwardReferences(RefTable* table) {
    if (table != backwardReferences) {
        delete backwardReferences;
        backwardReferences = table;
    }
}

BigIntArray64* ObjectStorage::arrayOfKind(int readKind) {
    BigIntArray64* const arrays[READ_KIND_COUNT] = {nullptr,          &references.getReferences(),
                                                    &dominators,      &sizes,
                                                    &retainedSizes,   &generations,
                                                    &allocatorFrames, &allocatorThreads,
                                                    &metaPositions,   &metaLengths,
                                                    &arrayLengths,    &primitivePositions,
                                                    &oidHighParts};
    return readKind < 0 || readKind >= READ_KIND_COUNT ? nullptr : arrays[readKind];
}

bool ObjectStorage::readArray(int readKind, const int* data, int from, int to) {
    if (readKind < 0 || readKind >= READ_KIND_COUNT) {
        return false;
    }
    Logger::assertTrue(from >= 0 && from <= to, VDK_HERE);
    BigIntArray64* array = arrayOfKind(readKind);
    if (array == nullptr) {
        fillArray(references.getStartsAndCounts(), data, from, to);
    } else {
        fillArray(*array, data, from, to);
    }
    return true;
}

void ObjectStorage::deleteBucketTable() {
    MemAllocator::release(bucketTable, (static_cast<size_t>(objectCount) + 1) * sizeof(long));
    bucketTable = nullptr;
}

void ObjectStorage::deleteMarkBits() {
    MemAllocator::release(markBits, static_cast<size_t>(getMarkWords()) * sizeof(unsigned));
    markBits = nullptr;
}
