#pragma once

#include "core/ground/ZSet.h"
#include "offline/AnalysisProgress.h"
#include "offline/DepthFirstSearch.h"
#include "offline/ObjectStorage.h"

// SearchOrderDominators: immediate dominators of all rows of a storage, the same as
// DominatorComputer's, in 24 bytes and one bit a row, and 8 bytes a level of the search.
//
// IMPLEMENTATION
//   The algorithm of Lengauer and Tarjan ("A fast algorithm for finding dominators in a flowgraph",
//   1979) in its simple form: path compression alone, so a logarithm a reference at the worst and
//   a step or two in heaps. Nodes are named by their depth-first number, from 1, the virtual root:
//   what belongs together stands together, "processed" is a comparison, and three pairs of values
//   share a column because one's life ends where the other's begins:
//     parent     of the depth-first tree until the node is processed, complemented for a root that
//                another node led to; then the ancestor in the forest
//     label      first node of the bucket until the node is processed (0: empty); then the node
//                with the smallest semidominator on the compressed path
//     dominator  next node of the bucket; then the dominator, or the complement of a node that
//                shares it
//   Buckets need no columns of their own: a node's is filled by its descendants alone, and is
//   emptied before it is processed itself.
class SearchOrderDominators {
public:
    // Does all the work; the dominators are in the storage afterwards: the dominator's row, 0 for
    // the virtual root and for a row that was not reached. Only rows of reachableBits (a bit for
    // each row below the object count) are in the graph. The storage must have its backward
    // references, those that computeBackwardReferences makes, at the latest when afterSearch (may
    // be null) returns. A root or reference that is no row is an internal error. Throws
    // std::bad_alloc and AnalysisCancelled; the dominators are partial then.
    SearchOrderDominators(ObjectStorage& storage, const int* roots, int rootCount,
                          const int* reachableBits, AnalysisProgress* progress = nullptr,
                          AfterSearch* afterSearch = nullptr);
    SearchOrderDominators(const SearchOrderDominators&) = delete;
    SearchOrderDominators& operator=(const SearchOrderDominators&) = delete;

    // Rows that the search reached, those of the virtual root aside.
    int getReachedCount() const { return last - 1; }
    bool isReached(int row) const { return row > 0 && numbers.get()[row] != 0; }

private:
    // Zeroed integers that go when they are dropped.
    class Column {
    public:
        Column() = default;
        explicit Column(long elements);
        ~Column() { drop(); }
        Column(const Column&) = delete;
        Column& operator=(const Column&) = delete;
        void allot(long elements);
        void drop() noexcept;
        int* get() const { return ints; }

    private:
        size_t bytes = 0;
        int* ints = nullptr;
    };
    using Search = DepthFirstSearch<SearchOrderDominators>;
    friend Search;

    void visit(int row, int parentRow);
    void prefetch(int row) const { __builtin_prefetch(numbers.get() + row, 1); }
    void search(const int* roots, int rootCount, const unsigned* reachableBits);
    void computeSemidominators();
    void prefetchNodes(int number, const RefTable& backward) const;
    int smallestOfReferrers(int number, int semi, const RefTable& backward);
    void emptyBucket(int owner, int processed);
    int eval(int number, int processed);
    void finishDominators();
    void storeDominators();

    ObjectStorage& storage;
    AnalysisProgress* progress;
    const int objectCount;
    int last = 0;   // highest number given
    Column numbers; // by row: its number, 0 if it was not reached
    // By number.
    Column rows;
    Column parents;
    Column semis;
    Column labels;
    Column dominators;
    BigIntArray64 path; // of eval
};
