#pragma once

#include "heapfile/HeapSizing.h"

#include <cstdint>
#include <string>
#include <vector>

// How a JVM lays out objects in memory, found from a dump that doesn't say it: between an object's
// address and the next one there is at least the object, and in most cases nothing else.
class JvmLayout {
public:
    // An array and the distance to the next object; 0 if there is no next one.
    struct ArrayGap {
        uint64_t gap;
        uint32_t length;
        uint32_t elementSize; // 0 for references
    };
    // How instance fields follow those of the superclass.
    enum class Style {
        Packed, // gaps left by superclasses are filled (JDK 15 and later)
        Legacy  // a class's fields begin behind the superclass's, aligned to a reference
    };

    // Chooses the layout that explains most of the gaps. With none to judge by, the usual one for
    // identifiers of that size.
    void detect(const std::vector<ArrayGap>& gaps, uint32_t idSize, uint32_t objectAlignment);

    int64_t arraySize(uint32_t elementSize, uint64_t length) const;
    // Size of an instance; fieldTypes holds, from java.lang.Object down, the type letters of each
    // class's own fields.
    int64_t instanceSize(const std::vector<std::string>& fieldTypes, Style style) const;
    int64_t align(int64_t size) const {
        return (size + alignment - 1) / alignment * static_cast<int64_t>(alignment);
    }
    int64_t referenceSize() const { return reference; }
    int64_t headerSize() const { return header; }
    // Smallest size that the fields need, in any order and without padding.
    int64_t lowerBound(const std::vector<std::string>& fieldTypes) const;
    // Bytes of a field of that type letter.
    int64_t fieldSize(char type) const;
    // Writes down the layout and what it rests on.
    void describe(HeapSizing& sizing) const;

private:
    struct Candidate {
        int64_t header;
        int64_t arrayHeader;
        int64_t reference;
    };
    int64_t legacySize(const std::vector<std::string>& fieldTypes) const;
    int64_t packedSize(const std::vector<std::string>& fieldTypes) const;

    int64_t header = 12;
    int64_t arrayHeader = 16;
    int64_t reference = 4;
    int64_t alignment = 8;
    uint64_t exactGaps = 0;
    uint64_t judgedGaps = 0;
};
