#include "client/tables/RawTables.h"

#include "client/console/Text.h"
#include "db/DB.h"

#include <cctype>
#include <memory>

namespace vdk {

namespace {

constexpr size_t LongestName = 100;

// What links the frames below one another follows from their parents.
const std::set<std::string> LeftOut = {"firstChild", "nextSibling"};

SqlValue textValue(const char* text) {
    return text ? SqlValue(wholeText(text)) : SqlValue();
}

// Takes one field of a record.
struct FieldReader {
    int wanted;
    int part; // of the telemetry values
    SqlValue value = {};

    void operator()(int number, int content) { take(number, int64_t(content)); }
    void operator()(int number, long content) { take(number, int64_t(content)); }
    void operator()(int number, const char* content) {
        value = number == wanted ? textValue(content) : value;
    }
    void operator()(int number, const TelemetryValues& content) {
        take(number, int64_t(content.value[part]));
    }

private:
    void take(int number, int64_t content) { value = number == wanted ? content : value; }
};

const char* const TelemetryNames[] = {
#define VDK_TELEMETRY_NAME(index, name, text) #name,
    VDK_TELEMETRY_VALUES(VDK_TELEMETRY_NAME)
#undef VDK_TELEMETRY_NAME
};

// The indices of live rows.
using Rows = std::shared_ptr<std::vector<int>>;

void setRows(SqlTable& table, const Rows& rows) {
    table.from = 0;
    table.end = int64_t(rows->size());
    table.count = [](int64_t) { return 1; };
    table.hasRowKey = true;
}

template <typename Record>
SqlTable coreTable(DBTable<Record>& records) {
    using Traits = RecordTraits<Record>;
    const Rows rows = std::make_shared<std::vector<int>>();
    records.eachRecord([&](int index, const Record& record) {
        if (record.stamp > 0) {
            rows->push_back(index);
        }
    });
    SqlTable table;
    table.help = "as docs/format-tables.md has it";
    table.columns = {{"row", "INTEGER"}};
    auto fields = std::make_shared<std::vector<std::pair<int, int>>>(); // number and part
    for (int i = 0; i < Traits::fieldCount; i++) {
        const TableField& field = Traits::fields[i];
        if (field.type == FIELD_TELE) {
            for (int part = 0; part < TELE_FIELD_COUNT; part++) {
                table.columns.push_back({TelemetryNames[part], "INTEGER"});
                fields->emplace_back(i, part);
            }
        } else if (LeftOut.count(field.name) == 0) {
            table.columns.push_back({field.name, field.type == FIELD_TEXT ? "TEXT" : "INTEGER"});
            fields->emplace_back(i, 0);
        }
    }
    setRows(table, rows);
    table.value = [&records, rows, fields](SqlPosition at, size_t column) -> SqlValue {
        const int index = (*rows)[size_t(at.outer)];
        if (column == 0) {
            return index;
        }
        FieldReader reader{(*fields)[column - 1].first, (*fields)[column - 1].second};
        Traits::eachField(*records.getRecord(index, false), reader);
        return reader.value;
    };
    return table;
}

SqlTable probeTable(DB& db, UserTable& from) {
    const Rows rows = std::make_shared<std::vector<int>>();
    from.getRows().eachRow([&](int index, const int* words) {
        if (words[0] > 0) {
            rows->push_back(index);
        }
    });
    SqlTable table;
    table.help = "rows of a probe, or of the agent itself";
    SqlNames columns;
    table.columns = {{columns.add("row"), "INTEGER"}};
    for (int i = 0; i < from.getColumnCount(); i++) {
        const int type = from.getColumnType(i);
        const bool isText = type == COLUMN_TYPE_STRING || type == COLUMN_TYPE_CLASS_NAME;
        table.columns.push_back(
            {columns.add(from.getColumnName(i).c_str()), isText ? "TEXT" : "INTEGER"});
    }
    setRows(table, rows);
    table.value = [&db, &from, rows](SqlPosition at, size_t column) -> SqlValue {
        const int index = (*rows)[size_t(at.outer)];
        if (column == 0) {
            return index;
        }
        const int* words = from.getRecord(index, false);
        const int which = int(column) - 1;
        switch (from.getColumnType(which)) {
        case COLUMN_TYPE_LONG:
            return int64_t(from.getLongColumn(words, which));
        case COLUMN_TYPE_STRING:
        case COLUMN_TYPE_CLASS_NAME:
            return textValue(db.stringPool->getText(from.getColumn(words, which)));
        default:
            return from.getColumn(words, which);
        }
    };
    return table;
}

} // namespace

std::string SqlNames::add(const std::string& wanted) {
    std::string name = printable(wanted, LongestName);
    // SQLite keeps names that begin so for itself.
    const std::string begin = "sqlite_";
    const auto lowered = [](std::string text) {
        for (char& c : text) {
            c = char(tolower(static_cast<unsigned char>(c)));
        }
        return text;
    };
    if (name.empty() || startsWith(lowered(name), begin)) {
        name = "_" + name;
    }
    std::string free = name;
    for (int i = 2; !taken.insert(lowered(free)).second; i++) {
        free = name + "_" + std::to_string(i);
    }
    return free;
}

void addCoreTables(DB& db, std::vector<SqlTable>& tables, SqlNames& names) {
#define VDK_ADD_TABLE(slot, base, member, tableName, firstIndex, capacity, size)                   \
    if ((slot) != SLOT_TableGeneration && (slot) != SLOT_Allocator) {                              \
        tables.push_back(coreTable(*db.member));                                                   \
        tables.back().name = names.add(tableName);                                                 \
    }
    VDK_TABLES(VDK_ADD_TABLE)
#undef VDK_ADD_TABLE
}

void addProbeTables(DB& db, std::vector<SqlTable>& tables, SqlNames& names) {
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        UserTable* from = db.getUserTable(slot);
        if (from) {
            tables.push_back(probeTable(db, *from));
            tables.back().name = names.add(from->getName().c_str());
        }
    }
}

SqlTable tableOfRows(const std::string& name, const char* help,
                     std::vector<SqlTable::Column> columns, SqlRowList rows) {
    const auto shared = std::make_shared<SqlRowList>(std::move(rows));
    SqlTable table;
    table.name = name;
    table.help = help;
    table.columns = std::move(columns);
    table.from = 0;
    table.end = int64_t(shared->size());
    table.count = [](int64_t) { return 1; };
    table.value = [shared](SqlPosition at, size_t column) {
        return (*shared)[size_t(at.outer)][column];
    };
    return table;
}

} // namespace vdk
