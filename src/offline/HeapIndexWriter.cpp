#include "offline/HeapIndexWriter.h"

#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/SnapshotWriter.h"
#include "offline/ObjectStorage.h"
#include "offline/OfflineGlobals.h"

#include <unistd.h>

namespace {

// Zero again at the end of the block, whatever ends it.
class FullLength {
public:
    explicit FullLength(long length) { ourIndexFileFullLength = length; }
    ~FullLength() { ourIndexFileFullLength = 0; }
    FullLength(const FullLength&) = delete;
    FullLength& operator=(const FullLength&) = delete;
};

} // namespace

long getHeapIndexSize(ObjectStorage& storage) {
    long size = 1 + 4 + 4 + 4 + 4L * storage.getClassRows().getSize() + 8;
    for (int kind = READ_REFERENCES; kind < READ_KIND_COUNT; kind++) {
        size += storage.arrayOfKind(kind)->getArraySizeOnDisk();
    }
    return size;
}

void writeHeapIndex(ObjectStorage& storage, AbstractWriter& writer) {
    writer.writeByte(SNAPSHOT_CLOSING_TAG);
    writer.writeInt(HEAP_INDEX_VERSION);
    writer.writeInt(0);
    const ZVector<int>& classRows = storage.getClassRows();
    writer.writeInt(classRows.getSize());
    for (int i = 0; i < classRows.getSize(); i++) {
        writer.writeInt(classRows[i]);
    }
    writer.writeInt(-1);
    writer.writeInt(-1);
    for (int kind = READ_REFERENCES; kind < READ_KIND_COUNT; kind++) {
        storage.arrayOfKind(kind)->writeArray(writer);
    }
}

void writeHeapSnapshot(DB& db, ObjectStorage& storage, SnapshotWriter& writer, Progress* progress,
                       long flags) {
    writeSnapshotHeader(db.startTime, db.sessionName, writer, flags, SNAPSHOT_FORMAT_VALUE);
    writeUserTableDescriptions(&db, writer);
    progress->updateProgress(5);
    writer.writeByte(SNAPSHOT_HEAP_TAG);
    writer.writeInt(storage.getObjectCount() - 1);
    writer.writeInt(0);
    writer.writeInt(0);
    writeAllTables(&db, writer, 10, 90, progress, nullptr);
    writer.flush();
    const long written = lseek(writer.getFileDescriptor(), 0, SEEK_CUR);
    {
        const FullLength fullLength((written < 0 ? 0 : written) + getHeapIndexSize(storage));
        writeHeapIndex(storage, writer);
        writer.flush();
    }
    progress->updateProgress(99);
}
