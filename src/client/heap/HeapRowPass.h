// Passes over all rows of an opened heap on all threads, with the columns that are asked for.
#pragma once

#include "client/heap/HeapSession.h"
#include "heapfile/ParallelTasks.h"

#include <algorithm>
#include <array>
#include <vector>

namespace vdk {

// A stretch of rows with copies of their columns, so that a pass asks for values without look-ups.
class HeapRowBlock {
public:
    static constexpr int MostRows = 2048;
    enum Column : unsigned { Classes = 1, Sizes = 2, Retained = 4, Dominators = 8 };

    // Columns not named in `wanted` stay as they are.
    void load(const HeapSession& session, unsigned wanted, int from, int end);

    int firstRow = 0;
    int count = 0;
    // By row - firstRow.
    std::array<int, MostRows> classes;   // see HeapModel::classOf
    std::array<int64_t, MostRows> sizes; // -1 for what is no object of the file
    std::array<int64_t, MostRows> retained;
    std::array<int, MostRows> dominators;

private:
    std::array<int, 2 * MostRows> raw;
};

// Calls body(worker, block) for blocks of all rows from 1 on, each row in one of them. `workers`
// threads share them, the caller's being worker 0.
template <typename Body>
void passOverRows(const HeapSession& session, unsigned wanted, int workers, Body&& body) {
    constexpr int RowsPerTask = 1 << 17;
    const int end = session.model().rowCount() + 1;
    std::vector<HeapRowBlock> blocks(static_cast<size_t>(workers));
    runParallel(
        size_t(end) / RowsPerTask + 1, workers,
        [&](size_t task, int worker) {
            HeapRowBlock& block = blocks[size_t(worker)];
            const auto taskEnd = int(std::min<int64_t>(end, (int64_t(task) + 1) * RowsPerTask));
            int from = std::max(int(task) * RowsPerTask, 1);
            while (from < taskEnd) {
                block.load(session, wanted, from, taskEnd);
                body(worker, static_cast<const HeapRowBlock&>(block));
                from += block.count;
            }
        },
        [](size_t) {});
}

} // namespace vdk
