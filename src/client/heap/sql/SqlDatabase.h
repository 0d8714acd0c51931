// SQL over tables whose rows are made while a query asks for them. Queries only read: nothing can
// be created, attached or changed, and no file but a sort's own is touched.
#pragma once

#include "client/heap/sql/SqlTable.h"

#include <functional>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vdk {

class SqlDatabase {
public:
    // Large sorts go to files in temporaryDir, or in the system's folder where it is empty. Throws
    // ClientError.
    SqlDatabase(std::vector<SqlTable> tables, const std::string& temporaryDir,
                std::vector<SqlView> views = {});
    ~SqlDatabase();
    SqlDatabase(const SqlDatabase&) = delete;
    SqlDatabase& operator=(const SqlDatabase&) = delete;

    // A function of one or two arguments that queries may call.
    using Function = std::function<SqlValue(const std::vector<SqlValue>& arguments)>;
    void addFunction(const char* name, int arguments, Function function);

    // Runs one statement. `columns` gets their names first; `row` is called for each row until it
    // returns false. Throws ClientError for what SQLite refuses, and when interrupted.
    void query(const std::string& text,
               const std::function<void(const std::vector<std::string>&)>& columns,
               const std::function<bool(std::vector<SqlValue>)>& row);

    // Copies tables into a new database file, with an index for each key, and all views. `told`
    // gets the name of each table that is done. Throws ClientError; a file that was begun is left
    // to the caller.
    void copyTo(const std::string& file, const std::vector<const SqlTable*>& which,
                const std::function<void(const SqlTable&)>& told);

    const std::vector<SqlTable>& allTables() const { return tables; }

private:
    void execute(const std::string& statement);
    [[noreturn]] void fail(int code) const;

    const std::vector<SqlTable> tables;
    const std::vector<SqlView> views;
    std::vector<Function> functions; // never grows after the first query
    sqlite3* database = nullptr;
};

} // namespace vdk
