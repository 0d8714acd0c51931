#include "client/events/RowList.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"

#include <algorithm>
#include <cstdlib>

namespace vdk {

namespace {

const char TimeWord[] = "time";
const char CpuWord[] = "cpu";
const char MethodWord[] = "method";

// Which of the words for what the agent fills stands for a column.
std::string columnNameOf(const std::string& word) {
    return word == MethodWord ? "frame" : word;
}

std::string durationText(const ProbeTable& table, const ProbeRow& row) {
    return table.isOpen(row) ? "open" : formatNs(table.durationNs(row));
}

std::string cpuText(const ProbeTable& table, const ProbeRow& row) {
    const int64_t cpu = table.cpuNs(row);
    return cpu < 0 ? "-" : formatNs(cpu);
}

bool has(const ProbeTable& table, PredefinedColumn which) {
    return table.predefined[which] >= 0;
}

bool isNumber(const ProbeColumn& column) {
    return column.type == COLUMN_TYPE_INT || column.type == COLUMN_TYPE_LONG;
}

} // namespace

RowConditions::RowConditions(const ProbeTables& tables, const ProbeTable& table,
                             const std::vector<std::string>& texts)
    : tables(tables), table(table) {
    for (const std::string& text : texts) {
        Condition condition = parse(text);
        const bool isFilled = condition.column == TimeWord || condition.column == CpuWord;
        if (!isFilled) {
            condition.path = tables.path(table, columnNameOf(condition.column));
        }
        if (!isFilled && condition.path.columns.empty()) {
            std::vector<std::string> known;
            for (const ProbeColumn& column : table.columns) {
                known.push_back(column.name);
            }
            throw ClientError(ExitCode::Usage, "table.column",
                              "'" + printable(table.name) + "' has no column '" +
                                  printable(condition.column) + "'" +
                                  didYouMean(condition.column, known),
                              "columns: " + printable(join(known, ", ")) + ", time, cpu, method");
        }
        conditions.push_back(std::move(condition));
    }
}

RowConditions::Condition RowConditions::parse(const std::string& text) {
    const size_t at = text.find_first_of("=!~<>");
    const bool isDifferent = at != std::string::npos && text.compare(at, 2, "!=") == 0;
    if (at == std::string::npos || at == 0 || (text[at] == '!' && !isDifferent)) {
        throw ClientError(ExitCode::Usage, "usage", "'" + printable(text) + "' is no condition",
                          "COLUMN=TEXT, COLUMN!=TEXT, COLUMN~PART, COLUMN>N or COLUMN<N");
    }
    Condition condition;
    condition.column = text.substr(0, at);
    condition.value = text.substr(at + (isDifferent ? 2 : 1));
    condition.test = isDifferent       ? Test::Different
                     : text[at] == '=' ? Test::Equal
                     : text[at] == '~' ? Test::Contains
                     : text[at] == '>' ? Test::Above
                                       : Test::Below;
    if (condition.test == Test::Above || condition.test == Test::Below) {
        const bool isTime = condition.column == TimeWord || condition.column == CpuWord;
        const auto number = isTime ? parseDurationMs(condition.value)
                                   : parseNumber(condition.value, INT64_MIN, INT64_MAX);
        if (!number) {
            throw ClientError(ExitCode::Usage, "usage",
                              "'" + printable(condition.value) + "' is no " +
                                  (isTime ? "duration, such as 10ms" : "number"));
        }
        condition.number = isTime ? *number * 1000000 : *number;
    }
    return condition;
}

int64_t RowConditions::numberOf(const Condition& condition, const ProbeRow& row) const {
    return condition.column == TimeWord  ? table.durationNs(row)
           : condition.column == CpuWord ? table.cpuNs(row)
                                         : strtoll(textOf(condition, row).c_str(), nullptr, 10);
}

std::string RowConditions::textOf(const Condition& condition, const ProbeRow& row) const {
    return condition.column == TimeWord  ? durationText(table, row)
           : condition.column == CpuWord ? cpuText(table, row)
                                         : tables.text(condition.path, row);
}

bool RowConditions::accept(const Condition& condition, const ProbeRow& row) const {
    switch (condition.test) {
    case Test::Equal:
        return textOf(condition, row) == condition.value;
    case Test::Different:
        return textOf(condition, row) != condition.value;
    case Test::Contains:
        return containsIgnoringCase(textOf(condition, row), condition.value);
    case Test::Above:
        return numberOf(condition, row) > condition.number;
    default:
        return numberOf(condition, row) < condition.number;
    }
}

bool RowConditions::accept(const ProbeRow& row) const {
    return std::all_of(conditions.begin(), conditions.end(),
                       [&](const Condition& condition) { return accept(condition, row); });
}

std::vector<std::string> stackOf(const ProbeTables& tables, const ProbeTable& table,
                                 const ProbeRow& row) {
    const Profile& profile = tables.profile();
    std::vector<std::string> stack;
    for (int at = tables.calledFrame(table.frame(row)); at > 0;
         at = shownFrame(profile, profile.frames[size_t(at)].parent)) {
        stack.push_back(frameName(profile, at, {}));
    }
    return stack;
}

void printRows(Console& console, const ProbeTables& tables, const ProbeTable& table,
               const std::vector<const ProbeRow*>& rows, bool withStacks) {
    std::vector<TextTable::Column> columns = {{"ROW", TextTable::Right}, {"AT", TextTable::Right}};
    if (table.hasDuration()) {
        columns.push_back({"TIME", TextTable::Right});
    }
    const bool hasCpu = has(table, USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS);
    if (hasCpu) {
        columns.push_back({"CPU", TextTable::Right});
    }
    const bool hasThread = has(table, USER_TABLE_PREDEFINED_COLUMN_THREAD);
    if (hasThread) {
        columns.push_back({"THREAD"});
    }
    for (const ProbeColumn& column : table.columns) {
        if (!column.isFilled) {
            columns.push_back(
                {capitalized(column.name), isNumber(column) ? TextTable::Right : TextTable::Left});
        }
    }
    const bool hasStack = has(table, USER_TABLE_PREDEFINED_COLUMN_STACKTRACE);
    if (hasStack && !withStacks) {
        columns.push_back({"IN"});
    }
    TextTable text(columns);
    for (const ProbeRow* row : rows) {
        std::vector<std::string> cells = {"#" + std::to_string(row->index),
                                          formatNs(table.startNs(*row))};
        if (table.hasDuration()) {
            cells.push_back(durationText(table, *row));
        }
        if (hasCpu) {
            cells.push_back(cpuText(table, *row));
        }
        if (hasThread) {
            cells.push_back(printable(tables.threadName(table, *row)));
        }
        for (size_t i = 0; i < table.columns.size(); i++) {
            if (!table.columns[i].isFilled) {
                cells.push_back(printable(tables.text(table, *row, int(i))));
            }
        }
        if (hasStack && !withStacks) {
            cells.push_back(printable(tables.methodName(table, *row)));
        }
        text.add(cells);
        if (withStacks && hasStack) {
            text.print(console);
            for (const std::string& method : stackOf(tables, table, *row)) {
                console.out << "      at " << printable(method) << "\n";
            }
            text = TextTable(columns);
        }
    }
    if (!text.isEmpty()) {
        text.print(console);
    }
}

void writeRow(JsonWriter& json, const ProbeTables& tables, const ProbeTable& table,
              const ProbeRow& row, bool withStacks) {
    json.beginObject().field("row", row.index).field("startNs", table.startNs(row));
    if (table.hasDuration()) {
        json.field("open", table.isOpen(row)).key("durationNs");
        table.isOpen(row) ? json.nullValue() : json.value(table.durationNs(row));
    }
    if (has(table, USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS)) {
        json.key("cpuNs");
        table.cpuNs(row) < 0 ? json.nullValue() : json.value(table.cpuNs(row));
    }
    if (has(table, USER_TABLE_PREDEFINED_COLUMN_THREAD)) {
        json.field("thread", tables.threadName(table, row));
    }
    if (has(table, USER_TABLE_PREDEFINED_COLUMN_STACKTRACE)) {
        json.field("method", tables.methodName(table, row));
        if (withStacks) {
            json.key("stack").beginArray();
            for (const std::string& method : stackOf(tables, table, row)) {
                json.value(method);
            }
            json.endArray();
        }
    }
    json.key("values").beginObject();
    for (size_t i = 0; i < table.columns.size(); i++) {
        const ProbeColumn& column = table.columns[i];
        if (column.isFilled) {
            continue;
        }
        json.key(column.name);
        isNumber(column) || column.type == COLUMN_TYPE_FOREIGN_KEY
            ? json.value(row.cells[i])
            : json.value(tables.text(table, row, int(i)));
    }
    json.endObject().endObject();
}

} // namespace vdk
