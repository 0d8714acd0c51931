#pragma once

#include "core/ground/Logger.h"
#include "core/ground/ZVector.h"

#include <climits>

// IndexPool hands out the row indices of one table: released ones first, the last released before
// the others, then ever new ones. A row number returned twice is handed out twice: releasing once
// is the caller's business. The table's owner locks.
class IndexPool {
public:
    explicit IndexPool(int firstIndex) : next(firstIndex), initial(firstIndex) {}

    int nextIndex() {
        if (!released.isEmpty()) {
            return released.pop();
        }
        // The last number stays unused: a row beyond it would be a negative one.
        Logger::assertTrue(next != INT_MAX, VDK_HERE);
        return next++;
    }
    // What nextIndex() would return; changes nothing.
    int peekNextIndex() const {
        return released.isEmpty() ? next : released.get(released.getSize() - 1);
    }
    // Above every index that was handed out.
    int getEnd() const { return next; }
    // Gives an index back. Does not look at the row.
    void releaseIndex(int index) { released.push(index); }
    // Back to the state after construction.
    void clearIndexPool() {
        released.clear();
        next = initial;
    }
    // The next new index, in place of the one after the last: for a table whose rows come in runs.
    void continueAt(int index) { next = index; }
    // Makes sure that no new index is at or below this one: used when rows arrive with indices of
    // their own, from a stream.
    void keepAbove(int index) {
        if (next <= index) {
            next = index + 1;
        }
    }

private:
    ZVector<int> released;
    int next;
    int initial;
};
