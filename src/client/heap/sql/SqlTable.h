// What was read, as SQL sees it: tables whose rows are made while a query asks for them.
#pragma once

#include "client/heap/HeapDocument.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vdk {

using SqlValue = HeapTable::Cell;

// Where a table stands: on something with a number, such as an object, and on one of what that has,
// such as a reference.
struct SqlPosition {
    int64_t outer;
    int64_t inner;
};

// What a look-up found: all of the outer numbers from `from` up to `end`, or single positions.
struct SqlRows {
    int64_t from = 0;
    int64_t end = 0;
    std::vector<SqlPosition> listed;
};

struct SqlTable {
    struct Column {
        std::string name;
        const char* type; // "INTEGER", "TEXT", or "" where rows differ
    };
    // A column by whose value rows are found without looking at all of them.
    struct Key {
        size_t column;
        std::function<SqlRows(const SqlValue& value)> find;
    };

    std::string name;
    const char* help = "";
    std::vector<Column> columns;
    std::vector<Key> keys;     // the one that finds fewest first
    int64_t from = 0, end = 0; // all outer numbers
    // How many rows an outer number of that range has, 0 for none.
    std::function<int64_t(int64_t outer)> count;
    // Asked only for positions that the table has.
    std::function<SqlValue(SqlPosition at, size_t column)> value;
    // Belongs into a copy for which nobody named tables.
    bool isCopied = true;
    bool ascends = false;   // the first column is the outer number
    bool hasRowKey = false; // the first column is a number that no two rows share
};

// A query with a name.
struct SqlView {
    const char* name;
    const char* query;
};

} // namespace vdk
