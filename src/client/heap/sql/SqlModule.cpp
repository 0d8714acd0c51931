// A table as SQLite's virtual table; see https://sqlite.org/vtab.html for what it calls when.
#include "client/heap/sql/SqlModule.h"

#include "client/console/Signals.h"

#include <algorithm>
#include <exception>
#include <new>

namespace vdk {

namespace {

// How a plan of SQLite's stands in idxNum.
constexpr int ALL_ROWS = -1;
// Rows that are passed over between two looks for an interrupt.
constexpr int64_t LOOK_EACH = 1 << 16;

struct Table : sqlite3_vtab {
    const SqlTable* rows;
};

struct Cursor : sqlite3_vtab_cursor {
    const SqlTable* table;
    SqlRows found;
    bool isListed;
    size_t nextListed;
    SqlPosition at;
    int64_t innerEnd; // of at.outer
    bool isAtEnd;
};

// No exception leaves into SQLite.
template <typename Code>
int guarded(sqlite3_vtab* table, Code code) {
    try {
        return code();
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    } catch (const std::exception& e) {
        table->zErrMsg = sqlite3_mprintf("%s", e.what());
    } catch (...) {
        table->zErrMsg = sqlite3_mprintf("the heap contradicts itself");
    }
    return SQLITE_ERROR;
}

int connect(sqlite3* database, void* table, int, const char* const*, sqlite3_vtab** result,
            char**) {
    const auto& rows = *static_cast<const SqlTable*>(table);
    const std::string declaration = "CREATE TABLE x(" + sqlColumns(rows) + ")";
    const int code = sqlite3_declare_vtab(database, declaration.c_str());
    if (code != SQLITE_OK) {
        return code;
    }
    auto* made = new (std::nothrow) Table();
    if (made == nullptr) {
        return SQLITE_NOMEM;
    }
    made->rows = &rows;
    *result = made;
    return SQLITE_OK;
}

int disconnect(sqlite3_vtab* table) {
    delete static_cast<Table*>(table);
    return SQLITE_OK;
}

int choosePlan(sqlite3_vtab* table, sqlite3_index_info* plan) {
    const SqlTable& rows = *static_cast<Table*>(table)->rows;
    const double all = double(std::max<int64_t>(rows.end - rows.from, 1));
    plan->idxNum = ALL_ROWS;
    plan->estimatedCost = all;
    plan->estimatedRows = int64_t(all);
    for (size_t key = 0; key < rows.keys.size(); key++) {
        for (int i = 0; i < plan->nConstraint; i++) {
            const auto& constraint = plan->aConstraint[i];
            if (constraint.usable != 0 && constraint.op == SQLITE_INDEX_CONSTRAINT_EQ &&
                constraint.iColumn == int(rows.keys[key].column)) {
                // SQLite checks each row again: a key may be of another type than its column.
                plan->aConstraintUsage[i].argvIndex = 1;
                plan->idxNum = int(key);
                plan->estimatedCost = 10;
                plan->estimatedRows = 10;
                return SQLITE_OK;
            }
        }
    }
    // No sort, and no temporary file for one, where the rows come in the order that is asked for.
    plan->orderByConsumed = int(rows.ascends && plan->nOrderBy == 1 &&
                                plan->aOrderBy[0].iColumn == 0 && plan->aOrderBy[0].desc == 0);
    return SQLITE_OK;
}

int openCursor(sqlite3_vtab* table, sqlite3_vtab_cursor** result) {
    auto* cursor = new (std::nothrow) Cursor();
    if (cursor == nullptr) {
        return SQLITE_NOMEM;
    }
    cursor->table = static_cast<Table*>(table)->rows;
    *result = cursor;
    return SQLITE_OK;
}

int closeCursor(sqlite3_vtab_cursor* cursor) {
    delete static_cast<Cursor*>(cursor);
    return SQLITE_OK;
}

int standOnListed(Cursor& cursor) {
    cursor.isAtEnd = cursor.nextListed >= cursor.found.listed.size();
    if (!cursor.isAtEnd) {
        cursor.at = cursor.found.listed[cursor.nextListed];
    }
    return SQLITE_OK;
}

// To the first row of the next outer number that has any.
int standOnOuter(Cursor& cursor, int64_t outer) {
    for (; outer < cursor.found.end; outer++) {
        if (outer % LOOK_EACH == 0 && isInterrupted()) {
            return SQLITE_INTERRUPT;
        }
        cursor.innerEnd = cursor.table->count(outer);
        if (cursor.innerEnd > 0) {
            cursor.at = {outer, 0};
            return SQLITE_OK;
        }
    }
    cursor.isAtEnd = true;
    return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor* base, int key, const char*, int, sqlite3_value** values) {
    return guarded(base->pVtab, [&] {
        auto& cursor = *static_cast<Cursor*>(base);
        const SqlTable& table = *cursor.table;
        cursor.isAtEnd = false;
        cursor.nextListed = 0;
        if (key == ALL_ROWS) {
            cursor.found = {table.from, table.end, {}};
        } else {
            // Texts with digits equal numbers where the column holds numbers.
            sqlite3_value_numeric_type(values[0]);
            SqlValue value = takeSqlValue(values[0]);
            if (value.holds == SqlValue::Holds::Real && value.real == double(int64_t(value.real))) {
                value = int64_t(value.real);
            }
            cursor.found = table.keys[size_t(key)].find(value);
        }
        cursor.isListed = !cursor.found.listed.empty();
        return cursor.isListed ? standOnListed(cursor) : standOnOuter(cursor, cursor.found.from);
    });
}

int next(sqlite3_vtab_cursor* base) {
    return guarded(base->pVtab, [&] {
        auto& cursor = *static_cast<Cursor*>(base);
        if (cursor.isListed) {
            cursor.nextListed++;
            return standOnListed(cursor);
        }
        if (++cursor.at.inner < cursor.innerEnd) {
            return SQLITE_OK;
        }
        return standOnOuter(cursor, cursor.at.outer + 1);
    });
}

int isAtEnd(sqlite3_vtab_cursor* cursor) {
    return static_cast<int>(static_cast<Cursor*>(cursor)->isAtEnd);
}

int giveColumn(sqlite3_vtab_cursor* base, sqlite3_context* context, int column) {
    return guarded(base->pVtab, [&] {
        auto& cursor = *static_cast<Cursor*>(base);
        giveSqlValue(context, cursor.table->value(cursor.at, size_t(column)));
        return SQLITE_OK;
    });
}

int giveRowId(sqlite3_vtab_cursor* base, sqlite3_int64* id) {
    const auto& cursor = *static_cast<Cursor*>(base);
    *id = cursor.at.outer << 31 | cursor.at.inner;
    return SQLITE_OK;
}

sqlite3_module makeModule() {
    sqlite3_module module = {};
    module.xConnect = connect; // and no xCreate: tables are there by their names alone
    module.xDisconnect = disconnect;
    module.xBestIndex = choosePlan;
    module.xOpen = openCursor;
    module.xClose = closeCursor;
    module.xFilter = filter;
    module.xNext = next;
    module.xEof = isAtEnd;
    module.xColumn = giveColumn;
    module.xRowid = giveRowId;
    return module;
}

} // namespace

std::string quotedName(const std::string& name) {
    std::string quoted = "\"";
    for (char c : name) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

std::string sqlColumns(const SqlTable& table) {
    std::string columns;
    for (const SqlTable::Column& column : table.columns) {
        columns += (columns.empty() ? "" : ", ") + quotedName(column.name) + " " + column.type;
    }
    return columns;
}

int addSqlTable(sqlite3* database, const SqlTable& table) {
    static const sqlite3_module module = makeModule();
    return sqlite3_create_module_v2(database, table.name.c_str(), &module,
                                    const_cast<SqlTable*>(&table), nullptr);
}

void giveSqlValue(sqlite3_context* context, const SqlValue& value) {
    switch (value.holds) {
    case SqlValue::Holds::Number:
        return sqlite3_result_int64(context, value.number);
    case SqlValue::Holds::Real:
        return sqlite3_result_double(context, value.real);
    case SqlValue::Holds::Text:
        return sqlite3_result_text64(context, value.text.data(), value.text.size(),
                                     SQLITE_TRANSIENT, SQLITE_UTF8);
    default:
        return sqlite3_result_null(context);
    }
}

SqlValue takeSqlValue(sqlite3_value* value) {
    switch (sqlite3_value_type(value)) {
    case SQLITE_INTEGER:
        return int64_t(sqlite3_value_int64(value));
    case SQLITE_FLOAT:
        return sqlite3_value_double(value);
    case SQLITE_TEXT: {
        const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
        return text == nullptr ? SqlValue()
                               : SqlValue(std::string(text, size_t(sqlite3_value_bytes(value))));
    }
    default:
        return {};
    }
}

} // namespace vdk
