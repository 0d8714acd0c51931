#pragma once

#include "offline/AnalysisProgress.h"
#include "offline/ObjectStorage.h"

// Builds the table of referrers of a storage: for each row the rows of reachableBits that refer to
// it, in ascending order, as often as they do. counts is scratch of one zeroed element a row and is
// zero again afterwards. A storage that has the table, and a reference that is no row, is an
// internal error. Each of the threads takes a part of the targets; the result is the same for any
// number. Throws std::bad_alloc and AnalysisCancelled; the storage then has no table.
void computeBackwardReferences(ObjectStorage& storage, const int* reachableBits, int* counts,
                               int threads = 1, AnalysisProgress* progress = nullptr);

// Gives the storage the table of all rows' referrers if it has none.
void ensureBackwardReferences(ObjectStorage& storage, int threads,
                              AnalysisProgress* progress = nullptr);
