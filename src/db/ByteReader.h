#pragma once

#include "core/ground/ZString.h"
#include "db/ByteSource.h"

// Input that is not what it claims to be. The message names what is wrong and where, down to table,
// row and field, and the offset.
class BadInputException {
public:
    BadInputException(const ZString& what, long where) : message(what), offset(where) {}
    ZString message;
    long offset; // bytes from the start of the input
};

// ByteReader: the checked little-endian reader over a ByteSource, the counterpart of
// AbstractWriter. Nothing that it reads is believed: a length is compared with what is left of the
// input before memory is taken for it, and where the input's size is unknown memory grows with what
// has arrived. All failures are a BadInputException.
class ByteReader {
public:
    explicit ByteReader(ByteSource& input);
    ByteReader(const ByteReader&) = delete;
    ByteReader& operator=(const ByteReader&) = delete;

    int readByte() {
        if (position == end) {
            needPiece();
        }
        return *position++;
    }
    int readShort() { return static_cast<short>(readBits<2>()); }
    int readInt() { return static_cast<int>(readBits<4>()); }
    long readLong() { return static_cast<long>(readBits<8>()); }
    // An int that must lie from least to most; `what` names it in the message.
    int readIntInRange(const char* what, int least, int most);
    // A string as AbstractWriter::writeString wrote it: null for a length of -1, else a block from
    // malloc, the caller's. Fails for other negative lengths and for texts with a zero byte.
    char* readString();
    // The same as a ZString; null is refused.
    ZString readText();
    void readBytes(void* to, long count);
    void skip(long count);
    // The next byte, not taken; -1 at the end of the input.
    int peekByte();
    bool isAtEnd() { return peekByte() < 0; }

    // Bytes taken so far.
    long getOffset() const { return pieceOffset + (position - piece); }
    // Bytes left, -1 if that is not known.
    long getRemaining() const { return total < 0 ? -1 : total - getOffset(); }
    // Fails unless `count` items of at least `size` bytes can follow. A check ahead of allocation.
    void expect(const char* what, long count, long size);

    // Where the reader is, for messages; null and -1 for none. The texts must outlive the place.
    void setTable(const char* name) {
        tableName = name;
        row = -1;
        fieldName = nullptr;
    }
    void setRow(int index) { row = index; }
    void setField(const char* name) { fieldName = name; }

    // Throws a BadInputException of this text and the current place.
    [[noreturn]] void fail(const ZString& what);

private:
    void needPiece();
    bool tryPiece();

    template <int BYTES>
    unsigned long readBits() {
        unsigned long bits = 0;
        if (end - position >= BYTES) {
            for (int i = 0; i < BYTES; i++) {
                bits |= static_cast<unsigned long>(position[i]) << (8 * i);
            }
            position += BYTES;
            return bits;
        }
        for (int i = 0; i < BYTES; i++) {
            bits |= static_cast<unsigned long>(readByte()) << (8 * i);
        }
        return bits;
    }

    ByteSource& source;
    const unsigned char* piece;
    const unsigned char* position;
    const unsigned char* end;
    long pieceOffset;
    long total;
    const char* tableName;
    int row;
    const char* fieldName;
};
