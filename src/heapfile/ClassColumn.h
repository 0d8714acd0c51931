#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The class of each row, so that reports need not look at its references: 2 bytes a row, in heaps
// of fewer classes than those tell apart. Rows may be set by several threads, each row by one.
class ClassColumn {
public:
    // Makes the column for the rows below rowCount, all without a class, if the classes fit in.
    void make(int rowCount, size_t classes) {
        if (classes < UINT16_MAX) {
            kept.assign(static_cast<size_t>(rowCount), 0);
        }
    }
    bool isThere() const { return !kept.empty(); }
    // Index of a class, -1 for none. Does nothing without a column.
    void set(int row, int classIndex) {
        if (isThere()) {
            kept[static_cast<size_t>(row)] = static_cast<uint16_t>(classIndex + 1);
        }
    }
    // Of a column that is there.
    int get(int row) const { return int{kept[static_cast<size_t>(row)]} - 1; }

private:
    std::vector<uint16_t> kept; // plus one
};
