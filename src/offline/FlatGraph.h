#pragma once

#include "offline/AnalysisProgress.h"
#include "offline/BigIntArray64Presized.h"
#include "offline/RefTable.h"

// FlatGraph: a small graph of nodes 1 to its count and a root 0, of which one thing is asked: is
// the root the immediate dominator of every node? Fill it in the order: count all edges, allot, add
// the same edges, then ask. Throws std::bad_alloc.
//
// IMPLEMENTATION
//   Semidominators by the simple form of Lengauer and Tarjan's algorithm (path compression alone,
//   so a logarithm a reference), dominators from them by climbing as in the Semi-NCA algorithm
//   (Georgiadis, "Linear-Time Algorithms for Dominators and Related Problems", 2005). The climb
//   takes one step while every dominator found is the root, and the question is answered at the
//   first that is not.
class FlatGraph {
public:
    explicit FlatGraph(int nodeCount);

    void countEdge(int from, int to) {
        sources.buffer[2 * to + 1]++;
        targets.buffer[2 * from + 1]++;
    }
    void allotEdges();
    void addEdge(int from, int to) {
        storeAt(sourceStore, sources, to, from);
        storeAt(targetStore, targets, from, to);
    }

    // 0 if the root is the immediate dominator of every node; otherwise a node for which it isn't.
    // Answers once.
    int findDominated(AnalysisProgress* progress);

private:
    // Lists of neighbours: start and length by node, in a store. While edges are added, the start
    // moves with them.
    static void storeAt(BigIntArray64& store, BigIntArray64Presized& lists, int node, int value) {
        store.set(lists.buffer[2 * node]++, value);
    }
    static void allot(BigIntArray64Presized& lists);
    static void rewind(BigIntArray64Presized& lists);
    void search();
    int eval(int number);

    int nodeCount;
    BigIntArray64Presized sources;
    BigIntArray64Presized targets;
    BigIntArray64 sourceStore;
    BigIntArray64 targetStore;
    // By node: depth-first number, 0 if not visited. The root's is 1.
    BigIntArray64Presized numbers;
    // By number: the node; parent, semidominator, label and ancestor as numbers, 0 for none.
    BigIntArray64Presized vertices;
    BigIntArray64Presized parents;
    BigIntArray64Presized semis;
    BigIntArray64Presized labels;
    BigIntArray64Presized ancestors;
    BigIntArray64 stack;
    int visited;
};
