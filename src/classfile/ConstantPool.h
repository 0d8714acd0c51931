#pragma once

#include "classfile/ConstantPoolInfo.h"
#include "core/ground/ZVector.h"

// ConstantPool: the constants of one class.
//
// DESCRIPTION
//   Entries are only ever appended, never moved or renumbered, so an index stays valid for the life
//   of the ClassFile. Index 0 and the index behind a long or double hold null. Looking up by
//   content is by hash and takes constant time; the first look-up builds the index. The size is not
//   limited here: who writes the class checks it against 65535.
// IMPLEMENTATION
//   slots is a table of entry indices with linear probing, a power of two of at least twice the
//   entries, 0 for free; of equal entries the first is in it. Texts come first: most look-ups end
//   at one that the class does not hold, and then the other read entries are not needed. Bytes read
//   are written back as one block unless an original entry was changed.
class ConstantPool {
public:
    explicit ConstantPool(ClassArena& owner)
        : arena(owner), entries(8), slots(nullptr), slotMask(0), indexed(0), othersIndexed(false),
          readSize(1), original(nullptr), originalBytes(0), originalSize(0) {
        entries.push(nullptr);
    }

    // Reads `count` - 1 indices worth of entries. False at an unknown tag; the rest is unread then.
    bool read(DataInput& input, int count);
    // The u2 count and all entries.
    void write(DataOutput& output) const;

    // Number of indices, the null ones included: the class file's constant pool count.
    int getSize() const { return entries.getSize(); }
    // May be null. An index beyond the pool is an internal error.
    ConstantPoolInfo* operator[](int index) const { return entries[index]; }
    ClassArena& getArena() const { return arena; }

    // The entry at index, asserted to have the tag.
    const ConstantPoolInfo& getEntry(int index, int tag) const;
    const ConstantUtf8Info& getUtf8Info(int index) const;
    Utf8View getUtf8(int index) const { return getUtf8Info(index).getValue(); }
    Utf8View getClassName(int index) const;
    const ConstantNameAndTypeInfo& getNameAndType(int index) const;

    // Index of the text, or 0.
    int findUtf8(const Utf8View& text);
    // Each returns the index of the first equal entry, or appends one.
    int findOrCreateUtf8(const Utf8View& text);
    int findOrCreateInt(int value);
    int findOrCreateStringInfo(const Utf8View& text);
    int findOrCreateConstantClass(int nameIndex);
    int findOrCreateNameAndType(int nameIndex, int descriptorIndex);
    int findOrCreateMethodRef(int classIndex, int nameIndex, int descriptorIndex);
    int findOrCreateInterfaceMethodRef(int classIndex, int nameIndex, int descriptorIndex);

    // An entry got another content: the index and the original bytes are no longer true.
    void entryChanged();

private:
    int findIndexed(int tag, int first, int second);
    int findOrCreateMemberRef(int tag, int classIndex, int nameIndex, int descriptorIndex);
    int append(ConstantPoolInfo* entry);
    void buildIndex();
    void indexOthers();
    void insertIntoIndex(int index);
    unsigned hashOf(const ConstantPoolInfo& entry) const;

    ClassArena& arena;
    ZVector<ConstantPoolInfo*> entries;
    int* slots;
    unsigned slotMask;
    int indexed;        // entries in the table
    bool othersIndexed; // read entries that are no texts are in it
    int readSize;       // number of indices read
    const unsigned char* original;
    int originalBytes;
    int originalSize; // number of indices that the original bytes hold; 0 when they are not true
};
