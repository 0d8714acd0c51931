#include "client/events/RequestReport.h"

#include "client/console/Text.h"
#include "client/events/SqlReport.h"
#include "client/profile/EventTree.h"

#include <algorithm>

namespace vdk {

namespace {

const auto totalOf = [](const RequestSums& sums) { return sums.totalNs; };

// Executions of each thread by start, for looking up those of a span of time.
class SqlByThread {
public:
    explicit SqlByThread(const ProbeTables& tables) {
        for (SqlCall& call : readSqlCalls(tables)) {
            calls[call.thread].push_back(std::move(call));
        }
    }

    void addTo(RequestSums& sums, int thread, int64_t fromNs, int64_t toNs) const {
        auto found = calls.find(thread);
        if (found == calls.end()) {
            return;
        }
        const std::vector<SqlCall>& all = found->second;
        auto at = std::lower_bound(
            all.begin(), all.end(), fromNs,
            [](const SqlCall& call, int64_t start) { return call.startNs < start; });
        for (; at != all.end() && at->startNs <= toNs; ++at) {
            sums.sqlCalls++;
            sums.sqlNs += at->durationNs;
        }
    }

private:
    std::map<int, std::vector<SqlCall>> calls;
};

std::string cpuText(const RequestSums& sums) {
    return sums.cpuKnown == 0 ? "-" : formatNs(sums.cpuNs);
}

} // namespace

const ProbeTable* findRequests(const ProbeTables& tables) {
    return tables.find("JSP/Servlet Requests", {"URI", "Include"});
}

std::map<std::string, RequestSums> requestSums(const ProbeTables& tables) {
    std::map<std::string, RequestSums> all;
    const ProbeTable* table = findRequests(tables);
    if (!table) {
        return all;
    }
    const SqlByThread sql(tables);
    const int uri = table->column("URI"), include = table->column("Include");
    for (const ProbeRow& row : table->rows) {
        const std::string part = tables.text(*table, row, include);
        RequestSums& sums = all[tables.text(*table, row, uri) + (part.empty() ? "" : " > " + part)];
        sums.count++;
        const int64_t duration = table->durationNs(row);
        sums.totalNs += duration;
        sums.maxNs = std::max(sums.maxNs, duration);
        const int64_t cpu = table->cpuNs(row);
        sums.cpuNs += std::max<int64_t>(cpu, 0);
        sums.cpuKnown += cpu < 0 ? 0 : 1;
        if (table->isOpen(row)) {
            sums.open++;
        } else {
            sql.addTo(sums, table->thread(row), table->startNs(row), table->endNs(row));
        }
    }
    return all;
}

void printRequests(Console& console, const ProbeTables& tables, size_t top) {
    const auto all = requestSums(tables);
    TextTable text({{"COUNT", TextTable::Right},
                    {"OPEN", TextTable::Right},
                    {"TOTAL", TextTable::Right},
                    {"MEAN", TextTable::Right},
                    {"MAX", TextTable::Right},
                    {"CPU", TextTable::Right},
                    {"SQL", TextTable::Right},
                    {"SQL TIME", TextTable::Right},
                    {"URI"}});
    for (const auto& [uri, sums] : heaviest(all, top, totalOf)) {
        text.add({formatCount(sums.count), formatCount(sums.open), formatNs(sums.totalNs),
                  formatNs(sums.meanNs()), formatNs(sums.maxNs), cpuText(sums),
                  formatCount(sums.sqlCalls), formatNs(sums.sqlNs), printable(uri)});
    }
    text.print(console);
    noteRest(console, all.size(), top);
}

void writeRequests(JsonWriter& json, const ProbeTables& tables, size_t top) {
    const ProbeTable* table = findRequests(tables);
    json.field("refused", table ? table->refused : 0).key("requests").beginArray();
    for (const auto& [uri, sums] : heaviest(requestSums(tables), top, totalOf)) {
        json.beginObject().field("uri", uri).field("count", sums.count).field("open", sums.open);
        json.field("totalNs", sums.totalNs).field("meanNs", sums.meanNs());
        json.field("maxNs", sums.maxNs).key("cpuNs");
        sums.cpuKnown == 0 ? json.nullValue() : json.value(sums.cpuNs);
        json.field("sqlCalls", sums.sqlCalls).field("sqlNs", sums.sqlNs).endObject();
    }
    json.endArray();
}

} // namespace vdk
