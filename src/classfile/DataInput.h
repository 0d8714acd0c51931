#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

// DataInput: reads big-endian values from bytes in memory that it does not own. The end of the
// bytes is the end of the input; reading past it is an internal error ("zvector::[]"), so the
// caller runs inside an exception guard.
class DataInput {
public:
    // The bytes must outlive the input, and everything parsed in place from it.
    explicit DataInput(const ZVector<unsigned char>& input)
        : DataInput(input.data(), input.getSize()) {}
    DataInput(const unsigned char* input, int count);

    int readUnsignedByte() {
        need(1);
        return bytes[position++];
    }
    int readUnsignedShort() {
        need(2);
        const unsigned char* const at = bytes + position;
        position += 2;
        return at[0] << 8 | at[1];
    }
    int readInt() {
        need(4);
        const unsigned char* const at = bytes + position;
        position += 4;
        return static_cast<int>(static_cast<unsigned>(at[0]) << 24 |
                                static_cast<unsigned>(at[1]) << 16 |
                                static_cast<unsigned>(at[2]) << 8 | at[3]);
    }
    // Copies count bytes to the buffer.
    void readFully(unsigned char* buffer, int count);
    // Consumes length bytes; the result ends at the first zero byte among them.
    ZString readString(int length);
    // The next count bytes in place; the position moves behind them.
    const unsigned char* take(int count) {
        need(count);
        const unsigned char* const at = bytes + position;
        position += count;
        return at;
    }
    int getPosition() const { return position; }
    int getRemaining() const { return size - position; }

private:
    void need(int count) const {
        if (__builtin_expect(static_cast<unsigned>(count) > static_cast<unsigned>(size - position),
                             0)) {
            failShort(count);
        }
    }
    [[noreturn]] void failShort(int count) const;

    const unsigned char* bytes;
    int size;
    int position;
};
