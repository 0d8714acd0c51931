#pragma once

#include "core/ground/ZVector.h"
#include "db/SnapshotWriter.h"
#include "snapshot/ObjectTable.h"

#include <jvmti.h>

class Progress;

// PrimitiveBlock collects the primitive values of a heap and writes them: the regions of the
// objects one behind the other, and a table that tells where each stands.
//
// Collected regions wait in memory, and in the scratch file once they are many. The JVM gives the
// fields of an object one right after the other, so the region of the object at hand is put there
// when it is complete. A value for a region that was put there before is stored at its place.
class PrimitiveBlock {
public:
    explicit PrimitiveBlock(int scratch);
    PrimitiveBlock(const PrimitiveBlock&) = delete;
    PrimitiveBlock& operator=(const PrimitiveBlock&) = delete;

    // A field's value in the object's region of so many bytes, zeros where no value is given.
    void putField(int index, int regionBytes, int offset, const jvalue& value,
                  jvmtiPrimitiveType type);
    // The elements of an array. The first call for an object counts.
    void putArray(int index, jint count, jvmtiPrimitiveType type, const void* elements);
    // Writes the block, for objects with indices up to the highest, and the error of collecting it
    // if there was one; ends with that. Progress goes from one value to the other.
    void writeTo(SnapshotWriter& writer, int highestIndex, Progress& progress, int progressFrom,
                 int progressTo);

private:
    void flushRegion();
    void beginRegion(int index, int regionBytes);
    void patchRegion(int index, int offset, const unsigned char* bytes, int count);
    void writeOffsets(SnapshotWriter& writer, long from, int count, long dataPosition) const;

    HeldSnapshotWriter collected;
    long expectedSize;
    ObjectTable primitiveOffsets; // among what was collected, of objects with data
    int regionIndex;              // object whose region is at hand, 0 for none
    ZVector<unsigned char> region;
};

// Bytes of a value of the type as it stands in a file, by its letter; a boolean is 1 or 0. Gives
// their number, 0 for an unknown type.
int writeJValue(unsigned char* to, const jvalue& value, jvmtiPrimitiveType type);
