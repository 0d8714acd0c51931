#include "db/AbstractWriter.h"

#include "core/ground/Logger.h"

AbstractWriter::AbstractWriter(int capacity, bool with32BitOIDs, int descriptor)
    : bufferCapacity(capacity), oids32Bit(with32BitOIDs),
      buffer(new unsigned char[static_cast<size_t>(capacity)]), used(0),
      fileDescriptor(descriptor) {}

AbstractWriter::~AbstractWriter() {
    delete[] buffer;
}

void AbstractWriter::makeRoom() {
    flush();
    Logger::assertEquals(used, 0, VDK_HERE);
}

void AbstractWriter::writeFloat(float value) {
    int bits;
    memcpy(&bits, &value, sizeof(bits));
    writeInt(bits);
}

void AbstractWriter::writeDouble(double value) {
    long bits;
    memcpy(&bits, &value, sizeof(bits));
    writeLong(bits);
}

void AbstractWriter::writeBytes(const void* bytes, long count) {
    const unsigned char* from = static_cast<const unsigned char*>(bytes);
    while (count > 0) {
        if (used == bufferCapacity) {
            makeRoom();
        }
        const long room = bufferCapacity - used;
        const long piece = count < room ? count : room;
        memcpy(buffer + used, from, static_cast<size_t>(piece));
        used += static_cast<int>(piece);
        from += piece;
        count -= piece;
    }
}

void AbstractWriter::writeString(const char* text) {
    if (text == nullptr) {
        writeInt(-1);
        return;
    }
    const size_t length = strlen(text);
    Logger::assertTrue(length <= 0x7fffffff, VDK_HERE);
    writeInt(static_cast<int>(length));
    writeBytes(text, static_cast<long>(length));
}

void AbstractWriter::writeWString(int length, const wchar_t* text) {
    writeInt(length);
    for (int i = 0; i < length; i++) {
        writeShort(static_cast<int>(text[i]));
    }
}

int primitiveBytes(int typeLetter) {
    switch (typeLetter) {
    case 'B':
    case 'Z':
        return 1;
    case 'C':
    case 'S':
        return 2;
    case 'F':
    case 'I':
        return 4;
    case 'D':
    case 'J':
        return 8;
    default:
        return 0;
    }
}

namespace {

constexpr bool IS_LITTLE_ENDIAN = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

} // namespace

bool AbstractWriter::writePrimitives(const void* values, int typeChar, int count) {
    const int size = primitiveBytes(typeChar);
    if (IS_LITTLE_ENDIAN) {
        writeBytes(values, static_cast<long>(count) * size);
        return size != 0;
    }
    const unsigned char* element = static_cast<const unsigned char*>(values);
    for (int i = 0; i < count; i++, element += size) {
        for (int at = size - 1; at >= 0; at--) {
            writeByte(element[at]);
        }
    }
    return size != 0;
}
