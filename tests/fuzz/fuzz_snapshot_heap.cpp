// A snapshot file with a heap. The header is put in front of the input, so that the fuzzer starts
// at the sections of the heap.

#include "FuzzedHeap.h"
#include "core/ground/Exceptions.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/SnapshotHeapReader.h"
#include "heapfile/SnapshotHeapSections.h"

#include <cstddef>
#include <cstdint>

namespace {

void append(std::string& to, long value, int bytes) {
    for (int i = 0; i < bytes; i++) {
        to += static_cast<char>(value >> (8 * i));
    }
}

std::string header() {
    std::string text(SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE);
    append(text, SNAPSHOT_FORMAT_BYTE, 1);
    append(text, 0, 4); // creator
    append(text, 0, 8);
    append(text, 0, 4);
    append(text, SNAPSHOT_FORMAT_VALUE, 4);
    append(text, -1, 8);
    append(text, SNAPSHOT_WITH_HEAP, 8);
    append(text, 0, 8);
    append(text, 0, 4); // session name
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    const std::string input(reinterpret_cast<const char*>(bytes), count);
    try {
        HeapReadOptions options;
        useHeap(*SnapshotHeapReader::read(mappedInput(header() + input), options));
    } catch (const HeapReadError&) {
    } catch (const BadInputException&) {
    }
    return 0;
}
