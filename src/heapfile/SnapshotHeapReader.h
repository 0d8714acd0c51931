#pragma once

#include "heapfile/HeapModel.h"
#include "heapfile/HprofReader.h"

#include <memory>

// Reads a snapshot with a heap, or with the results of an analysis only, into a HeapModel.
class SnapshotHeapReader {
public:
    static bool isSnapshot(const uint8_t* bytes, uint64_t size);
    // Throws HeapReadError, BadInputException, AnalysisCancelled, std::bad_alloc.
    static std::unique_ptr<HeapModel> read(std::shared_ptr<MappedFile> file,
                                           const HeapReadOptions& options);
};
