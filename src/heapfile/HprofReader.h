#pragma once

#include "heapfile/HeapModel.h"
#include "offline/AnalysisProgress.h"

#include <memory>
#include <string>

// What the readers of heap files are told.
struct HeapReadOptions {
    std::string temporaryDir; // where compressed dumps are inflated; empty for TMPDIR or /tmp
    int dumpNumber = 1;       // which heap dump of a file that holds several
    int threads = 2;          // the result doesn't depend on it
    AnalysisProgress* progress = nullptr;
};

// Reads the JVM's own heap dumps: HPROF 1.0.1 and 1.0.2, identifiers of 4 and 8 bytes, one long
// heap record or many short segments, several dumps in a file, also in gzip form. Two passes over
// the mapped file; memory is taken by the page of an array, never by the object. A truncated or
// damaged dump is read as far as it goes, and HeapModel::remarks say so.
class HprofReader {
public:
    // Throws HeapReadError when there is no heap to show, AnalysisCancelled, std::bad_alloc.
    static std::unique_ptr<HeapModel> read(std::shared_ptr<MappedFile> file,
                                           const HeapReadOptions& options);
};
