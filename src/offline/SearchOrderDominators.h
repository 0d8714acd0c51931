#pragma once

#include "offline/AnalysisProgress.h"
#include "offline/DepthFirstSearch.h"
#include "offline/ObjectStorage.h"
#include "offline/ScratchColumn.h"

// SearchOrderDominators: immediate dominators and retained sizes of all rows of a storage, the same
// as DominatorComputer's, in 16 to 20 bytes and two bits a row, one bit a reference, 4 bytes for
// each reference that decides anything, and 8 bytes a level of the search. It needs no table of
// referrers.
//
// IMPLEMENTATION
//   The algorithm of Lengauer and Tarjan ("A fast algorithm for finding dominators in a flowgraph",
//   1979) in its simple form: path compression alone, so a logarithm a reference at the worst and
//   a step or two in heaps. Nodes are named by their depth-first number, from 1, the virtual root:
//   what belongs together stands together, "processed" is a comparison, and columns serve several
//   purposes because one's life ends where the other's begins:
//     parent     of the depth-first tree until the node is processed, complemented for a root that
//                another node led to; then the ancestor in the forest
//     label      first node of the bucket until the node is processed (0: empty); then the node
//                with the smallest semidominator on the compressed path
//     dominator  where the node's list of sources begins; then next node of the bucket; then the
//                dominator, or the complement of a node that shares it
//     semi       in `sources`, as far behind as it must stand for no list to be overwritten before
//                its turn: the last list goes first
//   Buckets need no columns of their own: a node's is filled by its descendants alone, and is
//   emptied before it is processed itself.
//   Sources are those of the references that the search did not follow, as numbers and in lists by
//   number: a reference that it followed comes from the parent, the start of every evaluation, and
//   one to a root decides nothing. Until the lists are placed, the labels count.
//   The search and the semidominators take one thread. Lists, the rows by number and what goes into
//   the storage are made by all: rows and numbers are shared in stripes and parts.
class SearchOrderDominators {
public:
    // Does all the work; the storage has the dominators afterwards (the dominator's row, 0 for the
    // virtual root and for a row that was not reached) and the retained sizes, a row that was not
    // reached its own size. Only rows of reachableBits (a bit for each row below the object count)
    // are in the graph. threads: from 1 on; the result is the same.
    // A root, or reference of a row that was reached, that is no row is an internal error. Throws
    // std::bad_alloc and AnalysisCancelled; the results are partial then.
    SearchOrderDominators(ObjectStorage& storage, const int* roots, int rootCount,
                          const int* reachableBits, int threads = 1,
                          AnalysisProgress* progress = nullptr, AfterSearch* afterSearch = nullptr);
    SearchOrderDominators(const SearchOrderDominators&) = delete;
    SearchOrderDominators& operator=(const SearchOrderDominators&) = delete;

    // Rows that the search reached, those of the virtual root aside.
    int getReachedCount() const { return last - 1; }
    // Bits of the rows reached, bitFieldWords(object count) words.
    void copyReached(int* bits) const;

private:
    using Search = DepthFirstSearch<SearchOrderDominators>;
    friend Search;
    struct Share;

    void visit(int row, int parentRow);
    void follow(int position) {
        const auto at = static_cast<unsigned>(position);
        followed.bits()[at >> 5] |= 1u << (at & 31);
    }
    bool wasFollowed(int position) const {
        const auto at = static_cast<unsigned>(position);
        return (followed.bits()[at >> 5] >> (at & 31) & 1) != 0;
    }
    void prefetch(int row) const { __builtin_prefetch(numbers.get() + row, 1); }
    void search(const int* roots, int rootCount, const unsigned* reachableBits);
    void searchWithMemoryAhead(const int* roots, int rootCount, const unsigned* reachableBits);
    void collectSources();
    template <typename Handle>
    void walkSources(const Share& share, const char* phase, Handle&& handle) const;
    template <typename Take>
    void countSources(const Share& share, Take take) const;
    template <typename Take>
    void storeSources(const Share& share, Take take) const;
    void placeLists();
    void invertNumbers();
    void computeSemidominators();
    int smallestOfSources(int number, int least, int begin, int end);
    void emptyBucket(int owner, int processed);
    int eval(int number, int processed);
    void finishDominators();

    ObjectStorage& storage;
    AnalysisProgress* progress;
    const int threads;
    const int objectCount;
    int last = 0;           // highest number given
    int sourceCount = 0;    // of all lists
    ScratchColumn reached;  // a bit a row
    ScratchColumn followed; // a bit a position of the store of references: the search followed it
    ScratchColumn rootRows; // a bit a row
    ScratchColumn numbers;  // by row: its number, 0 if it was not reached
    ScratchColumn sources;  // of the lists
    ScratchColumn otherCursors; // of the second of two threads, while lists are made
    // By number.
    ScratchColumn rows;
    ScratchColumn parents;
    int* semi = nullptr; // in `sources`
    ScratchColumn labels;
    ScratchColumn dominators;
    BigIntArray64 path; // of eval
};
