// A heap dump of a JVM. The first byte chooses the size of identifiers and the number of threads;
// the header is put in front of the rest, so that the fuzzer starts behind it.

#include "core/ground/Logger.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/HprofReader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

// Touches all that the reports read of an object.
void useHeap(const HeapModel& model) {
    std::string text;
    uint64_t bits = 0;
    for (int row = 1; row <= model.rowCount(); row++) {
        for (int i = 0; i < model.storage->getRefCount(row); i++) {
            if (model.storage->getRef(row, i) < 0 ||
                model.storage->getRef(row, i) > model.rowCount()) {
                abort();
            }
            model.referenceName(row, i);
        }
        model.stringValue(row, text, 100);
        model.primitiveField(row, "value", bits);
        if (model.idOf(row) != 0 && model.rowOfId(model.idOf(row)) != row) {
            abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const bool quiet = [] {
        Logger::setSink([](const char*) {});
        return true;
    }();
    if (count < 1 || !quiet) {
        return 0;
    }
    std::string contents("JAVA PROFILE 1.0.2\0\0\0\0", 22);
    contents += (bytes[0] & 1) != 0 ? '\x04' : '\x08';
    contents.append(8, '\0');
    contents.append(reinterpret_cast<const char*>(bytes + 1), count - 1);
    char name[] = "/tmp/vdk-fuzz-XXXXXX";
    const int file = mkstemp(name);
    if (file < 0 || write(file, contents.data(), contents.size()) < 0) {
        abort();
    }
    close(file);
    try {
        HeapReadOptions options;
        options.threads = 1 + (bytes[0] >> 1 & 1);
        useHeap(*HprofReader::read(std::make_shared<MappedFile>(name, ""), options));
    } catch (const HeapReadError&) {
    }
    unlink(name);
    return 0;
}
