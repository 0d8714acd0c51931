#pragma once

#include "offline/AnalysisProgress.h"
#include "offline/ObjectStorage.h"

// What a check of dominators found.
struct DominatorCheck {
    // Null if the dominators are right; otherwise which property fails, at `row` and `other`.
    const char* violated = nullptr;
    int row = 0;
    int other = 0;
    // How immediacy was shown: by a reference from the dominator itself, by two disjoint ways in a
    // low-high order, by solving what remained.
    long direct = 0;
    long ordered = 0;
    long solved = 0;
};

// Checks the dominators of a storage against the definition, in linear time and memory for all but
// tightly knotted parts of the heap, and without the tables or numbers of the computation. Rows of
// reachableBits (null for all rows) are the graph, as for DominatorComputer.
//
// A tree is the dominator tree of a graph if and only if
//   - it has exactly the reachable rows,
//   - parent property: for each reference (v, w), the dominator of w is v or an ancestor of v (so
//     all ancestors in the tree are dominators), and
//   - sibling property: no row dominates a sibling (so none is missing).
// The first two come from one walk over the tree. For the third, replace the source of each
// reference into w by its ancestor among the siblings of w. No sibling dominates w if w is referred
// to by its dominator itself, or stands between two different siblings of which the same is known
// (low-high order): those have disjoint ways from the dominator. What cannot be ordered so,
// irreducible knots among siblings, is solved as a small graph of its own.
// Source: L. Georgiadis and R. E. Tarjan, "Dominator Tree Certification and Divergent Spanning
// Trees", ACM Transactions on Algorithms, 2015.
//
// Throws std::bad_alloc and AnalysisCancelled. Changes nothing in the storage.
DominatorCheck verifyDominators(const ObjectStorage& storage, const int* roots, int rootCount,
                                const int* reachableBits, AnalysisProgress* progress = nullptr);

// Checks that each row's retained size is its own size and those of the rows it dominates directly.
// The row of the first failure, 0 if there is none. Throws std::bad_alloc.
int verifyRetainedSizes(const ObjectStorage& storage);
