#pragma once

#include "offline/AnalysisProgress.h"
#include "offline/ObjectStorage.h"

// What analyzeHeap did.
struct HeapAnalysisResult {
    int reachedRows = 0;
    // Wall time of each phase, nanoseconds. The backward references are built while the search runs
    // when there are two threads: backwardNs is what the analysis waited for them after it.
    long searchNs = 0;
    long backwardNs = 0;
    long dominatorsNs = 0;
    long retainedNs = 0;
};

// The whole analysis of a filled storage: backward references (if it has none), dominators and
// retained sizes. reachableBits limits the graph; null takes in every row, and what the roots don't
// reach has dominator 0. reachedBits, if not null, receives the rows reached (bitFieldWords words).
// threads: 1 or 2; the result is the same.
// Throws std::bad_alloc, AnalysisCancelled and, for a root or reference that is no row, the
// internal error; the storage then has partial results.
HeapAnalysisResult analyzeHeap(ObjectStorage& storage, const int* roots, int rootCount,
                               const int* reachableBits, int* reachedBits, int threads,
                               AnalysisProgress* progress = nullptr);
