#include "snapshot/PrimitiveBlock.h"

#include "core/ground/Logger.h"
#include "db/HeapRecords.h"
#include "db/Progress.h"
#include "snapshot/ClassInfo.h"

#include <cstring>

namespace {

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

PrimitiveBlock::PrimitiveBlock(int scratch)
    : collected(scratch), expectedSize(0), regionIndex(0), region(256) {}

void PrimitiveBlock::flushRegion() {
    if (regionIndex != 0) {
        collected.writeBytes(region.data(), region.getSize());
        regionIndex = 0;
    }
}

void PrimitiveBlock::beginRegion(int index, int regionBytes) {
    flushRegion();
    primitiveOffsets.add(index, static_cast<uintptr_t>(collected.getPosition()));
    expectedSize += regionBytes;
    regionIndex = index;
    region.clear();
    memset(region.extend(regionBytes), 0, static_cast<size_t>(regionBytes));
}

void PrimitiveBlock::patchRegion(int index, int offset, const unsigned char* bytes, int count) {
    for (int i = 0; i < count; i++) {
        collected.patchByte(static_cast<long>(primitiveOffsets.get(index)) + offset + i, bytes[i]);
    }
}

void PrimitiveBlock::putField(int index, int regionBytes, int offset, const jvalue& value,
                              jvmtiPrimitiveType type) {
    unsigned char bytes[LARGEST_VALUE];
    const int count = writeJValue(bytes, value, type);
    if (offset < 0 || offset > regionBytes - count) {
        return;
    }
    if (index != regionIndex && primitiveOffsets.contains(index)) {
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
    if (primitiveOffsets.contains(index)) {
        return;
    }
    flushRegion();
    primitiveOffsets.add(index, static_cast<uintptr_t>(collected.getPosition()));
    expectedSize += static_cast<long>(count) * primitiveBytes(type);
    collected.writePrimitives(elements, type, count);
}

void PrimitiveBlock::writeOffsets(SnapshotWriter& writer, long from, int count,
                                  long dataPosition) const {
    ZVector<long> piece(count);
    for (int i = 0; i < count; i++) {
        const int index = static_cast<int>(from + i);
        const bool hasData = primitiveOffsets.contains(index);
        piece.push(hasData ? dataPosition + static_cast<long>(primitiveOffsets.get(index)) : 0);
    }
    writer.writePrimitives(piece.data(), 'J', count);
}

void PrimitiveBlock::writeTo(SnapshotWriter& writer, int highestIndex, Progress& progress,
                             int progressFrom, int progressTo) {
    flushRegion();
    const long actual = collected.getPosition();
    if (actual != expectedSize) {
        Logger::message(ZString("warning: primitive block size mismatch: actualCount=") +
                        longToString(actual) + " expected=" + longToString(expectedSize) +
                        " diff=" + longToString(actual - expectedSize));
    }
    writer.writeByte(HEAP_RECORD_PRIMITIVES);
    writer.writeLong(expectedSize);
    const long dataPosition = writer.getPosition();
    collected.moveTo(writer);
    writer.writeInt(highestIndex + 1);
    while (writer.getPosition() % ALIGNMENT != 0) {
        writer.writeByte(0);
    }
    const long steps = progressTo - progressFrom;
    for (long i = 0; i <= highestIndex; i += PIECE) {
        const long left = highestIndex + 1L - i;
        writeOffsets(writer, i, static_cast<int>(left < PIECE ? left : PIECE), dataPosition);
        progress.updateProgress(progressFrom + static_cast<int>(i * steps / (highestIndex + 1L)));
    }
    progress.updateProgress(progressTo);
}
