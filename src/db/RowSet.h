#pragma once

#include "core/ground/ZVector.h"

#include <cstring>

// RowSet: the rows of one table that something names.
class RowSet {
public:
    explicit RowSet(int capacity) : rows(capacity < 1 ? 1 : capacity) {
        memset(rows.extend(capacity), 0, static_cast<size_t>(capacity));
    }
    // Any number: what may be a plain one need not be a row.
    void mark(int row) {
        if (row > 0 && row < rows.getSize()) {
            rows[row] = 1;
        }
    }
    bool contains(int row) const { return row > 0 && row < rows.getSize() && rows[row] != 0; }

private:
    ZVector<unsigned char> rows;
};
