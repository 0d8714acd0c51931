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
    bool analyzed = false;        // dominators and retained sizes are there
};

// DESCRIPTION
//   File that holds an analyzed heap, so that opening it again takes no computing. It belongs to
//   one heap file, whose size, time of change and digest it names, and to one dump in it.
// IMPLEMENTATION
//   In the byte order of the machine, which a mark tells: sections by IndexSections, of which the
//   description of the model is read when the index is opened and each column where it is asked
//   for. What is read is not trusted: lengths are compared with the file before memory is taken,
//   and every block of row numbers is checked before one is handed out. A block that turns out to
//   be damaged is a HeapReadError from whoever asked for it.
class HeapIndexFile {
public:
    // Writes heap, which must be analyzed and have its backward references, to path: under a
    // temporary name first, which is renamed when all is written. Throws HeapReadError if that
    // fails.
    static void write(const AnalyzedHeap& heap, int dumpNumber, const std::string& path,
                      AnalysisProgress* progress);
    // Reads what write wrote. False, with the reason in why, if the index is damaged or belongs to
    // another file, and with why empty if path doesn't exist. Throws HeapReadError if path is
    // something else than an index, and std::bad_alloc.
    static bool read(const std::string& path, std::shared_ptr<MappedFile> file, int dumpNumber,
                     AnalyzedHeap& heap, std::string& why);
};
