#pragma once

#include "offline/AnalysisProgress.h"
#include "offline/ObjectStorage.h"

// The whole analysis of a filled storage: dominators and retained sizes. Referrers are neither
// needed nor made: see ensureBackwardReferences. reachableBits limits the graph; null takes in
// every row, and what the roots don't reach has dominator 0. reachedBits, if not null, receives the
// rows reached (bitFieldWords words). threads: from 1 on; the result is the same. Returns how many
// rows were reached. Throws std::bad_alloc, AnalysisCancelled and, for a root, or reference of a
// row that was reached, that is no row, the internal error; the storage then has partial results.
int analyzeHeap(ObjectStorage& storage, const int* roots, int rootCount, const int* reachableBits,
                int* reachedBits, int threads, AnalysisProgress* progress = nullptr);
