// A snapshot file with a heap. The header is put in front of the input, so that the fuzzer starts
// at the sections of the heap.

#include "core/ground/Exceptions.h"
#include "core/ground/Logger.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/SnapshotHeapReader.h"
#include "heapfile/SnapshotHeapSections.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <unistd.h>

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

void useHeap(const HeapModel& model) {
    std::string text;
    uint64_t bits = 0;
    for (int row = 1; row <= model.rowCount(); row++) {
        // A long list without values takes no memory and costs time only.
        for (int i = 0; i < model.storage->getRefCount(row) && i < 1000; i++) {
            if (model.storage->getRef(row, i) < 0 ||
                model.storage->getRef(row, i) > model.rowCount()) {
                abort();
            }
            model.referenceName(row, i);
        }
        model.stringValue(row, text, 100);
        model.primitiveField(row, "value", bits);
        model.classNameOf(row);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const bool quiet = [] {
        Logger::setSink([](const char*) {});
        return true;
    }();
    std::string contents = header();
    contents.append(reinterpret_cast<const char*>(bytes), quiet ? count : 0);
    char name[] = "/tmp/vdk-fuzz-XXXXXX";
    const int file = mkstemp(name);
    if (file < 0 || write(file, contents.data(), contents.size()) < 0) {
        abort();
    }
    close(file);
    try {
        HeapReadOptions options;
        useHeap(*SnapshotHeapReader::read(std::make_shared<MappedFile>(name, ""), options));
    } catch (const HeapReadError&) {
    } catch (const BadInputException&) {
    }
    unlink(name);
    return 0;
}
