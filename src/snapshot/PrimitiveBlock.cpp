#include "snapshot/PrimitiveBlock.h"

#include "core/ground/Logger.h"
#include "db/HeapRecords.h"
#include "db/Progress.h"
#include "db/SnapshotWriter.h"
#include "snapshot/ClassInfo.h"

#include <cstring>

namespace {

constexpr int SIZE_BYTES = 8;
constexpr int LARGEST_VALUE = 8;
constexpr int ALIGNMENT = 8;
constexpr long PIECE = 0x10000;

int putLittleEndian(unsigned char* to, unsigned long bits, int count) {
    for (int i = 0; i < count; i++) {
        to[i] = static_cast<unsigned char>(bits >> (8 * i));
    }
    return count;
}

} // namespace

int writeJValue(unsigned char* to, const jvalue& value, jvmtiPrimitiveType type) {
    switch (type) {
    case JVMTI_PRIMITIVE_TYPE_BOOLEAN:
        return putLittleEndian(to, value.z == JNI_TRUE ? 1 : 0, 1);
    case JVMTI_PRIMITIVE_TYPE_BYTE:
        return putLittleEndian(to, static_cast<unsigned char>(value.b), 1);
    case JVMTI_PRIMITIVE_TYPE_CHAR:
        return putLittleEndian(to, value.c, 2);
    case JVMTI_PRIMITIVE_TYPE_SHORT:
        return putLittleEndian(to, static_cast<unsigned short>(value.s), 2);
    case JVMTI_PRIMITIVE_TYPE_INT:
        return putLittleEndian(to, static_cast<unsigned>(value.i), 4);
    case JVMTI_PRIMITIVE_TYPE_LONG:
        return putLittleEndian(to, static_cast<unsigned long>(value.j), 8);
    case JVMTI_PRIMITIVE_TYPE_FLOAT: {
        unsigned bits;
        memcpy(&bits, &value.f, sizeof(bits));
        return putLittleEndian(to, bits, 4);
    }
    case JVMTI_PRIMITIVE_TYPE_DOUBLE: {
        unsigned long bits;
        memcpy(&bits, &value.d, sizeof(bits));
        return putLittleEndian(to, bits, 8);
    }
    }
    return 0;
}

PrimitiveBlock::PrimitiveBlock(SnapshotWriter& snapshotWriter, int objectCount)
    : writer(snapshotWriter), highestIndex(objectCount), sizePosition(0), expectedSize(0),
      primitiveOffsets(new long[static_cast<size_t>(objectCount) + 1]()), regionIndex(0),
      region(256) {
    writer.writeByte(HEAP_RECORD_PRIMITIVES);
    sizePosition = writer.getPosition();
    writer.writeLong(0);
}

PrimitiveBlock::~PrimitiveBlock() {
    delete[] primitiveOffsets;
}

void PrimitiveBlock::flushRegion() {
    if (regionIndex != 0) {
        writer.writeBytes(region.data(), region.getSize());
        regionIndex = 0;
    }
}

void PrimitiveBlock::beginRegion(int index, int regionBytes) {
    flushRegion();
    primitiveOffsets[index] = writer.getPosition();
    expectedSize += regionBytes;
    regionIndex = index;
    region.clear();
    memset(region.extend(regionBytes), 0, static_cast<size_t>(regionBytes));
}

void PrimitiveBlock::patchRegion(int index, int offset, const unsigned char* bytes, int count) {
    for (int i = 0; i < count; i++) {
        writer.patchByte(primitiveOffsets[index] + offset + i, bytes[i]);
    }
}

void PrimitiveBlock::putField(int index, int regionBytes, int offset, const jvalue& value,
                              jvmtiPrimitiveType type) {
    unsigned char bytes[LARGEST_VALUE];
    const int count = writeJValue(bytes, value, type);
    if (offset < 0 || offset > regionBytes - count) {
        return;
    }
    if (index != regionIndex && primitiveOffsets[index] != 0) {
        patchRegion(index, offset, bytes, count);
        return;
    }
    if (index != regionIndex) {
        beginRegion(index, regionBytes);
    }
    memcpy(&region[offset], bytes, static_cast<size_t>(count));
}

void PrimitiveBlock::putArray(int index, jint count, jvmtiPrimitiveType type,
                              const void* elements) {
    if (primitiveOffsets[index] != 0) {
        return;
    }
    flushRegion();
    primitiveOffsets[index] = writer.getPosition();
    expectedSize += static_cast<long>(count) * primitiveBytes(type);
    writer.writePrimitives(elements, type, count);
}

void PrimitiveBlock::end(Progress& progress, int progressFrom, int progressTo) {
    flushRegion();
    const long actual = writer.getPosition() - sizePosition - SIZE_BYTES;
    if (actual != expectedSize) {
        Logger::message(ZString("warning: primitive block size mismatch: actualCount=") +
                        longToString(actual) + " expected=" + longToString(expectedSize) +
                        " diff=" + longToString(actual - expectedSize));
    }
    writer.patchLong(sizePosition, expectedSize);
    writer.writeInt(highestIndex + 1);
    while (writer.getPosition() % ALIGNMENT != 0) {
        writer.writeByte(0);
    }
    const long steps = progressTo - progressFrom;
    for (long i = 0; i <= highestIndex; i += PIECE) {
        const long left = highestIndex + 1L - i;
        writer.writePrimitives(primitiveOffsets + i, 'J',
                               static_cast<int>(left < PIECE ? left : PIECE));
        progress.updateProgress(progressFrom + static_cast<int>(i * steps / (highestIndex + 1L)));
    }
    progress.updateProgress(progressTo);
}
