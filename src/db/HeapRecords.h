#pragma once

// The records of a heap in a snapshot file, between the descriptions of the user tables and the
// first table. A record begins with its tag and has no length. DO NOT CHANGE: readers and writers
// of files depend on it, see docs/format-tables.md.
enum HeapRecord {
    HEAP_RECORD_OBJECT = 3,
    HEAP_RECORD_REFERENCE_ARRAY = 4,
    HEAP_RECORD_PRIMITIVE_ARRAY = 5,
    HEAP_RECORD_ALLOCATOR = 8,
    HEAP_RECORD_FIELD = 9,
    HEAP_RECORD_ELEMENT = 10,
    HEAP_RECORD_CLASS_LOADER = 11,
    HEAP_RECORD_SIGNERS = 12,
    HEAP_RECORD_PROTECTION_DOMAIN = 13,
    HEAP_RECORD_STATIC_FIELD = 14,
    HEAP_RECORD_CONSTANT = 15,
    HEAP_RECORD_PRIMITIVES = 39,
    HEAP_RECORD_CLASS = 40,
    HEAP_RECORD_ROOT = 43
};

// The heap header behind its tag: counts of objects, strings and allocators.
constexpr int HEAP_HEADER_BYTES = 12;

// Bytes behind the tag; -1 for a record whose length is told by its content, -2 for no record.
constexpr int heapRecordBytes(int tag) {
    switch (tag) {
    case HEAP_RECORD_OBJECT:
    case HEAP_RECORD_REFERENCE_ARRAY:
    case HEAP_RECORD_PRIMITIVE_ARRAY:
    case HEAP_RECORD_ROOT:
        return 24;
    case HEAP_RECORD_ALLOCATOR:
    case HEAP_RECORD_FIELD:
    case HEAP_RECORD_ELEMENT:
    case HEAP_RECORD_STATIC_FIELD:
    case HEAP_RECORD_CONSTANT:
        return 12;
    case HEAP_RECORD_CLASS_LOADER:
    case HEAP_RECORD_SIGNERS:
    case HEAP_RECORD_PROTECTION_DOMAIN:
        return 8;
    case HEAP_RECORD_PRIMITIVES:
    case HEAP_RECORD_CLASS:
        return -1;
    default:
        return -2;
    }
}

// Skips what follows the tag; false, and nothing taken, if it is none. Input is a ByteReader or
// has its readInt, readLong, skip (which fails for more than there is) and getOffset.
template <typename Input>
bool skipHeapRecord(Input& input, int tag);

// Implementation

template <typename Input>
bool skipHeapRecord(Input& input, int tag) {
    const int bytes = heapRecordBytes(tag);
    if (bytes >= 0) {
        input.skip(bytes);
        return true;
    }
    // A negative count is taken as one too big for any file.
    const auto skipItems = [&input](long size) {
        input.skip(size * static_cast<long>(static_cast<unsigned>(input.readInt())));
    };
    if (tag == HEAP_RECORD_PRIMITIVES) {
        input.skip(input.readLong());
        const long offsets = static_cast<unsigned>(input.readInt());
        input.skip((8 - input.getOffset() % 8) % 8 + 8 * offsets);
        return true;
    }
    if (tag == HEAP_RECORD_CLASS) {
        input.skip(4 + 4 + 4 + 8 + 4 + 8); // name, class, superclass, size, generation, reserved
        skipItems(4);                      // interfaces
        skipItems(8);                      // static and instance reference fields
        skipItems(8);
        skipItems(5); // static and instance primitive fields
        skipItems(5);
        input.skip(8); // reserved
        return true;
    }
    return false;
}
