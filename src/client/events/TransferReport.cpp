#include "client/events/TransferReport.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"

#include <algorithm>

namespace vdk {

const TransferOwners FileOwners = {
    {"File Input Streams", "File Output Streams", "Random Access Files"},
    "File Name",
    "FILE",
    "file",
    false};
const TransferOwners SocketOwners = {{"Socket Connections"}, "Address", "ADDRESS", "address", true};

namespace {

constexpr char BytesColumn[] = "Bytes";

// By the name of a table: what is transferred from another channel is written here.
bool isWrite(const std::string& table) {
    return containsIgnoringCase(table, "write") || containsIgnoringCase(table, "transfers from");
}

// Calls function(table, path to the name) for every table of transfers that belong to the owners.
template <typename Function>
void eachTransferTable(const ProbeTables& tables, const TransferOwners& owners,
                       Function&& function) {
    for (const ProbeTable& table : tables.all()) {
        for (const char* owner : owners.tables) {
            const ProbeTables::Path path =
                tables.path(table, std::string(owner) + "." + owners.nameColumn);
            if (table.column(BytesColumn) >= 0 && !path.columns.empty()) {
                function(table, path);
            }
        }
    }
}

void addTransfers(const ProbeTables& tables, const ProbeTable& table, const ProbeTables::Path& name,
                  std::map<std::string, TransferSums>& all) {
    const size_t bytes = size_t(table.column(BytesColumn));
    const bool writes = isWrite(table.name);
    for (const ProbeRow& row : table.rows) {
        TransferSums& sums = all[tables.text(name, row)];
        (writes ? sums.writes : sums.reads)++;
        (writes ? sums.bytesWritten : sums.bytesRead) += std::max<int64_t>(row.cells[bytes], 0);
        sums.timeNs += table.durationNs(row);
    }
}

std::vector<std::pair<std::string, TransferSums>>
heaviestSums(const std::map<std::string, TransferSums>& all, size_t top) {
    return heaviest(all, top, [](const TransferSums& sums) {
        return std::make_pair(sums.bytesRead + sums.bytesWritten, sums.opened);
    });
}

std::string hostOf(const std::string& name) {
    return name.substr(0, name.rfind(':'));
}

// Who connects to this JVM has another port each time.
std::map<std::string, TransferSums> joinPorts(const std::map<std::string, TransferSums>& all) {
    std::map<std::string, int64_t> connections, rarePorts; // by host
    for (const auto& [name, sums] : all) {
        connections[hostOf(name)] += sums.opened;
    }
    const auto isRare = [&](const std::string& name, const TransferSums& sums) {
        return sums.opened * RareShare < connections[hostOf(name)];
    };
    for (const auto& [name, sums] : all) {
        rarePorts[hostOf(name)] += isRare(name, sums) ? 1 : 0;
    }
    std::map<std::string, TransferSums> joined;
    for (const auto& [name, sums] : all) {
        const bool isJoined = isRare(name, sums) && rarePorts[hostOf(name)] >= ManyPorts;
        joined[isJoined ? hostOf(name) + ":*" : name] += sums;
    }
    return joined;
}

} // namespace

TransferSums& TransferSums::operator+=(const TransferSums& other) {
    opened += other.opened;
    open += other.open;
    failed += other.failed;
    reads += other.reads;
    bytesRead += other.bytesRead;
    writes += other.writes;
    bytesWritten += other.bytesWritten;
    timeNs += other.timeNs;
    return *this;
}

std::map<std::string, TransferSums> transferSums(const ProbeTables& tables,
                                                 const TransferOwners& owners) {
    std::map<std::string, TransferSums> all;
    for (const char* owner : owners.tables) {
        if (const ProbeTable* table = tables.find(owner, {owners.nameColumn})) {
            for (const ProbeRow& row : table->rows) {
                TransferSums& sums =
                    all[tables.text(*table, row, table->column(owners.nameColumn))];
                sums.opened++;
                sums.open += table->isOpen(row) ? 1 : 0;
            }
        }
        if (const ProbeTable* table =
                tables.find(std::string("Failed ") + owner, {owners.nameColumn})) {
            for (const ProbeRow& row : table->rows) {
                all[tables.text(*table, row, table->column(owners.nameColumn))].failed++;
            }
        }
    }
    eachTransferTable(tables, owners, [&](const ProbeTable& table, const ProbeTables::Path& name) {
        addTransfers(tables, table, name, all);
    });
    return owners.havePorts ? joinPorts(all) : all;
}

int64_t refusedTransfers(const ProbeTables& tables, const TransferOwners& owners) {
    int64_t refused = 0;
    for (const char* owner : owners.tables) {
        const ProbeTable* table = tables.find(owner);
        refused += table ? table->refused : 0;
    }
    eachTransferTable(tables, owners, [&](const ProbeTable& table, const ProbeTables::Path&) {
        refused += table.refused;
    });
    return refused;
}

void printTransfers(Console& console, const ProbeTables& tables, const TransferOwners& owners,
                    size_t top) {
    const auto all = transferSums(tables, owners);
    const bool hasFailed = std::any_of(all.begin(), all.end(),
                                       [](const auto& sums) { return sums.second.failed > 0; });
    std::vector<TextTable::Column> columns = {{"OPENED", TextTable::Right},
                                              {"OPEN", TextTable::Right}};
    if (hasFailed) {
        columns.push_back({"FAILED", TextTable::Right});
    }
    for (const char* name : {"READS", "READ", "WRITES", "WRITTEN", "TIME"}) {
        columns.push_back({name, TextTable::Right});
    }
    columns.push_back({owners.title});
    TextTable text(columns);
    for (const auto& [name, sums] : heaviestSums(all, top)) {
        std::vector<std::string> cells = {formatCount(sums.opened), formatCount(sums.open)};
        if (hasFailed) {
            cells.push_back(formatCount(sums.failed));
        }
        for (const std::string& cell :
             {formatCount(sums.reads), formatBytes(sums.bytesRead), formatCount(sums.writes),
              formatBytes(sums.bytesWritten), formatNs(sums.timeNs), printable(name)}) {
            cells.push_back(cell);
        }
        text.add(cells);
    }
    text.print(console);
    noteRest(console, all.size(), top);
}

void writeTransfers(JsonWriter& json, const ProbeTables& tables, const TransferOwners& owners,
                    size_t top) {
    json.field("refused", refusedTransfers(tables, owners));
    json.key("rows").beginArray();
    for (const auto& [name, sums] : heaviestSums(transferSums(tables, owners), top)) {
        json.beginObject().field(owners.field, name).field("opened", sums.opened);
        json.field("open", sums.open).field("failed", sums.failed);
        json.field("reads", sums.reads).field("bytesRead", sums.bytesRead);
        json.field("writes", sums.writes).field("bytesWritten", sums.bytesWritten);
        json.field("timeNs", sums.timeNs).endObject();
    }
    json.endArray();
}

} // namespace vdk
