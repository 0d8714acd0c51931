#pragma once

#include "core/ground/ZSet.h"
#include "offline/AnalysisProgress.h"
#include "offline/DepthFirstSearch.h"
#include "offline/ObjectStorage.h"

// DominatorComputer: immediate dominators of all rows of a storage by the algorithm of Lengauer and
// Tarjan ("A fast algorithm for finding dominators in a flowgraph", 1979) in its sophisticated form
// with balanced linking: near-linear time in references, bounded call stack, 28 bytes of table, 8
// of buckets and one bit a row, and 8 bytes a level of the search.
//
// IMPLEMENTATION
//   Nodes are rows; node 0 is a virtual root with an edge to every root; the object count itself,
//   the null node, stands for "no node". The table has seven integers a node in one stretch, so
//   that a node's fields share a cache line or two:
//     label     node with the smallest semidominator on the compressed path
//     parent    in the depth-first tree; the complement of it for a root, until it is processed;
//               the dominator once that is decided, or the complement of a node that shares it
//     ancestor  in the link-eval forest; null node while the node isn't linked
//     child     in the balanced forest; null node at the end
//     vertex    by number: row k holds the node with depth-first number k
//     semi      depth-first number, later the semidominator's; 0 for a node not visited
//     size      in the balanced forest
//   A bucket is empty, one node, or (mark bit set) a ZSet: see ObjectStorage.
class DominatorComputer {
public:
    // Does all the work; the dominators are in the storage afterwards: the dominator's row, 0 for
    // the virtual root and for a row that was not reached. Only rows of reachableBits (a bit for
    // each row below the object count) are in the graph. The storage must have its scratch tables
    // and its backward references. A root or
    // reference that is no row is an internal error. The backward references must be those that
    // computeBackwardReferences makes. Throws std::bad_alloc and AnalysisCancelled; the dominators
    // are partial then, and the scratch tables not for use again.
    DominatorComputer(ObjectStorage& storage, const int* roots, int rootCount,
                      const int* reachableBits, AnalysisProgress* progress = nullptr);
    ~DominatorComputer();
    DominatorComputer(const DominatorComputer&) = delete;
    DominatorComputer& operator=(const DominatorComputer&) = delete;

    // Rows that the search reached, those of the virtual root aside.
    int getReachedCount() const { return depthFirstCount > 0 ? depthFirstCount - 1 : 0; }
    // Valid until the storage's mark bits are deleted.
    bool isReached(int row) const { return (markBits[row >> 5] >> (row & 31) & 1) != 0; }

    // Buckets that became sets, emptyings of such, and bytes of all sets at the end.
    struct Statistics {
        long sets = 0;
        long clears = 0;
        long bucketMem = 0;
    };
    const Statistics& getStatistics() const { return statistics; }

private:
    using Search = DepthFirstSearch<DominatorComputer>;
    friend Search;
    enum Slot { LABEL, PARENT, ANCESTOR, CHILD, VERTEX, SEMI, SIZE, SLOTS };

    DominatorComputer(ObjectStorage& analysed, int rootCount, const int* bits,
                      AnalysisProgress* told);
    static size_t at(int node) { return static_cast<size_t>(node) * SLOTS; }

    void collectRoots(const int* roots, int rootCount);
    void visit(int node, int parent);
    void follow(int /*position*/) {}
    void prefetch(int node) const { __builtin_prefetch(table.buffer + at(node), 1); }
    void depthFirstSearchDom(unsigned* visited, const RefTable& refTable);
    void computeSemidominators();
    void processNode(int number, const RefTable& backward);
    void prefetchNodes(int number, const RefTable& backward) const;
    int smallestOfReferrers(int node, int semi, const RefTable& backward);
    void addToBucket(int owner, int node);
    void emptyBucket(int owner);
    void decideDominator(int owner, int node);
    void deleteSets(bool report);
    void finishDominators();
    void storeDominators();
    int eval(int node);
    void compress(int node);
    void link(int parent, int node);

    ObjectStorage& storage;
    BigIntArray64Presized table;
    // Aliases of the table's slots: the field of a node stands at node * SLOTS.
    int* labels;
    int* parents;
    int* ancestors;
    int* children;
    int* vertices;
    int* semis;
    int* nodeSizes;
    ZSet<int> rootSet;
    int nullNode;
    int depthFirstCount;
    const unsigned* reachableBits;
    AnalysisProgress* progress;
    unsigned long* bucketTable;
    unsigned* markBits;
    bool bucketsInUse; // mark bits tell which buckets are sets
    bool debug;
    Statistics statistics;
};
