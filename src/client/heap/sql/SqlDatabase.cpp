#include "client/heap/sql/SqlDatabase.h"

#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/heap/sql/SqlModule.h"

#include <exception>
#include <memory>
#include <new>

namespace vdk {

namespace {

// Steps of SQLite's machine between two looks for an interrupt: some 10 ms.
constexpr int STEPS_BETWEEN_LOOKS = 200000;
constexpr int MOST_FUNCTIONS = 16;

int allowReading(void*, int action, const char*, const char* name, const char*, const char*) {
    switch (action) {
    case SQLITE_SELECT:
    case SQLITE_READ:
    case SQLITE_RECURSIVE:
        return SQLITE_OK;
    case SQLITE_FUNCTION:
        return sqlite3_stricmp(name, "load_extension") == 0 ? SQLITE_DENY : SQLITE_OK;
    default:
        return SQLITE_DENY;
    }
}

int stopWhenInterrupted(void*) {
    return isInterrupted() ? 1 : 0;
}

void callFunction(sqlite3_context* context, int count, sqlite3_value** values) {
    const auto& function = *static_cast<SqlDatabase::Function*>(sqlite3_user_data(context));
    try {
        std::vector<SqlValue> arguments;
        for (int i = 0; i < count; i++) {
            arguments.push_back(takeSqlValue(values[i]));
        }
        giveSqlValue(context, function(arguments));
    } catch (const std::bad_alloc&) {
        sqlite3_result_error_nomem(context);
    } catch (...) {
        sqlite3_result_error(context, "the heap contradicts itself", -1);
    }
}

struct Finalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

SqlValue columnValue(sqlite3_stmt* statement, int column) {
    return takeSqlValue(sqlite3_column_value(statement, column));
}

std::string creationOf(const SqlView& view, const char* schema) {
    return std::string("CREATE VIEW ") + schema + "." + quotedName(view.name) + " AS " + view.query;
}

} // namespace

SqlDatabase::SqlDatabase(std::vector<SqlTable> tablesGiven, const std::string& temporaryDir,
                         std::vector<SqlView> viewsGiven)
    : tables(std::move(tablesGiven)), views(std::move(viewsGiven)) {
    functions.reserve(MOST_FUNCTIONS);
    if (!temporaryDir.empty()) {
        sqlite3_free(sqlite3_temp_directory);
        sqlite3_temp_directory = sqlite3_mprintf("%s", temporaryDir.c_str());
    }
    // Not by the flag for memory, which would hold for attached files too.
    int code =
        sqlite3_open_v2(":memory:", &database,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    for (size_t i = 0; i < tables.size() && code == SQLITE_OK; i++) {
        code = addSqlTable(database, tables[i]);
        // Made here, as nothing may be made by what the user asks.
        if (code == SQLITE_OK) {
            code = sqlite3_exec(
                database, ("SELECT 1 FROM " + quotedName(tables[i].name) + " LIMIT 0").c_str(),
                nullptr, nullptr, nullptr);
        }
    }
    for (size_t i = 0; i < views.size() && code == SQLITE_OK; i++) {
        code =
            sqlite3_exec(database, creationOf(views[i], "temp").c_str(), nullptr, nullptr, nullptr);
    }
    if (code != SQLITE_OK) {
        const std::string why = sqlite3_errstr(code);
        sqlite3_close(database);
        throw ClientError(ExitCode::BadInput, "heap.sql", "cannot open the tables: " + why);
    }
    sqlite3_progress_handler(database, STEPS_BETWEEN_LOOKS, stopWhenInterrupted, nullptr);
    sqlite3_set_authorizer(database, allowReading, nullptr);
}

SqlDatabase::~SqlDatabase() {
    sqlite3_close(database);
}

void SqlDatabase::addFunction(const char* name, int arguments, Function function) {
    functions.push_back(std::move(function));
    const int code = functions.size() > MOST_FUNCTIONS
                         ? SQLITE_FULL
                         : sqlite3_create_function_v2(
                               database, name, arguments, SQLITE_UTF8 | SQLITE_DETERMINISTIC,
                               &functions.back(), callFunction, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
        fail(code);
    }
}

void SqlDatabase::query(const std::string& text,
                        const std::function<void(const std::vector<std::string>&)>& columns,
                        const std::function<bool(std::vector<SqlValue>)>& row) {
    sqlite3_stmt* prepared = nullptr;
    const char* rest = nullptr;
    int code = sqlite3_prepare_v2(database, text.c_str(), int(text.size()) + 1, &prepared, &rest);
    const Statement statement(prepared);
    if (code != SQLITE_OK) {
        fail(code);
    }
    if (prepared == nullptr) {
        throw ClientError(ExitCode::Usage, "heap.sql", "the query is empty");
    }
    const std::string behind = rest;
    if (behind.find_first_not_of(" \t\r\n;") != std::string::npos) {
        throw ClientError(ExitCode::Usage, "heap.sql",
                          "one query at a time: \"" + printable(behind, 60) +
                              "\" is behind the first");
    }
    const int count = sqlite3_column_count(prepared);
    std::vector<std::string> names;
    for (int i = 0; i < count; i++) {
        names.emplace_back(sqlite3_column_name(prepared, i));
    }
    columns(names);
    while ((code = sqlite3_step(prepared)) == SQLITE_ROW) {
        std::vector<SqlValue> values;
        values.reserve(size_t(count));
        for (int i = 0; i < count; i++) {
            values.push_back(columnValue(prepared, i));
        }
        if (!row(std::move(values))) {
            return;
        }
    }
    if (code != SQLITE_DONE) {
        fail(code);
    }
}

void SqlDatabase::copyTo(const std::string& file, const std::vector<const SqlTable*>& which,
                         const std::function<void(const SqlTable&)>& told) {
    sqlite3_set_authorizer(database, nullptr, nullptr);
    char* attach = sqlite3_mprintf("ATTACH %Q AS copy", file.c_str());
    const std::string statement = attach == nullptr ? "" : attach;
    sqlite3_free(attach);
    execute(statement);
    // The file is new and of no use unless it is finished.
    execute("PRAGMA copy.journal_mode = OFF");
    execute("PRAGMA copy.synchronous = OFF");
    execute("BEGIN");
    for (const SqlTable* table : which) {
        const std::string name = "copy." + quotedName(table->name);
        // A row's own number needs no room.
        const std::string key = ", PRIMARY KEY (" + quotedName(table->columns[0].name) + ")";
        execute("CREATE TABLE " + name + " (" + sqlColumns(*table) + (table->hasRowKey ? key : "") +
                ")");
        execute("INSERT INTO " + name + " SELECT * FROM main." + quotedName(table->name));
        for (const SqlTable::Key& key : table->keys) {
            if (key.column == 0 && table->hasRowKey) {
                continue;
            }
            const std::string column = table->columns[key.column].name;
            execute("CREATE INDEX copy." + quotedName(table->name + "_by_" + column) + " ON " +
                    quotedName(table->name) + " (" + quotedName(column) + ")");
        }
        told(*table);
    }
    for (const SqlView& view : views) {
        execute(creationOf(view, "copy"));
    }
    execute("COMMIT");
    execute("DETACH copy");
    sqlite3_set_authorizer(database, allowReading, nullptr);
}

void SqlDatabase::execute(const std::string& statement) {
    const int code = sqlite3_exec(database, statement.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
        fail(code);
    }
}

void SqlDatabase::fail(int code) const {
    throwIfInterrupted();
    const std::string why = sqlite3_errmsg(database);
    switch (code & 0xff) {
    case SQLITE_NOMEM:
        throw ClientError(ExitCode::BadInput, "heap.memory", "not enough memory for this query");
    case SQLITE_FULL:
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
        throw ClientError(ExitCode::CannotWrite, "heap.sql",
                          "the query needs room for a sort, or its copy for itself: " + why,
                          "--tmp names another folder for sorts");
    case SQLITE_AUTH:
        throw ClientError(ExitCode::Refused, "heap.readonly", "a heap can only be read: " + why);
    default:
        throw ClientError(ExitCode::Usage, "heap.sql", printable(why, 500),
                          "`vdk heap FILE sql` without a query lists the tables and their columns");
    }
}

} // namespace vdk
