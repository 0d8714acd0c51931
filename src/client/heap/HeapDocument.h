// What a report writes: a document with fields and tables, as text for people, as JSON, or as CSV.
#pragma once

#include "client/commands/Command.h"
#include "client/heap/HeapSession.h"

#include <optional>
#include <string>
#include <vector>

namespace vdk {

// A table that the three forms are made from.
class HeapTable {
public:
    // A value is shown as it is, to the right where it is a number.
    enum class Kind { Text, Count, Bytes, Percent, Value };
    // Without a title the column is for programs only, without a key for people only.
    struct Column {
        std::string title;
        std::string key;
        Kind kind = Kind::Text;
        bool isOptional = false; // left out of JSON where there is no value
    };
    // A value, or none.
    struct Cell {
        enum class Holds { Nothing, Text, Number, Real };
        Cell() = default;
        Cell(std::string content) : holds(Holds::Text), text(std::move(content)) {}
        Cell(const char* content) : holds(Holds::Text), text(content) {}
        Cell(int64_t value) : holds(Holds::Number), number(value) {}
        Cell(int value) : Cell(int64_t(value)) {}
        Cell(size_t value) : Cell(int64_t(value)) {}
        Cell(double value) : holds(Holds::Real), real(value) {}
        Holds holds = Holds::Nothing;
        std::string text;
        int64_t number = 0;
        double real = 0;
    };
    using Row = std::vector<Cell>;

    explicit HeapTable(std::vector<Column> columns) : columns(std::move(columns)) {}
    void add(Row row) { rows.push_back(std::move(row)); }
    // Rows that are there beside those added.
    void setOmitted(size_t count) { omitted = count; }

    // Columns that name an object, and their cells.
    static void addObjectColumns(std::vector<Column>& columns);
    static void addObject(Row& row, const HeapModel& model, int object);

    void print(Console& console) const;
    void write(JsonWriter& json) const;
    void writeCsv(Console& console) const;

private:
    bool isRight(const Column& column) const;

    std::vector<Column> columns;
    std::vector<Row> rows;
    size_t omitted = 0;
};

// A cell of CSV, in quotes where RFC 4180 wants them; nothing but control characters on a terminal
// is changed.
std::string csvText(const HeapTable::Cell& cell, bool forTerminal);

// Throws ClientError (Usage) where JSON is asked for as well.
bool isCsvAsked(const Console& console, const Arguments& arguments);

class HeapDocument {
public:
    // Opens the document "vdk.heap.<name>/1".
    HeapDocument(Console& console, const Arguments& arguments, const HeapSession& session,
                 const std::string& name, const std::vector<std::string>& otherRemarks = {});

    bool isText() const { return !json && !isCsv; }
    // Null unless the form is JSON.
    JsonWriter* writer() { return json ? &*json : nullptr; }

    // In JSON only.
    template <typename T>
    void field(const char* name, const T& value) {
        if (json) {
            json->field(name, value);
        }
    }
    // For people only.
    void line(const std::string& text);
    // In JSON under the key, for people below the heading if that is not empty. CSV has one
    // table: the first, or that of the key that was asked for.
    void table(const char* key, const HeapTable& table, const std::string& heading = {});
    // Throws ClientError (Usage) where a table was asked for that there is not.
    void end();

private:
    Console& console;
    std::optional<JsonWriter> json;
    bool isCsv;
    std::string wantedTable;       // key, empty for the first
    std::vector<std::string> keys; // of the tables so far, each once
};

} // namespace vdk
