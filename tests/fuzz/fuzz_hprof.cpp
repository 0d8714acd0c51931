// A heap dump of a JVM. The first byte chooses the size of identifiers and the number of threads;
// the header is put in front of the rest, so that the fuzzer starts behind it.

#include "FuzzedHeap.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/HprofReader.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    if (count < 1) {
        return 0;
    }
    std::string contents("JAVA PROFILE 1.0.2\0\0\0\0", 22);
    contents += (bytes[0] & 1) != 0 ? '\x04' : '\x08';
    contents.append(8, '\0');
    contents.append(reinterpret_cast<const char*>(bytes + 1), count - 1);
    try {
        HeapReadOptions options;
        options.threads = 1 + (bytes[0] >> 1 & 1);
        const auto model = HprofReader::read(mappedInput(contents), options);
        useHeap(*model);
        for (int row = 1; row <= model->rowCount(); row++) {
            if (model->idOf(row) != 0 && model->rowOfId(model->idOf(row)) != row) {
                abort();
            }
        }
    } catch (const HeapReadError&) {
    }
    return 0;
}
