// What the objects of each group retain, by a walk down the dominator tree.
#pragma once

#include "client/heap/HeapSession.h"
#include "offline/ScratchColumn.h"

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace vdk {

// The group of each row: a class's index plus one, or a number of its own.
struct RowGroups {
    const ClassColumn* classes; // if `numbers` is empty
    std::vector<int> numbers;   // by row

    size_t of(int row) const {
        return size_t(numbers.empty() ? classes->get(row) + 1 : numbers[size_t(row)]);
    }
};

// Sums for each group the retained sizes of those of its objects that no object of the same group
// dominates. Takes 8 bytes a row while it works.
//
// The tree is walked downward, and counters tell which groups are above. So that threads can share
// it, rows that retain much are done beforehand: all that is left hangs below them or the roots in
// many small trees, each of which needs to know no more than the groups above its top.
class RetainedByGroup {
public:
    // allBytes: of all objects, or about so many.
    RetainedByGroup(const HeapSession& session, const RowGroups& rowGroups, size_t groups,
                    int64_t allBytes);
    // A sum for each group.
    std::vector<int64_t> sum();

private:
    // Of a big row nothing but the set, as firstChild: no list has it, and it needs none.
    struct Node {
        int firstChild;
        int nextSibling;
    };
    // What a thread has summed, and where it is. Walkers share no line of the cache.
    struct alignas(128) Walker {
        std::vector<int64_t> sums;
        std::vector<int> above; // rows of each group between the top of the tree and here
        std::vector<int> way;
        const uint64_t* aboveTop = nullptr; // a bit for each group
    };

    void linkChildren(int part, int parts);
    void findBig();
    void addBig(std::vector<int64_t>& sums);
    int setWith(int set, size_t group);
    const uint64_t* setBelow(int dominator) const;
    void walkPart(Walker& walker, int part, int parts);
    void walkTree(Walker& walker, int top) const;
    void enter(Walker& walker, int row) const;
    bool isBig(int row) const { return row > 0 && row < rows && isMarked(bigBits.data(), row); }

    const HeapSession& session;
    const RowGroups& groups;
    const size_t groupCount;
    const size_t setWords;
    const int workers;
    const int rows; // are below it
    const int64_t bigFrom;
    const ScratchColumn nodes;
    Node* const tree;     // of the nodes, by row; the children of row 0 are not linked
    std::vector<int> big; // rows that retain much
    std::vector<int> bigBits;
    std::vector<uint64_t> sets; // bits by group, setWords each; set 1 is empty, there is no set 0
    // Of the sets with one group more: the number of that set, by set and group.
    std::map<std::pair<int, size_t>, int> larger;
};

} // namespace vdk
