#pragma once

#include "core/ground/ZVector.h"

// DataOutput: appends big-endian values to a byte vector that it does not own. Values wider than
// their field lose their high bits silently; whoever writes checks ranges.
class DataOutput {
public:
    explicit DataOutput(ZVector<unsigned char>& output) : bytes(output) {}

    void writeUnsignedByte(int value) { bytes.push(static_cast<unsigned char>(value)); }
    void writeUnsignedShort(int value) { storeShort(bytes.extend(2), value); }
    void writeInt(int value) {
        unsigned char* const at = bytes.extend(4);
        storeShort(at, value >> 16);
        storeShort(at + 2, value);
    }
    void write(const unsigned char* from, int count);
    // Appends count bytes and gives the place to fill them in, valid until the next write.
    unsigned char* reserve(int count) { return bytes.extend(count); }
    int getSize() const { return bytes.getSize(); }

    static void storeShort(unsigned char* at, int value) {
        at[0] = static_cast<unsigned char>(value >> 8);
        at[1] = static_cast<unsigned char>(value);
    }
    static void storeInt(unsigned char* at, int value) {
        storeShort(at, value >> 16);
        storeShort(at + 2, value);
    }

private:
    ZVector<unsigned char>& bytes;
};
