#include "heapfile/SnapshotHeapReader.h"

#include "db/DB.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/SnapshotHeapSections.h"

#include <cstring>

bool SnapshotHeapReader::isSnapshot(const uint8_t* bytes, uint64_t size) {
    return size >= static_cast<uint64_t>(SNAPSHOT_MAGIC_SIZE) &&
           memcmp(bytes, SNAPSHOT_MAGIC, SNAPSHOT_MAGIC_SIZE) == 0;
}

std::unique_ptr<HeapModel> SnapshotHeapReader::read(std::shared_ptr<MappedFile> mapped,
                                                    const HeapReadOptions& options) {
    const MappedFile& file = *mapped;
    std::unique_ptr<HeapModel> model(new HeapModel(std::move(mapped)));
    model->format = HeapModel::Format::Snapshot;
    model->formatName = "snapshot";
    model->idSize = 4;
    if (!file.inflateProblem().empty()) {
        model->remarks.push_back("the file is truncated or damaged: " + file.inflateProblem());
    }
    DB db(-1, -1);
    MemorySource source(file.data(), static_cast<long>(file.size()));
    SnapshotHeapSections sections(file, *model, options.progress);
    SnapshotReader reader(&db, source, &sections);
    const SnapshotHeader& header = reader.read();
    model->captureTimeMs = static_cast<uint64_t>(header.captureTimeMs);
    if (!model->storage) {
        throw NoHeapError("the snapshot holds no heap: it was taken without one");
    }
    if (!sections.hasObjects()) {
        if (!sections.hasClosingSections()) {
            throw NoHeapError("the snapshot's heap is empty");
        }
        model->resultsOnly = true;
        model->remarks.push_back(
            "the file holds the results of an analysis only: no classes, roots "
            "and references");
    }
    sections.resolveNames(db);
    model->fillClassColumn();
    model->sizing.fromJvm = true;
    return model;
}
