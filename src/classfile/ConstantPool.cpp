#include "classfile/ConstantPool.h"

#include "core/ground/Logger.h"

namespace {

unsigned hashIndices(int tag, int first, int second) {
    unsigned hash = static_cast<unsigned>(first) * 0x9e3779b1u +
                    static_cast<unsigned>(second) * 0x85ebca77u + static_cast<unsigned>(tag);
    hash ^= hash >> 15;
    return hash * 0x2c1b3c6du ^ hash >> 12;
}

unsigned long loadWord(const char* at) {
    unsigned long word;
    memcpy(&word, at, 8);
    return word;
}

// The length and three samples of the text: its beginning, middle and end. Names of one class
// differ in one of them; where they don't, the comparison decides.
unsigned hashText(const Utf8View& text) {
    const int count = text.getLength();
    const char* const bytes = text.getBytes();
    unsigned long hash = static_cast<unsigned long>(count);
    if (count >= 8) {
        hash = (hash ^ loadWord(bytes)) * 0xff51afd7ed558ccdul;
        hash = (hash ^ hash >> 29 ^ loadWord(bytes + count / 2 - 4)) * 0x9e3779b97f4a7c15ul;
        hash ^= hash >> 31 ^ loadWord(bytes + count - 8);
    } else {
        for (int i = 0; i < count; i++) {
            hash = hash * 257 + static_cast<unsigned char>(bytes[i]);
        }
    }
    hash *= 0xc4ceb9fe1a85ec53ul;
    return static_cast<unsigned>(hash ^ hash >> 32);
}

bool sameContent(const ConstantPoolInfo& left, const ConstantPoolInfo& right) {
    if (left.getTag() != right.getTag()) {
        return false;
    }
    switch (left.getTag()) {
    case CONSTANT_UTF8:
        return static_cast<const ConstantUtf8Info&>(left).equals(
            static_cast<const ConstantUtf8Info&>(right).getValue());
    case CONSTANT_INTEGER:
        return static_cast<const ConstantIntInfo&>(left).equals(
            static_cast<const ConstantIntInfo&>(right).getValue());
    case CONSTANT_CLASS:
    case CONSTANT_STRING:
        return static_cast<const ConstantOneIndexInfo&>(left).getIndex() ==
               static_cast<const ConstantOneIndexInfo&>(right).getIndex();
    default:
        return static_cast<const ConstantTwoIndexInfo&>(left).getFirstIndex() ==
                   static_cast<const ConstantTwoIndexInfo&>(right).getFirstIndex() &&
               static_cast<const ConstantTwoIndexInfo&>(left).getSecondIndex() ==
                   static_cast<const ConstantTwoIndexInfo&>(right).getSecondIndex();
    }
}

} // namespace

bool ConstantPool::read(DataInput& input, int count) {
    // Each entry takes at least 3 bytes, a wide one 9 for its two indices.
    Logger::assertTrue(count <= input.getRemaining() / 3 + 2, "ConstantPool", __LINE__);
    original = input.take(0);
    const int start = input.getPosition();
    ConstantPoolInfo** const into = entries.extend(count > 1 ? count - 1 : 0) - 1;
    for (int i = 1; i < count; i++) {
        into[i] = nullptr;
    }
    for (int i = 1; i < count; i++) {
        ConstantPoolInfo* const entry = ConstantPoolInfoReader::create(input, arena);
        if (entry == nullptr) {
            return false;
        }
        into[i] = entry;
        if (entry->isWide()) {
            i++;
        }
    }
    originalBytes = input.getPosition() - start;
    // A wide entry at the last index is followed by a null that no count announced.
    if (count > 1 && entries[count - 1] != nullptr && entries[count - 1]->isWide()) {
        entries.push(nullptr);
    }
    originalSize = entries.getSize();
    readSize = originalSize;
    return true;
}

void ConstantPool::write(DataOutput& output) const {
    output.writeUnsignedShort(entries.getSize());
    int i = 1;
    if (originalSize > 0) {
        if (originalBytes > 0) {
            output.write(original, originalBytes);
        }
        i = originalSize;
    }
    while (i < entries.getSize()) {
        const ConstantPoolInfo* const entry = entries[i];
        entry->writeTo(output);
        i += entry->isWide() ? 2 : 1;
    }
}

const ConstantPoolInfo& ConstantPool::getEntry(int index, int tag) const {
    const ConstantPoolInfo* const entry = entries[index];
    Logger::assertTrue(entry != nullptr && entry->getTag() == tag, "ConstantPool", __LINE__);
    return *entry;
}

const ConstantUtf8Info& ConstantPool::getUtf8Info(int index) const {
    return static_cast<const ConstantUtf8Info&>(getEntry(index, CONSTANT_UTF8));
}

Utf8View ConstantPool::getClassName(int index) const {
    return static_cast<const ConstantClassInfo&>(getEntry(index, CONSTANT_CLASS)).getName(*this);
}

const ConstantNameAndTypeInfo& ConstantPool::getNameAndType(int index) const {
    return static_cast<const ConstantNameAndTypeInfo&>(getEntry(index, CONSTANT_NAME_AND_TYPE));
}

unsigned ConstantPool::hashOf(const ConstantPoolInfo& entry) const {
    switch (entry.getTag()) {
    case CONSTANT_UTF8:
        return hashText(static_cast<const ConstantUtf8Info&>(entry).getValue());
    case CONSTANT_INTEGER:
        return hashIndices(CONSTANT_INTEGER, static_cast<const ConstantIntInfo&>(entry).getValue(),
                           0);
    case CONSTANT_CLASS:
    case CONSTANT_STRING:
        return hashIndices(entry.getTag(),
                           static_cast<const ConstantOneIndexInfo&>(entry).getIndex(), 0);
    default:
        return hashIndices(entry.getTag(),
                           static_cast<const ConstantTwoIndexInfo&>(entry).getFirstIndex(),
                           static_cast<const ConstantTwoIndexInfo&>(entry).getSecondIndex());
    }
}

void ConstantPool::buildIndex() {
    unsigned size = 64;
    while (size < static_cast<unsigned>(entries.getSize()) * 2 + 64) {
        size *= 2;
    }
    slots = arena.allocateArray<int>(static_cast<int>(size));
    memset(slots, 0, sizeof(int) * size);
    slotMask = size - 1;
    indexed = 0;
    for (int i = 1; i < entries.getSize(); i++) {
        const ConstantPoolInfo* const entry = entries[i];
        if (entry != nullptr &&
            (othersIndexed || i >= readSize || entry->getTag() == CONSTANT_UTF8)) {
            insertIntoIndex(i);
        }
    }
}

// Enters the read entries that are no texts.
void ConstantPool::indexOthers() {
    if (othersIndexed) {
        return;
    }
    othersIndexed = true;
    for (int i = 1; i < readSize; i++) {
        if (entries[i] != nullptr && entries[i]->getTag() != CONSTANT_UTF8) {
            insertIntoIndex(i);
        }
    }
}

void ConstantPool::insertIntoIndex(int index) {
    const ConstantPoolInfo* const entry = entries[index];
    switch (entry->getTag()) {
    case CONSTANT_UTF8:
    case CONSTANT_INTEGER:
    case CONSTANT_CLASS:
    case CONSTANT_STRING:
    case CONSTANT_METHOD_REF:
    case CONSTANT_INTERFACE_METHOD_REF:
    case CONSTANT_NAME_AND_TYPE:
        break;
    default:
        return;
    }
    unsigned at = hashOf(*entry) & slotMask;
    for (; slots[at] != 0; at = (at + 1) & slotMask) {
        if (sameContent(*entries[slots[at]], *entry)) {
            return;
        }
    }
    slots[at] = index;
    indexed++;
}

int ConstantPool::append(ConstantPoolInfo* entry) {
    // The index exists: whoever appends has looked first.
    entries.push(entry);
    const int index = entries.getSize() - 1;
    if (static_cast<unsigned>(indexed) * 2 > slotMask) {
        buildIndex();
    } else {
        insertIntoIndex(index);
    }
    return index;
}

void ConstantPool::entryChanged() {
    slots = nullptr;
    originalSize = 0;
}

int ConstantPool::findUtf8(const Utf8View& text) {
    if (slots == nullptr) {
        buildIndex();
    }
    for (unsigned at = hashText(text) & slotMask; slots[at] != 0; at = (at + 1) & slotMask) {
        const ConstantPoolInfo* const entry = entries[slots[at]];
        if (entry->getTag() == CONSTANT_UTF8 &&
            static_cast<const ConstantUtf8Info*>(entry)->equals(text)) {
            return slots[at];
        }
    }
    return 0;
}

int ConstantPool::findIndexed(int tag, int first, int second) {
    if (slots == nullptr) {
        buildIndex();
    }
    // An entry that was read can't name one that was not.
    if (tag == CONSTANT_INTEGER || (first < readSize && second < readSize)) {
        indexOthers();
    }
    for (unsigned at = hashIndices(tag, first, second) & slotMask; slots[at] != 0;
         at = (at + 1) & slotMask) {
        const ConstantPoolInfo* const entry = entries[slots[at]];
        if (entry->getTag() != tag) {
            continue;
        }
        const bool equal =
            tag == CONSTANT_INTEGER ? static_cast<const ConstantIntInfo*>(entry)->equals(first)
            : tag == CONSTANT_CLASS || tag == CONSTANT_STRING
                ? static_cast<const ConstantOneIndexInfo*>(entry)->equals(first)
                : static_cast<const ConstantTwoIndexInfo*>(entry)->equals(first, second);
        if (equal) {
            return slots[at];
        }
    }
    return 0;
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
    Logger::assertTrue(nameIndex >= 1, "ConstantPool", __LINE__);
    const int found = findIndexed(CONSTANT_CLASS, nameIndex, 0);
    return found > 0 ? found : append(arena.make<ConstantClassInfo>(nameIndex));
}

int ConstantPool::findOrCreateNameAndType(int nameIndex, int descriptorIndex) {
    Logger::assertTrue(nameIndex >= 1 && descriptorIndex >= 1, "ConstantPool", __LINE__);
    const int found = findIndexed(CONSTANT_NAME_AND_TYPE, nameIndex, descriptorIndex);
    return found > 0 ? found
                     : append(arena.make<ConstantNameAndTypeInfo>(nameIndex, descriptorIndex));
}

int ConstantPool::findOrCreateMemberRef(int tag, int classIndex, int nameIndex,
                                        int descriptorIndex) {
    Logger::assertTrue(classIndex >= 1, "ConstantPool", __LINE__);
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
