#pragma once

#include <cstring>

// Bytes of a primitive by its type letter; 0 for any other letter.
int primitiveBytes(int typeLetter);

// AbstractWriter: buffered little-endian output of tables, snapshots and heap sections.
//
// DESCRIPTION
//   All primitives are little-endian whatever the platform. Bytes collect in a buffer of fixed size
//   that is flushed when it is full and another byte arrives, so the bytes reach flush() in pieces
//   of exactly that size, apart from the last. Nothing here locks.
// IMPLEMENTATION
//   Only flush() is virtual. A value that fits into the rest of the buffer is stored in one go; one
//   that does not goes byte by byte, so that the pieces are the same.
class AbstractWriter {
public:
    // Hands the buffered bytes to the file or socket and empties the buffer, in every case.
    virtual void flush() = 0;
    virtual ~AbstractWriter();
    AbstractWriter(const AbstractWriter&) = delete;
    AbstractWriter& operator=(const AbstractWriter&) = delete;

    // The low 8 bits.
    void writeByte(int value) {
        if (used == bufferCapacity) {
            makeRoom();
        }
        buffer[used++] = static_cast<unsigned char>(value);
    }
    // The low 16 bits.
    void writeShort(int value) { writeBits<2>(static_cast<unsigned>(value)); }
    void writeInt(int value) { writeBits<4>(static_cast<unsigned>(value)); }
    void writeLong(long value) { writeBits<8>(static_cast<unsigned long>(value)); }
    // The bits of the value as an int.
    void writeFloat(float value);
    // The bits of the value as a long.
    void writeDouble(double value);
    // An object id: an int or a long, as the writer was made.
    void writeOID(long value) {
        if (oids32Bit) {
            writeInt(static_cast<int>(value));
        } else {
            writeLong(value);
        }
    }
    // Length as an int and the bytes, without terminator; -1 alone for null.
    void writeString(const char* text);
    // Length as an int, then the low and the next byte of each character.
    void writeWString(int length, const wchar_t* text);
    // `count` elements by Java type letter (B C D F I J S Z). False, and nothing written, for any
    // other letter.
    bool writePrimitives(const void* values, int typeChar, int count);
    void writeBytes(const void* bytes, long count);

    int getFileDescriptor() const { return fileDescriptor; }
    bool has32BitOIDs() const { return oids32Bit; }
    // Bytes that wait in the buffer.
    int getUsed() const { return used; }

protected:
    AbstractWriter(int capacity, bool with32BitOIDs, int descriptor);

    int bufferCapacity;
    bool oids32Bit;
    unsigned char* buffer;
    int used;
    int fileDescriptor;

private:
    void makeRoom();

    template <int BYTES>
    void writeBits(unsigned long bits) {
        if (used <= bufferCapacity - BYTES) {
            unsigned char* to = buffer + used;
            for (int i = 0; i < BYTES; i++) {
                to[i] = static_cast<unsigned char>(bits >> (8 * i));
            }
            used += BYTES;
            return;
        }
        for (int i = 0; i < BYTES; i++) {
            writeByte(static_cast<int>(bits >> (8 * i) & 0xff));
        }
    }
};
