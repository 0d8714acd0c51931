// Commands about what the agent's own probes record: sql, requests, files, sockets.
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Text.h"
#include "client/events/RequestReport.h"
#include "client/events/SqlReport.h"
#include "client/events/TransferReport.h"

namespace vdk {

namespace {

// A report on tables of the agent's own probes.
struct EventReport {
    const char* schema;
    const char* probe;   // that fills the tables, as `vdk probes` names it
    const char* nothing; // "no statement"
    bool (*isEmpty)(const ProbeTables& tables);
    int64_t (*refused)(const ProbeTables& tables);
    void (*print)(Console& console, const ProbeTables& tables, size_t top,
                  const Arguments& arguments);
    void (*write)(JsonWriter& json, const ProbeTables& tables, size_t top);
};

void noteNothing(Console& console, const DataSource& source, const EventReport& report) {
    console.note(std::string(report.nothing) + " was recorded" +
                 (source.live ? ": `vdk probes " + source.name + " add " + report.probe +
                                    "` begins, if it is not on"
                              : ", or the probe " + std::string(report.probe) + " was off"));
}

int run(Console& console, const Arguments& arguments, const EventReport& report) {
    DataSource source = openData(arguments.text("SOURCE"), arguments, ProbeStackTables, true);
    const ProbeTables tables(source.database());
    const size_t top = size_t(arguments.number("--top", 30));
    if (console.json) {
        JsonDocument json(console, report.schema);
        json.field("source", source.name);
        json.field("session", source.session).field("live", source.live);
        report.write(json, tables, top);
        json.end();
        return 0;
    }
    if (report.isEmpty(tables)) {
        noteNothing(console, source, report);
        return 0;
    }
    report.print(console, tables, top, arguments);
    if (const int64_t refused = report.refused(tables)) {
        console.warn(formatCount(refused) +
                     " more rows found their tables full and are not counted: "
                     "`probetablelengthlimit=` of the agent sets how many a table holds");
    }
    return 0;
}

template <const TransferOwners& owners>
EventReport transferReport(const char* schema, const char* probe, const char* nothing) {
    return {schema,
            probe,
            nothing,
            [](const ProbeTables& tables) { return transferSums(tables, owners).empty(); },
            [](const ProbeTables& tables) { return refusedTransfers(tables, owners); },
            [](Console& console, const ProbeTables& tables, size_t top, const Arguments&) {
                printTransfers(console, tables, owners, top);
            },
            [](JsonWriter& json, const ProbeTables& tables, size_t top) {
                writeTransfers(json, tables, owners, top);
            }};
}

} // namespace

int runSql(Console& console, const Arguments& arguments) {
    static const EventReport report = {
        "vdk.sql/1",
        "Databases",
        "no statement",
        [](const ProbeTables& tables) {
            return readSqlCalls(tables).empty() && countConnections(tables).opened == 0;
        },
        refusedSqlCalls,
        [](Console& out, const ProbeTables& tables, size_t top, const Arguments& given) {
            printSql(out, tables, top, given.has("--callers"));
        },
        writeSql};
    return run(console, arguments, report);
}

int runRequests(Console& console, const Arguments& arguments) {
    static const EventReport report = {
        "vdk.requests/1",
        "Servlets",
        "no request",
        [](const ProbeTables& tables) { return requestSums(tables).empty(); },
        [](const ProbeTables& tables) {
            const ProbeTable* table = findRequests(tables);
            return table ? table->refused : 0;
        },
        [](Console& out, const ProbeTables& tables, size_t top, const Arguments&) {
            printRequests(out, tables, top);
        },
        writeRequests};
    return run(console, arguments, report);
}

int runFiles(Console& console, const Arguments& arguments) {
    return run(console, arguments,
               transferReport<FileOwners>("vdk.files/1",
                                          "FileStreams RandomAccessFiles FileChannels", "no file"));
}

int runSockets(Console& console, const Arguments& arguments) {
    return run(console, arguments,
               transferReport<SocketOwners>("vdk.sockets/1", "Sockets", "no connection"));
}

} // namespace vdk
