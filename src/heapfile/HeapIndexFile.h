#pragma once

#include "heapfile/HeapModel.h"
#include "offline/AnalysisProgress.h"

#include <memory>
#include <string>
#include <vector>

// A heap with all that was computed about it.
struct AnalyzedHeap {
    std::unique_ptr<HeapModel> model;
    std::vector<int> reachedBits; // rows that the roots reach: bit r % 32 of word r / 32
    bool analyzed = false;        // dominators, retained sizes and backward references are there
};

// DESCRIPTION
//   File that holds an analyzed heap, so that opening it again takes no computing. It belongs to
//   one heap file, whose size, time of change and digest it names, and to one dump in it.
// IMPLEMENTATION
//   Little-endian: magic, version, identity, the description of the model, the arrays page by page,
//   a checksum of all before it. What is read is not trusted: lengths are compared with what is
//   left of the file before memory is taken, and every row number is checked before the heap is
//   handed out.
class HeapIndexFile {
public:
    // Writes heap, which must be analyzed, to path: under a temporary name first, which is renamed
    // when all is written. Throws HeapReadError if that fails.
    static void write(const AnalyzedHeap& heap, int dumpNumber, const std::string& path,
                      AnalysisProgress* progress);
    // Reads what write wrote. False, with the reason in why, if the index is damaged or belongs to
    // another file, and with why empty if path doesn't exist. Throws HeapReadError if path is
    // something else than an index, and AnalysisCancelled, std::bad_alloc.
    static bool read(const std::string& path, std::shared_ptr<MappedFile> file, int dumpNumber,
                     AnalyzedHeap& heap, std::string& why, AnalysisProgress* progress);
};
