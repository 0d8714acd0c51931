// Two table streams, one after the other, into one database, as a client that follows a hostile
// agent takes them. What is accepted must be fit for everything that a client does with rows.

#include "core/ground/Logger.h"
#include "db/AbstractWriter.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/TableStreamReader.h"

#include <cstddef>
#include <cstdint>

namespace {
class NowhereWriter : public AbstractWriter {
public:
    NowhereWriter() : AbstractWriter(65536, true, -1) {}
    void flush() override { used = 0; }
};

// A socket does not tell its size, a file does.
class SocketLikeSource : public MemorySource {
public:
    SocketLikeSource(const uint8_t* bytes, size_t count)
        : MemorySource(bytes, static_cast<long>(count), 50) {}
    long getTotalSize() const override { return -1; }
};

void use(DB& db) {
    NowhereWriter writer;
    Progress progress;
    writeAllTables(&db, writer, 0, 90, &progress, nullptr);
    db.threadFrameIndex->fillIndexFromTable();
    db.j2eeIndex->fillIndexFromTable();
    db.stringPool->collectGarbageStrings();
    db.stringPool->getDBIndex("a new text", true);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
    static const bool quiet = [] {
        Logger::setSink([](const char*) {});
        return true;
    }();
    if (!quiet || count < 1) {
        return 0;
    }
    DB db(-1, -1);
    db.createUserTableByDescription("Events\n3\nuptime_ns\n1\nURL\n2\nthread\n0\n");
    SocketLikeSource socket(bytes + 1, count - 1);
    MemorySource file(bytes + 1, static_cast<long>(count - 1));
    ByteReader input(bytes[0] % 2 == 0 ? static_cast<ByteSource&>(socket) : file);
    TableStreamReader reader(&db);
    try {
        reader.readSocketStream(input);
        use(db);
        reader.readSocketStream(input);
        use(db);
    } catch (const BadInputException&) {
    }
    return 0;
}
