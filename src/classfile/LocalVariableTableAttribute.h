#pragma once

#include "classfile/AttributeInfo.h"
#include "classfile/CodeOffsets.h"

// One entry of a local variable table, in place: start pc, length, name index, descriptor (or
// signature) index, slot; u2 each.
class LocalVariable {
public:
    explicit LocalVariable(unsigned char* bytes) : at(bytes) {}
    int getStartPc() const { return at[0] << 8 | at[1]; }
    int getLength() const { return at[2] << 8 | at[3]; }
    int getNameIndex() const { return at[4] << 8 | at[5]; }
    int getDescriptorIndex() const { return at[6] << 8 | at[7]; }
    int getSlot() const { return at[8] << 8 | at[9]; }
    Utf8View getName(const ConstantPool& pool) const { return pool.getUtf8(getNameIndex()); }
    void setStartPc(int pc);
    void setLength(int length);

private:
    unsigned char* at;
};

// The entries of one table. Made by LocalVariablesAttribute; valid as long as it.
class LocalVariableList {
public:
    LocalVariableList(unsigned char* entries, int count) : bytes(entries), size(count) {}
    int getSize() const { return size; }
    LocalVariable operator[](int i) const {
        Logger::assertTrue(i >= 0 && i < size, VDK_HERE);
        return LocalVariable(bytes + 10 * i);
    }

private:
    unsigned char* bytes;
    int size;
};

// Base of the two tables, which differ in the meaning of one index only.
class LocalVariablesAttribute : public RawAttribute {
public:
    // The entries for changing; the first call makes a private copy.
    LocalVariableList getLocalVariables();
    int getCount() const { return entries; }

protected:
    LocalVariablesAttribute(AttributeKind kind, ClassArena& owner, int name, int count,
                            const unsigned char* body);
    ~LocalVariablesAttribute() = default;

private:
    ClassArena& arena;
    int entries;
    unsigned char* copy;
};

class LocalVariableTableAttribute final : public LocalVariablesAttribute {
public:
    static constexpr const char* NAME = "LocalVariableTable";
    LocalVariableTableAttribute(ClassArena& owner, int name, int count, const unsigned char* body)
        : LocalVariablesAttribute(ATTRIBUTE_LOCAL_VARIABLE_TABLE, owner, name, count, body) {}
    // An empty table.
    LocalVariableTableAttribute(ClassArena& owner, int name);
};

class LocalVariableTypeTableAttribute final : public LocalVariablesAttribute {
public:
    static constexpr const char* NAME = "LocalVariableTypeTable";
    LocalVariableTypeTableAttribute(ClassArena& owner, int name, int count,
                                    const unsigned char* body)
        : LocalVariablesAttribute(ATTRIBUTE_LOCAL_VARIABLE_TYPE_TABLE, owner, name, count, body) {}
};

// For a prefix of delta bytes at position 0: parameters, which start at 0, stay visible through the
// prefix; all other variables move.
void patchLocalVariables1(const LocalVariableList& variables, int delta);
// Asserts what the JVM checks and a grown pool or frame would hide: indices of texts that were read
// and slots below maxLocals.
void checkLocalVariables(const LocalVariableList& variables, const ConstantPool& pool,
                         int maxLocals);
// For a general rewrite: a range that ended with the code still does. With a prefix in front of all
// old code, what was visible from the start is visible through the prefix too.
void patchLocalVariables2(const LocalVariableList& variables, const CodeOffsets& offsets,
                          bool hasPrefix);
