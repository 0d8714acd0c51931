#pragma once

#include "offline/AnalysisProgress.h"
#include "offline/ObjectStorage.h"

// What a search from the roots numbered and found, by number from 1, the virtual root.
struct SearchOrder {
    const int* rows;       // that of the virtual root is 0
    const int* dominators; // numbers, each less than the node's own
    int last;              // highest number
};

// Puts dominators and retained sizes of all rows into the storage. The sizes are summed from the
// last number to the first, in which order all that a node dominates comes ahead of it.
// IMPLEMENTATION
//   Each thread sums a part of the numbers. What a part adds to nodes of lower parts, which are
//   ancestors of its first number in the tree of the search, is kept aside, and carried upward when
//   all parts are done.
// Throws std::bad_alloc and AnalysisCancelled; the results are partial then.
void storeSearchOrder(ObjectStorage& storage, const SearchOrder& order, int threads,
                      AnalysisProgress* progress);
