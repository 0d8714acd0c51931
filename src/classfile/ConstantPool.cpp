#include "classfile/ConstantPool.h"

#include "core/ground/Logger.h"

namespace {

unsigned long loadWord(const char* at) {
    unsigned long word;
    memcpy(&word, at, 8);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    word = __builtin_bswap64(word);
#endif
    return word;
}

// The length, the first eight bytes and the last eight; of a shorter text all of it is `last`.
unsigned hashText(int length, unsigned long first, unsigned long last) {
    const unsigned long hash = static_cast<unsigned long>(length) * 0xff51afd7ed558ccdul +
                               first * 0x9e3779b97f4a7c15ul + last * 0xc2b2ae3d27d4eb4ful;
    return static_cast<unsigned>(hash >> 32 ^ hash >> 45);
}

unsigned hashText(const Utf8View& text) {
    const int length = text.getLength();
    if (length >= 8) {
        return hashText(length, loadWord(text.getBytes()), loadWord(text.getBytes() + length - 8));
    }
    unsigned long last = 0;
    for (int i = 0; i < length; i++) {
        last |= static_cast<unsigned long>(static_cast<unsigned char>(text.charAt(i))) << 8 * i;
    }
    return hashText(length, 0, last);
}

// The same for a text in front of which there are eight bytes, and behind which there need be none;
// without a branch, since nobody can predict which entries are texts and how long.
unsigned hashTextInPlace(const char* text, int length) {
    const int isShort = length < 8 ? 1 : 0;
    const unsigned long ofLong = static_cast<unsigned long>(isShort) - 1; // all ones or 0
    const unsigned long first = loadWord(text - 8 * isShort) & ofLong;
    const unsigned long last = loadWord(text + length - 8);
    const int missing = (8 - length) & -isShort;
    // A shift by 64 is made of two.
    return hashText(length, first, last >> (8 * missing / 2) >> (8 * missing / 2));
}

unsigned hashIndices(int tag, int first, int second) {
    const unsigned long hash = static_cast<unsigned long>(static_cast<unsigned>(first) << 16 |
                                                          static_cast<unsigned>(second)) *
                                   0x9e3779b97f4a7c15ul +
                               static_cast<unsigned long>(tag) * 0xff51afd7ed558ccdul;
    return static_cast<unsigned>(hash >> 32 ^ hash >> 45);
}

int shortAt(const unsigned char* at) {
    return at[0] << 8 | at[1];
}

// How the entries of one tag look in a class file.
struct EntryForm {
    unsigned char body;      // bytes behind the tag, without a text; 0 for an unknown tag
    unsigned char secondAt;  // where the last index of the body is
    unsigned char unchecked; // 1 unless the indices must be at least 1
    unsigned char wide;      // fills two indices
    unsigned char entries;   // how many of the indices, from the last on, name other entries
};

constexpr EntryForm FORMS[256] = {
    {0, 0, 1, 0, 0}, {2, 0, 1, 0, 0},                  // Utf8
    {0, 0, 1, 0, 0}, {4, 2, 1, 0, 0},                  // integer: its halves
    {4, 0, 1, 0, 0},                                   // float
    {8, 0, 1, 1, 0},                                   // long
    {8, 0, 1, 1, 0},                                   // double
    {2, 0, 0, 0, 1},                                   // class
    {2, 0, 0, 0, 1},                                   // string
    {4, 2, 0, 0, 2},                                   // field
    {4, 2, 0, 0, 2},                                   // method
    {4, 2, 0, 0, 2},                                   // interface method
    {4, 2, 0, 0, 2},                                   // name and type
    {0, 0, 1, 0, 0}, {0, 0, 1, 0, 0}, {3, 0, 1, 0, 0}, // method handle
    {2, 0, 1, 0, 1},                                   // method type
    {4, 2, 1, 0, 1},                                   // dynamic
    {4, 2, 1, 0, 1},                                   // invokedynamic
    {2, 0, 1, 0, 1},                                   // module
    {2, 0, 1, 0, 1},                                   // package; unknown tags follow
};

} // namespace

bool ConstantPool::read(DataInput& input, int count) {
    DataInput from = input;
    // Each entry takes at least 3 bytes, a wide one 9 for its two indices.
    Logger::assertTrue(count <= from.getRemaining() / 3 + 2, VDK_HERE);
    original = from.take(0);
    const int start = from.getPosition();
    // One more: a wide entry at the last index is followed by a null that no count announced.
    entries.reserve(count + 8);
    Entry* const into = entries.data();
    makeHeads(count);
    int* const chains = heads;
    const unsigned mask = headMask;
    int i = 1;
    while (i < count) {
        const int offset = from.getPosition() - start;
        const int tag = from.readUnsignedByte();
        const EntryForm form = FORMS[tag];
        if (form.body == 0) {
            Logger::message(ZString("Unknown Constant Pool Info tag: ") + longToString(tag),
                            nullptr);
            return false;
        }
        const unsigned char* const body = from.take(form.body);
        const int first = shortAt(body);
        const int second = shortAt(body + form.secondAt);
        const unsigned isText = tag == CONSTANT_UTF8 ? 1 : 0;
        const int textLength = first & -static_cast<int>(isText);
        from.take(textLength);
        const bool zero = ((first | form.unchecked) == 0) | ((second | form.unchecked) == 0);
        Logger::assertTrue(!zero, VDK_HERE);
        // An index past the entries read would mean one that is appended later.
        const bool past =
            ((form.entries > 0) & (second >= count)) | ((form.entries > 1) & (first >= count));
        Logger::assertTrue(!past, VDK_HERE);
        if (tag == CONSTANT_METHOD_HANDLE) {
            Logger::assertTrue(body[0] >= 1 && body[0] <= 9 && shortAt(body + 1) < count, VDK_HERE);
        }
        // What is no text is taken for an empty one here.
        const char* const text = reinterpret_cast<const char*>(body) + 2;
        const unsigned ofText =
            offset >= 8 ? hashTextInPlace(text, textLength) : hashText(Utf8View(text, textLength));
        const unsigned ofIndices = hashIndices(tag, first, form.secondAt > 0 ? second : 0);
        const unsigned hash = (ofText & -isText) | (ofIndices & ~-isText);
        int& head = chains[hash & mask];
        into[i] = {nullptr, offset + 1, head};
        head = i++;
        if (form.wide != 0) {
            into[i++] = {nullptr, 0, 0};
        }
    }
    entries.resize(i);
    originalBytes = from.getPosition() - start;
    originalSize = i;
    readSize = i;
    input = from;
    return true;
}

ConstantPoolInfo* ConstantPool::makeObject(int index) const {
    Entry& entry = entries[index];
    const int offset = entry.place - 1;
    DataInput input(original + offset, originalBytes - offset);
    entry.object = ConstantPoolInfoReader::create(input, arena);
    return entry.object;
}

ConstantPool::Content ConstantPool::getContent(int index) const {
    const Entry& entry = entries[index];
    Content content = {0, 0, 0, Utf8View()};
    const ConstantPoolInfo* const object = entry.object;
    if (object == nullptr) {
        if (entry.place == 0) {
            return content;
        }
        const unsigned char* const at = original + entry.place - 1;
        content.tag = at[0];
        const EntryForm& form = FORMS[at[0]];
        if (content.tag == CONSTANT_UTF8) {
            content.text = Utf8View(reinterpret_cast<const char*>(at + 3), shortAt(at + 1));
        } else if (content.tag == CONSTANT_INTEGER) {
            content.first = static_cast<int>(static_cast<unsigned>(shortAt(at + 1)) << 16 |
                                             static_cast<unsigned>(shortAt(at + 3)));
        } else {
            content.first = shortAt(at + 1);
            content.second = form.secondAt > 0 ? shortAt(at + 1 + form.secondAt) : 0;
        }
        return content;
    }
    content.tag = object->getTag();
    switch (content.tag) {
    case CONSTANT_UTF8:
        content.text = static_cast<const ConstantUtf8Info*>(object)->getValue();
        break;
    case CONSTANT_INTEGER:
        content.first = static_cast<const ConstantIntInfo*>(object)->getValue();
        break;
    case CONSTANT_CLASS:
    case CONSTANT_STRING:
    case CONSTANT_METHOD_TYPE:
    case CONSTANT_MODULE:
    case CONSTANT_PACKAGE:
        content.first = static_cast<const ConstantOneIndexInfo*>(object)->getIndex();
        break;
    case CONSTANT_FIELD_REF:
    case CONSTANT_METHOD_REF:
    case CONSTANT_INTERFACE_METHOD_REF:
    case CONSTANT_NAME_AND_TYPE:
    case CONSTANT_DYNAMIC:
    case CONSTANT_INVOKE_DYNAMIC:
        content.first = static_cast<const ConstantTwoIndexInfo*>(object)->getFirstIndex();
        content.second = static_cast<const ConstantTwoIndexInfo*>(object)->getSecondIndex();
        break;
    default:
        break;
    }
    return content;
}

void ConstantPool::write(DataOutput& output) const {
    output.writeUnsignedShort(getSize());
    int i = 1;
    if (originalSize > 0) {
        if (originalBytes > 0) {
            output.write(original, originalBytes);
        }
        i = originalSize;
    }
    while (i < getSize()) {
        const ConstantPoolInfo* const entry = (*this)[i];
        entry->writeTo(output);
        i += entry->isWide() ? 2 : 1;
    }
}

const ConstantPoolInfo& ConstantPool::getEntry(int index, int tag) const {
    const ConstantPoolInfo* const entry = (*this)[index];
    Logger::assertTrue(entry != nullptr && entry->getTag() == tag, VDK_HERE);
    return *entry;
}

const ConstantUtf8Info& ConstantPool::getUtf8Info(int index) const {
    return static_cast<const ConstantUtf8Info&>(getEntry(index, CONSTANT_UTF8));
}

Utf8View ConstantPool::getClassName(int index) const {
    const Content content = getContent(index);
    Logger::assertTrue(content.tag == CONSTANT_CLASS, VDK_HERE);
    return getUtf8(content.first);
}

const ConstantNameAndTypeInfo& ConstantPool::getNameAndType(int index) const {
    return static_cast<const ConstantNameAndTypeInfo&>(getEntry(index, CONSTANT_NAME_AND_TYPE));
}

void ConstantPool::makeHeads(int expected) {
    unsigned size = 64;
    while (size < static_cast<unsigned>(expected)) {
        size *= 2;
    }
    heads = arena.allocateArray<int>(static_cast<int>(size));
    memset(heads, 0, sizeof(int) * size);
    headMask = size - 1;
}

void ConstantPool::buildIndex(int expected) {
    makeHeads(expected);
    for (int i = 1; i < getSize(); i++) {
        insertIntoIndex(i);
    }
}

void ConstantPool::insertIntoIndex(int index) {
    const Content content = getContent(index);
    const bool isInt = content.tag == CONSTANT_INTEGER;
    const unsigned hash =
        content.tag == CONSTANT_UTF8
            ? hashText(content.text)
            : hashIndices(content.tag, isInt ? content.first >> 16 & 0xffff : content.first,
                          isInt ? content.first & 0xffff : content.second);
    int& head = heads[hash & headMask];
    entries[index].next = head;
    head = index;
}

int ConstantPool::append(ConstantPoolInfo* entry) {
    // The index exists: whoever appends has looked first.
    entries.push({entry, 0, 0});
    const int index = getSize() - 1;
    if (static_cast<unsigned>(index) / 2 > headMask) {
        buildIndex(index * 2);
    } else {
        insertIntoIndex(index);
    }
    return index;
}

void ConstantPool::entryChanged() {
    heads = nullptr;
    originalSize = 0;
}

// The last match of a chain is the first in the pool.
template <typename Match>
int ConstantPool::findInChain(unsigned hash, Match match) const {
    int found = 0;
    for (int i = heads[hash & headMask]; i != 0; i = entries[i].next) {
        if (match(getContent(i))) {
            found = i;
        }
    }
    return found;
}

int ConstantPool::findUtf8(const Utf8View& text) {
    if (heads == nullptr) {
        buildIndex(getSize());
    }
    return findInChain(hashText(text), [&](const Content& content) {
        return content.tag == CONSTANT_UTF8 && content.text == text;
    });
}

int ConstantPool::findIndexed(int tag, int first, int second) {
    if (heads == nullptr) {
        buildIndex(getSize());
    }
    const bool isInt = tag == CONSTANT_INTEGER;
    const unsigned hash =
        hashIndices(tag, isInt ? first >> 16 & 0xffff : first, isInt ? first & 0xffff : second);
    return findInChain(hash, [&](const Content& content) {
        return content.tag == tag && content.first == first && content.second == second;
    });
}

int ConstantPool::findOrCreateUtf8(const Utf8View& text) {
    const int found = findUtf8(text);
    return found > 0 ? found : append(arena.make<ConstantUtf8Info>(arena, text));
}

int ConstantPool::findOrCreateInt(int value) {
    const int found = findIndexed(CONSTANT_INTEGER, value, 0);
    return found > 0 ? found : append(arena.make<ConstantIntInfo>(value));
}

int ConstantPool::findOrCreateStringInfo(const Utf8View& text) {
    const int textIndex = findOrCreateUtf8(text);
    const int found = findIndexed(CONSTANT_STRING, textIndex, 0);
    return found > 0 ? found : append(arena.make<ConstantStringInfo>(textIndex));
}

int ConstantPool::findOrCreateConstantClass(int nameIndex) {
    Logger::assertTrue(nameIndex >= 1, VDK_HERE);
    const int found = findIndexed(CONSTANT_CLASS, nameIndex, 0);
    return found > 0 ? found : append(arena.make<ConstantClassInfo>(nameIndex));
}

int ConstantPool::findOrCreateNameAndType(int nameIndex, int descriptorIndex) {
    Logger::assertTrue(nameIndex >= 1 && descriptorIndex >= 1, VDK_HERE);
    const int found = findIndexed(CONSTANT_NAME_AND_TYPE, nameIndex, descriptorIndex);
    return found > 0 ? found
                     : append(arena.make<ConstantNameAndTypeInfo>(nameIndex, descriptorIndex));
}

int ConstantPool::findOrCreateMemberRef(int tag, int classIndex, int nameIndex,
                                        int descriptorIndex) {
    Logger::assertTrue(classIndex >= 1, VDK_HERE);
    const int nameAndType = findOrCreateNameAndType(nameIndex, descriptorIndex);
    const int found = findIndexed(tag, classIndex, nameAndType);
    if (found > 0) {
        return found;
    }
    if (tag == CONSTANT_METHOD_REF) {
        return append(arena.make<ConstantMethodRefInfo>(classIndex, nameAndType));
    }
    return append(arena.make<ConstantInterfaceMethodRefInfo>(classIndex, nameAndType));
}

int ConstantPool::findOrCreateMethodRef(int classIndex, int nameIndex, int descriptorIndex) {
    return findOrCreateMemberRef(CONSTANT_METHOD_REF, classIndex, nameIndex, descriptorIndex);
}

int ConstantPool::findOrCreateInterfaceMethodRef(int classIndex, int nameIndex,
                                                 int descriptorIndex) {
    return findOrCreateMemberRef(CONSTANT_INTERFACE_METHOD_REF, classIndex, nameIndex,
                                 descriptorIndex);
}
