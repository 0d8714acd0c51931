#pragma once

#include "client/heap/sql/SqlTable.h"

#include <sqlite3.h>

namespace vdk {

// Makes the table known to a connection under its name, as a virtual table that needs no creating.
// The table must outlive the connection. Returns a code of SQLite.
int addSqlTable(sqlite3* database, const SqlTable& table);

// Hands a value to a query as the result of a function or a column.
void giveSqlValue(sqlite3_context* context, const SqlValue& value);
SqlValue takeSqlValue(sqlite3_value* value);

} // namespace vdk
