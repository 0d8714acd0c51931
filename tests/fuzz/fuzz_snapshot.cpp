// A snapshot file without a heap. The magic is put in front of the input, so that the fuzzer starts
// behind it.

#include "core/ground/Logger.h"
#include "db/DB.h"
#include "db/SnapshotReader.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const bool quiet = [] {
        Logger::setSink([](const char*) {});
        return true;
    }();
    std::string file(SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE);
    file.append(reinterpret_cast<const char*>(bytes), quiet ? count : 0);
    DB db(-1, -1);
    MemorySource source(file.data(), static_cast<long>(file.size()));
    SnapshotReader reader(&db, source);
    try {
        reader.read();
        db.getStatistics();
    } catch (const BadInputException&) {
    }
    return 0;
}
