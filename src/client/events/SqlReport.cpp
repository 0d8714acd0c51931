#include "client/events/SqlReport.h"

#include "client/console/Text.h"
#include "client/events/SqlText.h"
#include "client/profile/EventTree.h"

#include <algorithm>
#include <set>

namespace vdk {

namespace {

const char* const ExecutionTables[] = {"Queries", "Batches"};
constexpr size_t MostCallers = 5;
// Two statements that follow each other after a longer time have nothing to do with each other.
constexpr int64_t LongestPauseNs = 1000000000;

// The column of a path that the table has, of those that lead to the same thing.
ProbeTables::Path firstPath(const ProbeTables& tables, const ProbeTable& table,
                            const std::vector<const char*>& names) {
    for (const char* name : names) {
        ProbeTables::Path path = tables.path(table, name);
        if (!path.columns.empty()) {
            return path;
        }
    }
    return {};
}

std::string textOf(const ProbeTables& tables, const ProbeTables::Path& path, const ProbeRow& row) {
    return path.columns.empty() ? "" : tables.text(path, row);
}

void readTable(const ProbeTables& tables, const ProbeTable& table, std::vector<SqlCall>& calls) {
    const ProbeTables::Path sql = firstPath(tables, table, {"SQL", "Prepared Statements.SQL"});
    const ProbeTables::Path database =
        firstPath(tables, table,
                  {"Statements.Connections.Database", "Prepared Statements.Connections.Database"});
    if (sql.columns.empty()) {
        return;
    }
    for (const ProbeRow& row : table.rows) {
        SqlCall call;
        const std::string text = tables.text(sql, row);
        call.shape = text.empty() ? "<not known>" : statementShape(text);
        call.database = textOf(tables, database, row);
        call.thread = table.thread(row);
        call.startNs = table.startNs(row);
        call.durationNs = table.durationNs(row);
        call.cpuNs = table.cpuNs(row);
        call.open = table.isOpen(row);
        call.caller = tables.libraryCaller(table, row);
        calls.push_back(std::move(call));
    }
}

struct Run {
    const SqlCall* last = nullptr;
    int64_t length = 0;
};

// Of all statements, as far as they are known.
size_t countDatabases(const std::vector<SqlCall>& calls) {
    std::set<std::string> names;
    for (const SqlCall& call : calls) {
        if (!call.database.empty()) {
            names.insert(call.database);
        }
    }
    return names.size();
}

void writeTimes(JsonWriter& json, const char* field, const std::map<std::string, int64_t>& names) {
    json.key(field).beginArray();
    for (const auto& [name, times] : names) {
        json.beginObject().field("name", name).field("count", times).endObject();
    }
    json.endArray();
}

const auto totalOf = [](const SqlStatement& statement) { return statement.totalNs; };

std::string headOf(const ProbeTables& tables, const std::vector<SqlCall>& calls) {
    int64_t total = 0;
    for (const SqlCall& call : calls) {
        total += call.durationNs;
    }
    const ConnectionCounts connections = countConnections(tables);
    return formatCount(int64_t(calls.size())) + " executions, " + formatNs(total) + "; " +
           formatCount(connections.opened) + " connections, " + formatCount(connections.open) +
           " open";
}

} // namespace

std::vector<SqlCall> readSqlCalls(const ProbeTables& tables) {
    std::vector<SqlCall> calls;
    for (const char* name : ExecutionTables) {
        for (const ProbeTable* table : tables.named(name)) {
            readTable(tables, *table, calls);
        }
    }
    std::stable_sort(calls.begin(), calls.end(), [](const SqlCall& one, const SqlCall& other) {
        return one.startNs < other.startNs;
    });
    return calls;
}

int64_t refusedSqlCalls(const ProbeTables& tables) {
    int64_t refused = 0;
    for (const char* name : ExecutionTables) {
        for (const ProbeTable* table : tables.named(name)) {
            refused += table->refused;
        }
    }
    return refused;
}

ConnectionCounts countConnections(const ProbeTables& tables) {
    ConnectionCounts counts;
    if (const ProbeTable* table = tables.find("Connections", {"Database"})) {
        counts.opened = int64_t(table->rows.size()) + table->refused;
        counts.open = std::count_if(table->rows.begin(), table->rows.end(),
                                    [&](const ProbeRow& row) { return table->isOpen(row); });
    }
    return counts;
}

std::map<std::string, SqlStatement> sqlStatements(const std::vector<SqlCall>& calls) {
    std::map<std::string, SqlStatement> statements;
    std::map<int, Run> runs; // by thread
    for (const SqlCall& call : calls) {
        SqlStatement& statement = statements[call.shape];
        statement.count++;
        statement.open += call.open ? 1 : 0;
        statement.totalNs += call.durationNs;
        statement.maxNs = std::max(statement.maxNs, call.durationNs);
        statement.cpuNs += std::max<int64_t>(call.cpuNs, 0);
        statement.callers[call.caller]++;
        if (!call.database.empty()) {
            statement.databases[call.database]++;
        }
        Run& run = runs[call.thread];
        const bool goesOn =
            run.last && run.last->shape == call.shape && run.last->caller == call.caller &&
            call.startNs - run.last->startNs - run.last->durationNs < LongestPauseNs;
        run = {&call, goesOn ? run.length + 1 : 1};
        statement.longestRun = std::max(statement.longestRun, run.length);
    }
    return statements;
}

void printSql(Console& console, const ProbeTables& tables, size_t top, bool withCallers) {
    const std::vector<SqlCall> calls = readSqlCalls(tables);
    const auto statements = sqlStatements(calls);
    console.note(headOf(tables, calls));
    TextTable text({{"COUNT", TextTable::Right},
                    {"TOTAL", TextTable::Right},
                    {"MEAN", TextTable::Right},
                    {"MAX", TextTable::Right},
                    {"CPU", TextTable::Right},
                    {"IN A ROW", TextTable::Right},
                    {"STATEMENT"}});
    bool isSuspicious = false;
    const bool hasSeveral = countDatabases(calls) > 1;
    const std::map<std::string, int64_t> none;
    for (const auto& [shape, statement] : heaviest(statements, top, totalOf)) {
        const bool isRun = statement.longestRun >= SuspiciousRun;
        isSuspicious = isSuspicious || isRun;
        text.add({formatCount(statement.count), formatNs(statement.totalNs),
                  formatNs(statement.meanNs()), formatNs(statement.maxNs),
                  formatNs(statement.cpuNs),
                  formatCount(statement.longestRun) + (isRun ? " !" : ""), printable(shape)});
        const auto callers = heaviest(statement.callers, withCallers ? MostCallers : 0,
                                      [](int64_t count) { return count; });
        for (const auto& [caller, times] : callers) {
            text.add({"", "", "", "", "", "",
                      "    " + formatCount(times) + " times in " + printable(caller)});
        }
        for (const auto& [database, times] : hasSeveral ? statement.databases : none) {
            text.add({"", "", "", "", "", "",
                      "    " + formatCount(times) + " times on " + printable(database)});
        }
    }
    text.print(console);
    noteRest(console, statements.size(), top);
    if (isSuspicious) {
        console.note("! the same statement again and again, with nothing else in between: one that "
                     "takes all at once may do");
    }
}

void writeSql(JsonWriter& json, const ProbeTables& tables, size_t top) {
    const std::vector<SqlCall> calls = readSqlCalls(tables);
    const ConnectionCounts connections = countConnections(tables);
    json.field("executions", calls.size()).field("refused", refusedSqlCalls(tables));
    json.field("connections", connections.opened).field("openConnections", connections.open);
    json.key("statements").beginArray();
    for (const auto& [shape, statement] : heaviest(sqlStatements(calls), top, totalOf)) {
        json.beginObject().field("statement", shape).field("count", statement.count);
        json.field("open", statement.open).field("totalNs", statement.totalNs);
        json.field("meanNs", statement.meanNs()).field("maxNs", statement.maxNs);
        json.field("cpuNs", statement.cpuNs).field("longestRun", statement.longestRun);
        json.field("suspicious", statement.longestRun >= SuspiciousRun);
        writeTimes(json, "callers", statement.callers);
        writeTimes(json, "databases", statement.databases);
        json.endObject();
    }
    json.endArray();
}

} // namespace vdk
