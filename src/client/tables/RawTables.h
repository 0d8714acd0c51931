// The tables of a database as SQL sees them: the core tables with the fields that
// docs/format-tables.md has, and those of probes with their columns.
#pragma once

#include "client/heap/sql/SqlTable.h"

#include <set>
#include <string>
#include <vector>

class DB;

namespace vdk {

// Names of tables and columns of a set: SQL looks at no case. A name that is taken gets a number.
class SqlNames {
public:
    std::string add(const std::string& wanted);

private:
    std::set<std::string> taken; // in small letters
};

// The database must outlive the tables and not change.
void addCoreTables(DB& db, std::vector<SqlTable>& tables, SqlNames& names);
void addProbeTables(DB& db, std::vector<SqlTable>& tables, SqlNames& names);

// A table of rows that are there at once; the first column need not be a number.
using SqlRowList = std::vector<std::vector<SqlValue>>;
SqlTable tableOfRows(const std::string& name, const char* help,
                     std::vector<SqlTable::Column> columns, SqlRowList rows);

} // namespace vdk
