#include "client/events/RowGroups.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"

#include <algorithm>

namespace vdk {

RowGroups::RowGroups(const ProbeTable& table, const std::vector<const ProbeRow*>& rows,
                     const Key& key)
    : table(table) {
    for (size_t i = 0; i < table.columns.size(); i++) {
        const ProbeColumn& column = table.columns[i];
        if (!column.isFilled &&
            (column.type == COLUMN_TYPE_INT || column.type == COLUMN_TYPE_LONG)) {
            numbers.push_back(int(i));
        }
    }
    for (const ProbeRow* row : rows) {
        RowGroup& group = all[key(*row)];
        group.sums.resize(numbers.size());
        group.count++;
        group.open += table.isOpen(*row) ? 1 : 0;
        const int64_t duration = table.durationNs(*row);
        group.totalNs += duration;
        group.maxNs = std::max(group.maxNs, duration);
        group.cpuNs += std::max<int64_t>(table.cpuNs(*row), 0);
        for (size_t i = 0; i < numbers.size(); i++) {
            group.sums[i] += row->cells[size_t(numbers[i])];
        }
    }
}

std::vector<std::pair<std::string, RowGroup>> RowGroups::heaviestGroups(size_t top) const {
    const bool byTime = table.hasDuration();
    return heaviest(
        all, top, [byTime](const RowGroup& group) { return byTime ? group.totalNs : group.count; });
}

void RowGroups::print(Console& console, const std::string& title, size_t top) const {
    const bool hasOpen = std::any_of(all.begin(), all.end(),
                                     [](const auto& group) { return group.second.open > 0; });
    const bool hasCpu = table.predefined[USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS] >= 0;
    std::vector<TextTable::Column> columns = {{"COUNT", TextTable::Right}};
    if (hasOpen) {
        columns.push_back({"OPEN", TextTable::Right});
    }
    if (table.hasDuration()) {
        for (const char* name : {"TOTAL", "MEAN", "MAX"}) {
            columns.push_back({name, TextTable::Right});
        }
    }
    if (hasCpu) {
        columns.push_back({"CPU", TextTable::Right});
    }
    for (int number : numbers) {
        columns.push_back({table.columns[size_t(number)].name, TextTable::Right});
    }
    columns.push_back({title});
    TextTable text(columns);
    for (const auto& [name, group] : heaviestGroups(top)) {
        std::vector<std::string> cells = {formatCount(group.count)};
        if (hasOpen) {
            cells.push_back(formatCount(group.open));
        }
        if (table.hasDuration()) {
            for (int64_t ns : {group.totalNs, group.meanNs(), group.maxNs}) {
                cells.push_back(formatNs(ns));
            }
        }
        if (hasCpu) {
            cells.push_back(formatNs(group.cpuNs));
        }
        for (int64_t sum : group.sums) {
            cells.push_back(formatCount(sum));
        }
        cells.push_back(printable(name));
        text.add(cells);
    }
    text.print(console);
    noteRest(console, all.size(), top);
}

void RowGroups::write(JsonWriter& json, const char* field, size_t top) const {
    for (const auto& [name, group] : heaviestGroups(top)) {
        json.beginObject().field(field, name).field("count", group.count);
        if (table.hasDuration()) {
            json.field("open", group.open).field("totalNs", group.totalNs);
            json.field("meanNs", group.meanNs()).field("maxNs", group.maxNs);
        }
        if (table.predefined[USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS] >= 0) {
            json.field("cpuNs", group.cpuNs);
        }
        if (!numbers.empty()) {
            json.key("sums").beginObject();
            for (size_t i = 0; i < numbers.size(); i++) {
                json.field(table.columns[size_t(numbers[i])].name, group.sums[i]);
            }
            json.endObject();
        }
        json.endObject();
    }
}

} // namespace vdk
