// What databases were asked: statements by their shape, with times, callers and suspicions.
#pragma once

#include "client/console/Console.h"
#include "client/events/ProbeTables.h"

#include <map>
#include <string>
#include <vector>

namespace vdk {

// One execution.
struct SqlCall {
    std::string shape;
    std::string database; // of its connection, empty where that is not known
    int thread = 0;
    int64_t startNs = 0, durationNs = 0;
    int64_t cpuNs = -1; // where it is known
    bool open = false;
    std::string caller;
};

// By start. Queries and batches, of plain and of prepared statements.
std::vector<SqlCall> readSqlCalls(const ProbeTables& tables);
// Executions that found a table full.
int64_t refusedSqlCalls(const ProbeTables& tables);
// Connections that were opened, and those that are open still.
struct ConnectionCounts {
    int64_t opened = 0, open = 0;
};
ConnectionCounts countConnections(const ProbeTables& tables);

struct SqlStatement {
    int64_t count = 0, open = 0, totalNs = 0, maxNs = 0, cpuNs = 0;
    // Executions on one thread with nothing else asked in between, at most: a query for each row of
    // another one looks like this.
    int64_t longestRun = 0;
    std::map<std::string, int64_t> callers;   // times
    std::map<std::string, int64_t> databases; // those that are known

    int64_t meanNs() const { return count > open ? totalNs / (count - open) : 0; }
};
std::map<std::string, SqlStatement> sqlStatements(const std::vector<SqlCall>& calls);

// From so many executions in a row on one is told of.
constexpr int64_t SuspiciousRun = 10;

void printSql(Console& console, const ProbeTables& tables, size_t top, bool withCallers);
// The fields of an object that the caller has begun.
void writeSql(JsonWriter& json, const ProbeTables& tables, size_t top);

} // namespace vdk
