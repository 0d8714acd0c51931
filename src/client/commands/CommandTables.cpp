// Commands about the tables that probes record into: tables, table.
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/events/ProbeTables.h"
#include "client/events/RowGroups.h"
#include "client/events/RowList.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

constexpr long FollowIntervalMs = 500;

// What tells tables of one name apart: the tables that their rows belong to.
std::string mastersOf(const ProbeTable& table) {
    std::vector<std::string> masters;
    for (const ProbeColumn& column : table.columns) {
        if (column.type == COLUMN_TYPE_FOREIGN_KEY) {
            masters.push_back(column.name);
        }
    }
    return join(masters, ", ");
}

int64_t openRows(const ProbeTable& table) {
    return std::count_if(table.rows.begin(), table.rows.end(),
                         [&](const ProbeRow& row) { return table.isOpen(row); });
}

std::string columnsOf(const ProbeTable& table) {
    std::vector<std::string> names;
    for (const ProbeColumn& column : table.columns) {
        if (!column.isFilled && column.type != COLUMN_TYPE_FOREIGN_KEY) {
            names.push_back(column.name);
        }
    }
    return join(names, ", ");
}

void writeTables(Console& console, const DataSource& source, const ProbeTables& tables) {
    JsonDocument json(console, "vdk.tables/1");
    json.field("source", source.name);
    json.field("session", source.session).field("live", source.live).key("tables").beginArray();
    for (const ProbeTable& table : tables.all()) {
        json.beginObject().field("table", table.slot).field("name", table.name);
        json.field("rows", table.rows.size()).field("open", openRows(table));
        json.field("refused", table.refused);
        json.key("columns").beginArray();
        for (const ProbeColumn& column : table.columns) {
            json.value(column.name);
        }
        json.endArray().endObject();
    }
    json.endArray();
    json.end();
}

// By name, or by the number that `vdk tables` shows.
const ProbeTable& findTable(const ProbeTables& tables, const std::string& name) {
    std::vector<const ProbeTable*> found = tables.named(name);
    if (found.empty()) {
        const auto slot = parseNumber(name, FIRST_USER_TABLE, MAX_TABLE_COUNT);
        for (const ProbeTable& table : tables.all()) {
            if (slot && table.slot == *slot) {
                found.push_back(&table);
            }
        }
    }
    if (found.size() == 1) {
        return *found[0];
    }
    std::vector<std::string> known;
    for (const ProbeTable& table : tables.all()) {
        known.push_back(table.name);
    }
    if (found.empty()) {
        throw ClientError(ExitCode::Usage, "table.unknown",
                          "there is no table '" + printable(name) + "'" + didYouMean(name, known),
                          tables.all().empty() ? "no probe has recorded anything yet: `vdk probes`"
                                               : "`vdk tables` shows all; a table is made with "
                                                 "its first row");
    }
    std::vector<std::string> choices;
    for (const ProbeTable* table : found) {
        choices.push_back(std::to_string(table->slot) + " (" + printable(mastersOf(*table)) + ")");
    }
    throw ClientError(ExitCode::Usage, "table.ambiguous",
                      "several tables are named '" + printable(name) + "'",
                      "take the number of one: " + join(choices, ", "));
}

std::vector<const ProbeRow*> chosenRows(const ProbeTable& table, const RowConditions& conditions) {
    std::vector<const ProbeRow*> rows;
    for (const ProbeRow& row : table.rows) {
        if (conditions.accept(row)) {
            rows.push_back(&row);
        }
    }
    return rows;
}

ProbeTables::Path groupingPath(const ProbeTables& tables, const ProbeTable& table,
                               const std::string& by) {
    const ProbeTables::Path path = tables.path(table, by == "method" ? "frame" : by);
    if (path.columns.empty()) {
        throw ClientError(ExitCode::Usage, "table.column",
                          "'" + printable(table.name) + "' has no column '" + printable(by) + "'");
    }
    return path;
}

JsonWriter& writeTableName(JsonWriter& json, const DataSource& source, const ProbeTable& table) {
    json.field("source", source.name).field("session", source.session);
    return json.field("live", source.live).field("table", table.slot).field("name", table.name);
}

void showGroups(Console& console, const DataSource& source, const ProbeTables& tables,
                const ProbeTable& table, const std::vector<const ProbeRow*>& rows,
                const std::string& by, size_t top) {
    const ProbeTables::Path path = groupingPath(tables, table, by);
    const RowGroups groups(table, rows,
                           [&](const ProbeRow& row) { return tables.text(path, row); });
    if (!console.json) {
        groups.print(console, by, top);
        return;
    }
    JsonDocument json(console, "vdk.table/1");
    writeTableName(json, source, table).field("by", by).key("groups").beginArray();
    groups.write(json, "value", top);
    json.endArray();
    json.end();
}

// The longest rows, or the last ones.
std::vector<const ProbeRow*> topRows(const ProbeTable& table, std::vector<const ProbeRow*> rows,
                                     bool longest, size_t top) {
    if (longest) {
        std::stable_sort(rows.begin(), rows.end(), [&](const ProbeRow* one, const ProbeRow* other) {
            return table.durationNs(*one) > table.durationNs(*other);
        });
        rows.resize(std::min(rows.size(), top));
        return rows;
    }
    rows.erase(rows.begin(), rows.end() - long(std::min(rows.size(), top)));
    return rows;
}

void showRows(Console& console, const DataSource& source, const ProbeTables& tables,
              const ProbeTable& table, const std::vector<const ProbeRow*>& chosen, bool longest,
              size_t top, bool withStacks) {
    const std::vector<const ProbeRow*> rows = topRows(table, chosen, longest, top);
    if (!console.json) {
        if (rows.size() < chosen.size()) {
            console.note(std::string(longest ? "The longest " : "The last ") +
                         std::to_string(rows.size()) + " of " + std::to_string(chosen.size()) +
                         " rows; --top shows more");
        }
        printRows(console, tables, table, rows, withStacks);
        return;
    }
    JsonDocument json(console, "vdk.table/1");
    writeTableName(json, source, table).field("matching", chosen.size());
    json.key("rows").beginArray();
    for (const ProbeRow* row : rows) {
        writeRow(json, tables, table, *row, withStacks);
    }
    json.endArray();
    json.end();
}

// Rows as they come, those with a duration when they end.
class RowFollower {
public:
    RowFollower(Console& console, DataSource& source, const Arguments& arguments)
        : console(console), source(source), arguments(arguments) {}

    void run(const std::string& name) {
        bool isFirst = true;
        do {
            const ProbeTables tables(source.database());
            show(tables, findTable(tables, name), isFirst);
            isFirst = false;
        } while (console.out && sleepUnlessInterrupted(FollowIntervalMs) && fetch());
    }

private:
    bool fetch() {
        source.fetcher->fetch(ProbeStackTables);
        return true;
    }

    void show(const ProbeTables& tables, const ProbeTable& table, bool isFirst) {
        const RowConditions conditions(tables, table, arguments.all("--where"));
        std::vector<const ProbeRow*> rows;
        for (const ProbeRow& row : table.rows) {
            int64_t& told = toldStarts[row.index];
            if (table.isOpen(row) || told == table.startNs(row) + 1) {
                continue;
            }
            told = table.startNs(row) + 1;
            if (!isFirst && conditions.accept(row)) {
                rows.push_back(&row);
            }
        }
        if (!console.json) {
            if (!rows.empty()) {
                printRows(console, tables, table, rows, arguments.has("--stack"));
            }
        } else {
            for (const ProbeRow* row : rows) {
                JsonWriter json(console.out, false);
                writeRow(json, tables, table, *row, arguments.has("--stack"));
                console.out << "\n";
            }
        }
        console.out << std::flush;
    }

    Console& console;
    DataSource& source;
    const Arguments& arguments;
    std::map<int, int64_t> toldStarts; // 1 more than the start, by row
};

} // namespace

int runTables(Console& console, const Arguments& arguments) {
    DataSource source = openData(arguments.text("SOURCE"), arguments, ProbeStackTables, true);
    const ProbeTables tables(source.database());
    if (console.json) {
        writeTables(console, source, tables);
        return 0;
    }
    if (tables.all().empty()) {
        console.note("no probe has recorded anything");
        return 0;
    }
    TextTable text({{"TABLE", TextTable::Right},
                    {"ROWS", TextTable::Right},
                    {"OPEN", TextTable::Right},
                    {"REFUSED", TextTable::Right},
                    {"NAME"},
                    {"BELONGS TO"},
                    {"COLUMNS"}});
    for (const ProbeTable& table : tables.all()) {
        text.add({std::to_string(table.slot), formatCount(int64_t(table.rows.size())),
                  table.hasDuration() ? formatCount(openRows(table)) : "-",
                  formatCount(table.refused), printable(table.name), printable(mastersOf(table)),
                  printable(columnsOf(table))});
    }
    text.print(console);
    return 0;
}

int runTable(Console& console, const Arguments& arguments) {
    const bool follows = arguments.has("--follow");
    if (follows &&
        (arguments.has("--by") || arguments.has("--top") || arguments.has("--longest"))) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--follow goes without --by, --top and --longest");
    }
    DataSource source = openData(arguments.text("SOURCE"), arguments, ProbeStackTables, true);
    if (follows && !source.live) {
        throw ClientError(ExitCode::Usage, "usage", "--follow wants a JVM, not a file");
    }
    const std::string name = arguments.text("NAME");
    if (follows) {
        RowFollower(console, source, arguments).run(name);
        return 0;
    }
    const ProbeTables tables(source.database());
    const ProbeTable& table = findTable(tables, name);
    const RowConditions conditions(tables, table, arguments.all("--where"));
    const std::vector<const ProbeRow*> rows = chosenRows(table, conditions);
    const size_t top = size_t(arguments.number("--top", 30));
    if (arguments.has("--by")) {
        showGroups(console, source, tables, table, rows, arguments.text("--by"), top);
    } else {
        showRows(console, source, tables, table, rows, arguments.has("--longest"), top,
                 arguments.has("--stack"));
    }
    return 0;
}

} // namespace vdk
