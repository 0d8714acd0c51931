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

bool AbstractWriter::writePrimitives(const void* values, int typeChar, int count) {
    switch (typeChar) {
    case 'B':
    case 'Z':
        writeBytes(values, count);
        return true;
    case 'C':
    case 'S':
        for (int i = 0; i < count; i++) {
            writeShort(static_cast<const unsigned short*>(values)[i]);
        }
        return true;
    case 'D':
        for (int i = 0; i < count; i++) {
            writeDouble(static_cast<const double*>(values)[i]);
        }
        return true;
    case 'F':
        for (int i = 0; i < count; i++) {
            writeFloat(static_cast<const float*>(values)[i]);
        }
        return true;
    case 'I':
        for (int i = 0; i < count; i++) {
            writeInt(static_cast<const int*>(values)[i]);
        }
        return true;
    case 'J':
        for (int i = 0; i < count; i++) {
            writeLong(static_cast<const long*>(values)[i]);
        }
        return true;
    default:
        return false;
    }
}
