#pragma once

#include "classfile/AttributeInfo.h"
#include "classfile/CodeOffsets.h"

// LineNumberTableAttribute: u2 count, then start pc and line number, u2 each. The entries stay as
// bytes; the first change makes a private copy of them.
class LineNumberTableAttribute final : public RawAttribute {
public:
    static constexpr const char* NAME = "LineNumberTable";
    LineNumberTableAttribute(ClassArena& owner, int name, int count, const unsigned char* body);
    int getCount() const { return entries; }
    int getStartPc(int i) const;
    int getLineNumber(int i) const;
    // Adds delta, at least 0, to the start of every entry.
    void shiftLineNumbers(int delta);
    // Moves every entry to the new place of its instruction. Code in front of the first one has no
    // line: a debugger that steps into the method must stop in the program's code.
    void shiftLineNumbers(const CodeOffsets& offsets);

private:
    unsigned char* writableEntries();
    const unsigned char* entryAt(int i) const;

    ClassArena& arena;
    int entries;
    unsigned char* copy;
};
