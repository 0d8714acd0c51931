#pragma once

#include "core/ground/ZVector.h"

#include <jvmti.h>

class Progress;
class SnapshotWriter;

// PrimitiveBlock writes the primitive values of a heap: the regions of the objects one behind the
// other, and a table that tells where each stands.
//
// The JVM gives the fields of an object one right after the other, so the region of the object at
// hand waits in memory and is written once it is complete. A value for a region that was written
// before is put into the file at its place.
class PrimitiveBlock {
public:
    // Begins the block. Objects have the indices from 1 to objectCount.
    PrimitiveBlock(SnapshotWriter& snapshotWriter, int objectCount);
    ~PrimitiveBlock();
    PrimitiveBlock(const PrimitiveBlock&) = delete;
    PrimitiveBlock& operator=(const PrimitiveBlock&) = delete;

    // A field's value in the object's region of so many bytes, zeros where no value is given.
    void putField(int index, int regionBytes, int offset, const jvalue& value,
                  jvmtiPrimitiveType type);
    // The elements of an array. The first call for an object counts.
    void putArray(int index, jint count, jvmtiPrimitiveType type, const void* elements);
    // Ends the block. Progress goes from one value to the other.
    void end(Progress& progress, int progressFrom, int progressTo);

private:
    void flushRegion();
    void beginRegion(int index, int regionBytes);
    void patchRegion(int index, int offset, const unsigned char* bytes, int count);

    SnapshotWriter& writer;
    int highestIndex;
    long sizePosition; // of the placeholder ahead of the data
    long expectedSize;
    long* primitiveOffsets; // by index, 0 for an object without data
    int regionIndex;        // object whose region waits, 0 for none
    ZVector<unsigned char> region;
};

// Bytes of a value of the type as it stands in a file, by its letter; a boolean is 1 or 0. Gives
// their number, 0 for an unknown type.
int writeJValue(unsigned char* to, const jvalue& value, jvmtiPrimitiveType type);
