// Rows of the user tables that the agent makes for itself, found by the tables' names.
#pragma once

#include "db/DB.h"

#include <array>

namespace vdk {

// Null if there is none of this name.
inline UserTable* findUserTable(DB& db, const char* name) {
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        UserTable* const table = db.getUserTable(slot);
        if (table && table->getName() == name) {
            return table;
        }
    }
    return nullptr;
}

// Calls visit(table, row, columns) for each live row; none of a table without all of the columns.
template <size_t N, typename Visitor>
void eachUserRow(DB& db, const char* name, const char* const (&columnNames)[N], Visitor visit) {
    UserTable* const table = findUserTable(db, name);
    std::array<int, N> columns = {};
    for (size_t i = 0; table && i < N; i++) {
        columns[i] = table->findColumn(columnNames[i]);
        if (columns[i] < 0) {
            return;
        }
    }
    for (int i = 0; table && i < table->getCapacity(); i++) {
        int* const row = table->getRecord(i, false);
        if (row && row[0] > 0) {
            visit(*table, row, columns);
        }
    }
}

// Columns of the tables of samples.
constexpr const char* SampledCpuColumns[] = {"thread", "cpu_ns", "charged_ns"};
constexpr const char* SampledLinesColumns[] = {"thread", "frame", "line", "time_ns"};

} // namespace vdk
