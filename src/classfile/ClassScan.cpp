#include "classfile/ClassScan.h"

#include "classfile/MethodInfo.h"

#include <string.h>

namespace {

const char LOAD_CLASS[] = "loadClass";
constexpr int LOAD_CLASS_LENGTH = sizeof LOAD_CLASS - 1;
constexpr int POOL_COUNT_AT = 8;
// Behind the pool: access flags, this class, superclass.
constexpr int CLASS_HEAD = 6;

// Reads big-endian values; once it would have read past the end it gives zeros and is not good.
class Walk {
public:
    Walk(const unsigned char* data, int length) : bytes(data), end(length) {}

    bool isGood() const { return good; }
    void skip(long count) {
        if (count < 0 || count > end - position) {
            good = false;
            position = end;
            return;
        }
        position += static_cast<int>(count);
    }
    int byte() { return need(1) ? bytes[position++] : 0; }
    int twoBytes() {
        const int high = byte();
        return high << 8 | byte();
    }
    long fourBytes() {
        const long high = twoBytes();
        return high << 16 | twoBytes();
    }
    bool startsWith(const char* text, int length) const {
        return end - position >= length &&
               memcmp(bytes + position, text, static_cast<size_t>(length)) == 0;
    }

private:
    bool need(int count) {
        good = good && end - position >= count;
        return good;
    }
    const unsigned char* bytes;
    int end;
    int position = 0;
    bool good = true;
};

// Bytes of a constant behind its tag, 0 for a tag that is not known. Not of a text.
int sizeOfConstant(int tag) {
    static const unsigned char SIZES[] = {0, 0, 0, 4, 4, 8, 8, 2, 2, 4, 4,
                                          4, 4, 0, 0, 3, 2, 4, 4, 2, 2};
    return tag < static_cast<int>(sizeof SIZES) ? SIZES[tag] : 0;
}

// Skips the constants. Gives the index of the text "loadClass", 0 if there is none.
int walkPool(Walk& walk) {
    constexpr int TEXT = 1;
    constexpr int LONG = 5;
    constexpr int DOUBLE = 6;
    int found = 0;
    const int count = walk.twoBytes();
    for (int i = 1; i < count && walk.isGood(); i++) {
        const int tag = walk.byte();
        if (tag == TEXT) {
            const int length = walk.twoBytes();
            if (length == LOAD_CLASS_LENGTH && walk.startsWith(LOAD_CLASS, length)) {
                found = i;
            }
            walk.skip(length);
            continue;
        }
        const int size = sizeOfConstant(tag);
        walk.skip(size == 0 ? -1 : size);
        i += tag == LONG || tag == DOUBLE ? 1 : 0;
    }
    return found;
}

void skipAttributes(Walk& walk) {
    for (int left = walk.twoBytes(); left > 0 && walk.isGood(); left--) {
        walk.skip(2);
        walk.skip(walk.fourBytes());
    }
}

} // namespace

ClassScan::ClassScan(const unsigned char* data, int length) {
    Walk walk(data, length);
    walk.skip(POOL_COUNT_AT);
    const int loadClassText = walkPool(walk);
    walk.skip(CLASS_HEAD);
    walk.skip(2L * walk.twoBytes()); // interfaces
    for (int left = walk.twoBytes(); left > 0 && walk.isGood(); left--) {
        walk.skip(6);
        skipAttributes(walk);
    }
    for (int left = walk.twoBytes(); left > 0 && walk.isGood(); left--) {
        const int flags = walk.twoBytes();
        const int name = walk.twoBytes();
        natives = natives || (flags & ACC_NATIVE) != 0;
        loadClass = loadClass || (loadClassText != 0 && name == loadClassText);
        walk.skip(2);
        skipAttributes(walk);
    }
    if (!walk.isGood()) {
        natives = true;
        loadClass = true;
    }
}
