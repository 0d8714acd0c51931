#include "client/heap/HeapDocument.h"

#include "client/console/Text.h"
#include "client/heap/HeapReport.h"

#include <algorithm>
#include <cstdio>

namespace vdk {

namespace {

using Holds = HeapTable::Cell::Holds;

std::string realText(double value) {
    char digits[64];
    snprintf(digits, sizeof(digits), "%.15g", value);
    return digits;
}

std::string cellText(const HeapTable::Cell& cell, HeapTable::Kind kind) {
    switch (cell.holds) {
    case Holds::Text:
        return printable(cell.text, 400);
    case Holds::Real:
        return kind == HeapTable::Kind::Value
                   ? realText(cell.real)
                   : formatPercent(cell.real) + (kind == HeapTable::Kind::Percent ? " %" : "");
    case Holds::Number:
        return kind == HeapTable::Kind::Bytes   ? formatBytes(cell.number)
               : kind == HeapTable::Kind::Count ? formatCount(cell.number)
                                                : std::to_string(cell.number);
    default:
        return "";
    }
}

} // namespace

std::string csvText(const HeapTable::Cell& cell, bool forTerminal) {
    if (cell.holds == Holds::Number) {
        return std::to_string(cell.number);
    }
    if (cell.holds == Holds::Real) {
        return realText(cell.real);
    }
    const std::string text = forTerminal ? printable(cell.text) : validUtf8(cell.text);
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (char c : text) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

void HeapTable::addObjectColumns(std::vector<Column>& columns) {
    columns.push_back({"object", ""});
    columns.push_back({"", "id"});
    columns.push_back({"", "class"});
    columns.push_back({"", "text"});
}

void HeapTable::addObject(Row& row, const HeapModel& model, int object) {
    row.emplace_back(heapLabel(model, object));
    row.emplace_back(heapId(model, object));
    row.emplace_back(model.classNameOf(object));
    const std::string text = heapDetail(model, object, 1000);
    row.push_back(text.empty() ? Cell() : Cell(text));
}

bool HeapTable::isRight(const Column& column) const {
    if (column.kind != Kind::Value) {
        return column.kind != Kind::Text;
    }
    const auto at = size_t(&column - columns.data());
    return std::all_of(rows.begin(), rows.end(),
                       [&](const Row& row) { return row[at].holds != Holds::Text; });
}

void HeapTable::print(Console& console) const {
    std::vector<TextTable::Column> shown;
    for (const Column& column : columns) {
        if (!column.title.empty()) {
            shown.push_back({column.title, isRight(column) ? TextTable::Right : TextTable::Left});
        }
    }
    TextTable table(shown);
    for (const Row& row : rows) {
        std::vector<std::string> cells;
        for (size_t i = 0; i < columns.size(); i++) {
            if (!columns[i].title.empty()) {
                cells.push_back(cellText(row[i], columns[i].kind));
            }
        }
        table.add(std::move(cells));
    }
    table.print(console);
    if (omitted > 0) {
        console.out << "(" << formatCount(int64_t(omitted)) << " more; --top shows them)\n";
    }
}

void HeapTable::write(JsonWriter& json) const {
    json.beginArray();
    for (const Row& row : rows) {
        json.beginObject();
        for (size_t i = 0; i < columns.size(); i++) {
            const bool isLeftOut = columns[i].isOptional && row[i].holds == Holds::Nothing;
            if (columns[i].key.empty() || isLeftOut) {
                continue;
            }
            json.key(columns[i].key);
            const Cell& cell = row[i];
            cell.holds == Holds::Text     ? json.value(cell.text)
            : cell.holds == Holds::Number ? json.value(cell.number)
            : cell.holds == Holds::Real   ? json.value(cell.real)
                                          : json.nullValue();
        }
        json.endObject();
    }
    json.endArray();
}

void HeapTable::writeCsv(Console& console) const {
    const auto writeLine = [&](auto textOf) {
        const char* separator = "";
        for (size_t i = 0; i < columns.size(); i++) {
            if (!columns[i].key.empty()) {
                console.out << separator << textOf(i);
                separator = ",";
            }
        }
        console.out << "\n";
    };
    writeLine([&](size_t i) { return columns[i].key; });
    for (const Row& row : rows) {
        writeLine([&](size_t i) { return csvText(row[i], console.outIsTerminal); });
    }
}

bool isCsvAsked(const Console& console, const Arguments& arguments) {
    if (arguments.has("--csv") && console.json) {
        throw ClientError(ExitCode::Usage, "usage", "--json and --csv exclude each other");
    }
    return arguments.has("--csv");
}

HeapDocument::HeapDocument(Console& console, const Arguments& arguments, const HeapSession& session,
                           const std::string& name, const std::vector<std::string>& otherRemarks)
    : console(console), isCsv(isCsvAsked(console, arguments)),
      wantedTable(arguments.text("--table")) {
    if (console.json) {
        json.emplace(console.out, true);
        beginHeapDocument(*json, ("vdk.heap." + name + "/1").c_str(), session, otherRemarks);
    }
}

void HeapDocument::line(const std::string& text) {
    if (isText()) {
        console.out << text << "\n";
    }
}

void HeapDocument::table(const char* key, const HeapTable& table, const std::string& heading) {
    const bool isFirst = keys.empty();
    const bool isNew = std::find(keys.begin(), keys.end(), key) == keys.end();
    if (isNew) {
        keys.emplace_back(key);
    }
    if (json) {
        json->key(key);
        table.write(*json);
    } else if (isCsv) {
        if (wantedTable.empty() ? isFirst : isNew && wantedTable == key) {
            table.writeCsv(console);
        }
    } else {
        if (!heading.empty()) {
            console.out << "\n" << heading << "\n";
        }
        table.print(console);
    }
}

void HeapDocument::end() {
    if (json) {
        json->endObject();
        return;
    }
    if (!isCsv) {
        return;
    }
    std::string names;
    for (const std::string& key : keys) {
        names += (names.empty() ? "" : ", ") + key;
    }
    const bool isThere = std::find(keys.begin(), keys.end(), wantedTable) != keys.end();
    if (!wantedTable.empty() && !isThere) {
        throw ClientError(ExitCode::Usage, "usage", "there is no table " + wantedTable,
                          names.empty() ? "the report has none here" : "there are: " + names);
    }
    if (wantedTable.empty() && keys.size() > 1) {
        console.note("the first of the tables " + names + "; --table NAME writes another");
    }
}

} // namespace vdk
