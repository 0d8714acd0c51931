#pragma once

#include "client/heap/sql/SqlTable.h"

#include <sqlite3.h>

namespace vdk {

// Makes the table known to a connection under its name, as a virtual table that needs no creating.
// The table must outlive the connection. Returns a code of SQLite.
int addSqlTable(sqlite3* database, const SqlTable& table);

// A name of a table or column in a statement, whatever stands in it.
std::string quotedName(const std::string& name);
// The columns with their types, as a statement that creates the table has them.
std::string sqlColumns(const SqlTable& table);

// Hands a value to a query as the result of a function or a column.
void giveSqlValue(sqlite3_context* context, const SqlValue& value);
SqlValue takeSqlValue(sqlite3_value* value);

} // namespace vdk
