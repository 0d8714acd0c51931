#pragma once

#include "classfile/ArenaVector.h"
#include "classfile/ConstantPoolInfo.h"
#include "core/ground/Logger.h"

// ConstantPool: the constants of one class.
//
// DESCRIPTION
//   Entries are only ever appended, never moved or renumbered, so an index stays valid for the life
//   of the ClassFile. Index 0 and the index behind a long or double hold null. Looking up by
//   content is by hash and takes constant time. The size is not limited here: who writes the class
//   checks it against 65535.
// IMPLEMENTATION
//   Reading notes where each entry begins; it becomes an object when somebody asks for it, which
//   few entries of a class see. Reading enters every entry in the index too, since that is hidden
//   behind the walk from entry to entry: heads is a table of chains by hash, a power of two, which
//   link entries of falling index through `next`. Bytes read are written back as one block unless
//   an original entry was changed.
class ConstantPool {
public:
    // What an entry holds: its text, or its value or indices. The rest is empty or 0.
    struct Content {
        int tag; // 0 for the null entries
        int first;
        int second;
        Utf8View text;
    };

    explicit ConstantPool(ClassArena& owner)
        : arena(owner), entries(owner), heads(nullptr), headMask(0), original(nullptr),
          originalBytes(0), originalSize(0), readSize(1) {
        entries.push({nullptr, 0, 0});
    }

    // Reads `count` - 1 indices worth of entries. False at an unknown tag; the rest is unread then.
    bool read(DataInput& input, int count);
    // The u2 count and all entries.
    void write(DataOutput& output) const;

    // Number of indices, the null ones included: the class file's constant pool count.
    int getSize() const { return entries.getSize(); }
    // An index of the class file itself, asserted to be one of the entries read: an index past them
    // would mean an appended one.
    int checkRead(int index) const {
        Logger::assertTrue(index < readSize, VDK_HERE);
        return index;
    }
    // May be null. An index beyond the pool is an internal error.
    ConstantPoolInfo* operator[](int index) const {
        const Entry& entry = entries[index];
        return entry.object != nullptr || entry.place == 0 ? entry.object : makeObject(index);
    }
    // The same as values, without making an object of it.
    Content getContent(int index) const;
    ClassArena& getArena() const { return arena; }

    // The entry at index, asserted to have the tag.
    const ConstantPoolInfo& getEntry(int index, int tag) const;
    const ConstantUtf8Info& getUtf8Info(int index) const;
    Utf8View getUtf8(int index) const {
        const Entry& entry = entries[index];
        const unsigned char* const at = original + entry.place;
        if (entry.object == nullptr && entry.place > 0 && at[-1] == CONSTANT_UTF8) {
            return Utf8View(reinterpret_cast<const char*>(at) + 2, at[0] << 8 | at[1]);
        }
        return getUtf8Info(index).getValue();
    }
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
    struct Entry {
        ConstantPoolInfo* object; // null for the null entries and while nobody asked
        int place;                // 1 + its offset in the bytes read, 0 if it is not there
        int next;                 // in its chain, 0 at the end
    };

    ConstantPoolInfo* makeObject(int index) const;
    int findIndexed(int tag, int first, int second);
    int findOrCreateMemberRef(int tag, int classIndex, int nameIndex, int descriptorIndex);
    int append(ConstantPoolInfo* entry);
    void buildIndex(int expected);
    void makeHeads(int expected);
    void insertIntoIndex(int index);
    template <typename Match>
    int findInChain(unsigned hash, Match match) const;

    ClassArena& arena;
    mutable ArenaVector<Entry> entries;
    int* heads; // first of each chain, 0 for none; null while there is no index
    unsigned headMask;
    const unsigned char* original;
    int originalBytes;
    int originalSize; // number of indices that the original bytes hold; 0 when they are not true
    int readSize;     // number of indices read
};
