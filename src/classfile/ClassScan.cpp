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
    // Null if there are not so many bytes.
    const unsigned char* peek(int length) const {
        return end - position >= length ? bytes + position : nullptr;
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

// Texts of the pool that may be names of methods looked for.
struct FoundTexts {
    static constexpr int MOST = 64;
    int loadClass = 0; // its index, 0 for none
    int named[MOST];
    int count = 0; // more than MOST: not all are kept

    void see(int index, const unsigned char* text, int length, const SoughtNames* names) {
        if (length == LOAD_CLASS_LENGTH && memcmp(text, LOAD_CLASS, LOAD_CLASS_LENGTH) == 0) {
            loadClass = index;
        }
        if (names != nullptr && names->mayHave(text, length)) {
            named[count < MOST ? count : 0] = index;
            count++;
        }
    }
    bool has(int index) const {
        bool found = count > MOST;
        for (int i = 0; i < count && !found; i++) {
            found = named[i] == index;
        }
        return found;
    }
};

// Skips the constants.
void walkPool(Walk& walk, const SoughtNames* names, FoundTexts* found) {
    constexpr int TEXT = 1;
    constexpr int LONG = 5;
    constexpr int DOUBLE = 6;
    const int count = walk.twoBytes();
    for (int i = 1; i < count && walk.isGood(); i++) {
        const int tag = walk.byte();
        if (tag == TEXT) {
            const int length = walk.twoBytes();
            const unsigned char* const text = walk.peek(length);
            if (text != nullptr) {
                found->see(i, text, length, names);
            }
            walk.skip(length);
            continue;
        }
        const int size = sizeOfConstant(tag);
        walk.skip(size == 0 ? -1 : size);
        i += tag == LONG || tag == DOUBLE ? 1 : 0;
    }
}

// Long ones share a bit.
unsigned long lengthBit(int length) {
    return 1UL << (length < 63 ? length : 63);
}

void skipAttributes(Walk& walk) {
    for (int left = walk.twoBytes(); left > 0 && walk.isGood(); left--) {
        walk.skip(2);
        walk.skip(walk.fourBytes());
    }
}

} // namespace

void SoughtNames::add(const ZString& name) {
    if (!name.isEmpty()) {
        const unsigned char first = static_cast<unsigned char>(name.c_str()[0]);
        firstBytes[first >> 6] |= 1UL << (first & 63);
        lengths |= lengthBit(name.getLength());
        names.add(name);
    }
}

void SoughtNames::clear() {
    *this = SoughtNames();
}

bool SoughtNames::mayHave(const unsigned char* name, int length) const {
    return length > 0 && (lengths & lengthBit(length)) != 0 &&
           (firstBytes[name[0] >> 6] >> (name[0] & 63) & 1) != 0 &&
           names.mayHave(reinterpret_cast<const char*>(name), length);
}

ClassScan::ClassScan(const unsigned char* data, int length, const SoughtNames* names) {
    Walk walk(data, length);
    FoundTexts texts;
    walk.skip(POOL_COUNT_AT);
    walkPool(walk, names, &texts);
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
        loadClass = loadClass || (texts.loadClass != 0 && name == texts.loadClass);
        named = named || texts.has(name);
        walk.skip(2);
        skipAttributes(walk);
    }
    if (!walk.isGood()) {
        natives = true;
        loadClass = true;
        named = true;
    }
}
