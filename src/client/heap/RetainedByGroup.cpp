#include "client/heap/RetainedByGroup.h"

#include "client/heap/HeapRowPass.h"

#include <algorithm>

namespace vdk {

namespace {

// Parts of the work for each thread, as they are of unequal size.
constexpr int PartsPerWorker = 16;
// More sets than any but a made-up heap has. Beyond them one thread walks alone.
constexpr size_t MostSets = 4096;
constexpr int EmptySet = 1;

} // namespace

RetainedByGroup::RetainedByGroup(const HeapSession& session, const RowGroups& rowGroups,
                                 size_t groups, int64_t allBytes)
    : session(session), groups(rowGroups), groupCount(groups), setWords(groups / 64 + 1),
      workers(session.threads()), rows(session.model().rowCount() + 1),
      bigFrom(allBytes / (int64_t(workers) * PartsPerWorker) + 1), nodes(2L * rows),
      tree(reinterpret_cast<Node*>(nodes.get())), bigBits(size_t(bitFieldWords(rows)), 0),
      sets(2 * setWords, 0) {}

std::vector<int64_t> RetainedByGroup::sum() {
    std::vector<Walker> walkers(
        size_t(workers),
        Walker{std::vector<int64_t>(groupCount), std::vector<int>(groupCount), {}, nullptr});
    const auto inParts = [&](int parts, auto&& body) {
        runParallel(size_t(parts), workers, body, [](size_t) {});
    };
    if (workers > 1) {
        findBig();
        addBig(walkers[0].sums);
    }
    inParts(workers, [&](size_t part, int) { linkChildren(int(part), workers); });
    const int parts = workers * PartsPerWorker;
    inParts(parts,
            [&](size_t part, int worker) { walkPart(walkers[size_t(worker)], int(part), parts); });
    std::vector<int64_t> sums(groupCount);
    for (const Walker& walker : walkers) {
        for (size_t i = 0; i < groupCount; i++) {
            sums[i] += walker.sums[i];
        }
    }
    return sums;
}

// Links the rows whose dominator lies in a part of the rows.
void RetainedByGroup::linkChildren(int part, int parts) {
    constexpr int Ahead = 24;
    const auto from = int(std::max<int64_t>(int64_t(rows) * part / parts, 1));
    const auto end = int(int64_t(rows) * (part + 1) / parts);
    HeapRowBlock block;
    for (int next = 1; next < rows; next += block.count) {
        block.load(session, HeapRowBlock::Dominators, next, rows);
        for (int i = 0; i < block.count; i++) {
            const int soon = block.dominators[size_t(std::min(i + Ahead, block.count - 1))];
            if (soon >= from && soon < end) {
                __builtin_prefetch(&tree[soon], 1);
            }
            const int dominator = block.dominators[size_t(i)];
            if (dominator >= from && dominator < end && !isBig(dominator)) {
                tree[next + i].nextSibling = tree[dominator].firstChild;
                tree[dominator].firstChild = next + i;
            }
        }
    }
}

// What is above a big row is big too.
void RetainedByGroup::findBig() {
    std::vector<std::vector<int>> found(size_t(workers), std::vector<int>{});
    passOverRows(session, HeapRowBlock::Retained, workers,
                 [&](int worker, const HeapRowBlock& block) {
                     for (int i = 0; i < block.count; i++) {
                         if (block.retained[size_t(i)] >= bigFrom) {
                             found[size_t(worker)].push_back(block.firstRow + i);
                         }
                     }
                 });
    for (const std::vector<int>& part : found) {
        big.insert(big.end(), part.begin(), part.end());
    }
    for (int row : big) {
        setMark(bigBits.data(), row);
    }
}

// Sums the big rows themselves, and finds the groups above what hangs below them.
void RetainedByGroup::addBig(std::vector<int64_t>& sums) {
    std::vector<int64_t> bigSums(sums.size(), 0);
    std::vector<int> way;
    for (int each : big) {
        int row = each;
        for (; isBig(row) && tree[row].firstChild == 0; row = session.storage().getDominator(row)) {
            way.push_back(row);
            tree[row].firstChild = EmptySet; // ends a circle, as damaged files may have
        }
        int set = isBig(row) ? tree[row].firstChild : EmptySet;
        for (; !way.empty(); way.pop_back()) {
            const size_t group = groups.of(way.back());
            const int above = set;
            set = setWith(above, group);
            bigSums[group] += set != above ? session.retainedOf(way.back()) : 0;
            tree[way.back()].firstChild = set;
        }
        if (sets.size() > MostSets * setWords) {
            for (int unset : big) {
                tree[unset].firstChild = 0;
            }
            std::fill(bigBits.begin(), bigBits.end(), 0);
            return;
        }
    }
    for (size_t i = 0; i < sums.size(); i++) {
        sums[i] += bigSums[i];
    }
}

// The set with the group in addition.
int RetainedByGroup::setWith(int set, size_t group) {
    const size_t words = size_t(set) * setWords;
    if ((sets[words + group / 64] >> (group % 64) & 1) != 0) {
        return set;
    }
    const auto known = larger.find({set, group});
    if (known != larger.end()) {
        return known->second;
    }
    const auto made = int(sets.size() / setWords);
    sets.resize(sets.size() + setWords);
    std::copy_n(sets.begin() + ptrdiff_t(words), setWords, sets.end() - ptrdiff_t(setWords));
    sets[size_t(made) * setWords + group / 64] |= uint64_t(1) << group % 64;
    larger[{set, group}] = made;
    return made;
}

// The groups above the rows that a row dominates, or the roots; null within a small tree.
const uint64_t* RetainedByGroup::setBelow(int dominator) const {
    const int set = dominator == 0 ? EmptySet : isBig(dominator) ? tree[dominator].firstChild : 0;
    return set == 0 ? nullptr : sets.data() + size_t(set) * setWords;
}

// The small trees whose tops are in a part of the rows.
void RetainedByGroup::walkPart(Walker& walker, int part, int parts) {
    const auto end = int(int64_t(rows) * (part + 1) / parts);
    HeapRowBlock block;
    int dominator = 0;
    const uint64_t* above = setBelow(dominator);
    for (auto next = int(std::max<int64_t>(int64_t(rows) * part / parts, 1)); next < end;
         next += block.count) {
        block.load(session, HeapRowBlock::Dominators, next, end);
        for (int i = 0; i < block.count; i++) {
            if (block.dominators[size_t(i)] != dominator) {
                dominator = block.dominators[size_t(i)];
                above = setBelow(dominator);
            }
            if (above != nullptr && !isBig(next + i)) {
                walker.aboveTop = above;
                walkTree(walker, next + i);
            }
        }
    }
}

void RetainedByGroup::enter(Walker& walker, int row) const {
    const size_t group = groups.of(row);
    if (walker.above[group]++ == 0 && (walker.aboveTop[group / 64] >> (group % 64) & 1) == 0) {
        walker.sums[group] += session.retainedOf(row);
    }
}

// A row and all below it.
void RetainedByGroup::walkTree(Walker& walker, int top) const {
    std::vector<int>& way = walker.way;
    int row = top;
    for (;;) {
        enter(walker, row);
        const Node& entered = tree[row];
        __builtin_prefetch(&tree[entered.nextSibling]);
        if (entered.firstChild != 0) {
            way.push_back(row);
            row = entered.firstChild;
            continue;
        }
        walker.above[groups.of(row)]--;
        while (row != top && tree[row].nextSibling == 0) {
            row = way.back();
            way.pop_back();
            walker.above[groups.of(row)]--;
        }
        if (row == top) {
            return;
        }
        row = tree[row].nextSibling;
    }
}

} // namespace vdk
