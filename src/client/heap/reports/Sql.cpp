// The heap as tables: queries over them, and their copy in a file of SQLite's.
#include "client/console/OutputFile.h"
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapFields.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/sql/HeapSqlTables.h"
#include "client/heap/sql/SqlDatabase.h"

#include <algorithm>
#include <map>
#include <memory>

namespace vdk {

namespace {

const size_t ShownRows = 200;
const size_t WrittenRows = 1000000;

const struct {
    const char* call;
    const char* help;
} Functions[] = {
    {"label(object)", "what an object is, in one line"},
    {"class_name(object)", "the name of its class"},
    {"text(object)", "of a string the text, of a class or thread its name"},
    {"field(object, name)", "value of a field; of a reference the object"},
};

// The row that a function is asked about, 0 for what is none.
int rowOf(const HeapSession& session, const SqlValue& value) {
    const bool isRow = value.holds == SqlValue::Holds::Number && value.number > 0 &&
                       value.number <= session.model().rowCount() &&
                       session.sizeOf(int(value.number)) >= 0;
    return isRow ? int(value.number) : 0;
}

// A reader for each name that a query has asked for.
using FieldReaders = std::map<std::string, HeapFieldReader>;

SqlValue fieldOf(const HeapModel& model, FieldReaders& readers, int row, const SqlValue& name) {
    const auto reader = readers.try_emplace(name.text, model, name.text).first;
    const HeapValue value = reader->second.read(row);
    if (value.isReference()) {
        return value.row == 0 ? SqlValue() : SqlValue(value.row);
    }
    return value.type == 0      ? SqlValue()
           : value.isFloating() ? SqlValue(double(value.number()))
                                : SqlValue(value.integer());
}

void addFunctions(SqlDatabase& database, const HeapSession& session) {
    const HeapModel& model = session.model();
    const auto add = [&](const char* name, int arguments, auto valueOf) {
        database.addFunction(name, arguments,
                             [&session, valueOf](const std::vector<SqlValue>& values) {
                                 const int row = rowOf(session, values[0]);
                                 return row == 0 ? SqlValue() : valueOf(row, values.back());
                             });
    };
    add("label", 1, [&model](int row, const SqlValue&) { return SqlValue(heapLabel(model, row)); });
    add("class_name", 1,
        [&model](int row, const SqlValue&) { return SqlValue(model.classNameOf(row)); });
    add("text", 1, [&model](int row, const SqlValue&) {
        std::string text;
        if (model.stringValue(row, text)) {
            return SqlValue(text);
        }
        text = heapDetail(model, row, UINT32_MAX);
        return text.empty() ? SqlValue() : SqlValue(text);
    });
    auto readers = std::make_shared<FieldReaders>();
    add("field", 2, [&model, readers](int row, const SqlValue& name) {
        return fieldOf(model, *readers, row, name);
    });
}

int listTables(Console& console, const Arguments& arguments, const HeapSession& session) {
    HeapDocument document(console, arguments, session, "tables");
    HeapTable table({{"table", "table"}, {"columns", "columns"}, {"", "help"}});
    HeapTable help({{"table", ""}, {"rows", ""}});
    for (const SqlTable& each : heapSqlTables(session)) {
        std::string columns;
        for (const SqlTable::Column& column : each.columns) {
            columns += (columns.empty() ? "" : ", ") + std::string(column.name);
        }
        table.add({each.name, columns, each.help});
        help.add({each.name, each.help});
    }
    document.table("tables", table);
    if (document.isText()) {
        document.table("help", help, "What they hold");
    }
    HeapTable functions({{"function", "function"}, {"result", "help"}});
    for (const auto& function : Functions) {
        functions.add({function.call, function.help});
    }
    document.table("functions", functions, "Functions beside SQLite's own");
    document.line("");
    document.line("Try: select c.name, count(*), sum(o.shallow) from objects o join classes c "
                  "using (class) group by class order by 3 desc limit 10");
    document.end();
    return 0;
}

} // namespace

int reportHeapSql(Console& console, const Arguments& arguments) {
    const auto& texts = heapArguments(arguments, 0, 1, "a query");
    HeapSession session(console, heapOptions(arguments), true);
    if (texts.empty()) {
        return listTables(console, arguments, session);
    }
    SqlDatabase database(heapSqlTables(session), arguments.text("--tmp"));
    addFunctions(database, session);
    const bool isForPeople = !console.json && !arguments.has("--csv");
    const size_t top = heapTop(arguments, isForPeople ? ShownRows : WrittenRows);
    std::unique_ptr<HeapTable> table;
    size_t count = 0;
    bool isCut = false;
    database.query(
        texts[0],
        [&](const std::vector<std::string>& names) {
            std::vector<HeapTable::Column> columns;
            columns.reserve(names.size());
            for (const std::string& name : names) {
                // Columns of one name would be one member of a JSON object.
                const auto before = std::count(names.data(), &name, name);
                const std::string key =
                    before == 0 ? name : name + "_" + std::to_string(before + 1);
                columns.push_back({printable(name, 100), key, HeapTable::Kind::Value});
            }
            table = std::make_unique<HeapTable>(std::move(columns));
        },
        [&](std::vector<SqlValue> row) {
            isCut = count == top;
            if (!isCut) {
                table->add(std::move(row));
                count++;
            }
            return !isCut;
        });
    HeapDocument document(console, arguments, session, "sql");
    document.field("cut", isCut);
    document.table("rows", *table);
    document.end();
    if (isCut) {
        console.warn("there are more than " + formatCount(int64_t(top)) +
                     " rows; --top sets how many are shown");
    }
    return 0;
}

int reportHeapExport(Console& console, const Arguments& arguments) {
    const auto& names = arguments.all("ARGUMENT");
    const std::string path = arguments.text("--sqlite");
    if (path.empty()) {
        throw ClientError(ExitCode::Usage, "usage", "export needs --sqlite FILE",
                          "the names of tables behind it choose what is copied");
    }
    HeapSession session(console, heapOptions(arguments), true);
    SqlDatabase database(heapSqlTables(session), arguments.text("--tmp"));
    std::vector<const SqlTable*> which;
    for (const SqlTable& table : database.allTables()) {
        const bool isNamed = std::find(names.begin(), names.end(), table.name) != names.end();
        if (isNamed || (names.empty() && table.isCopied)) {
            which.push_back(&table);
        }
    }
    if (which.size() < names.size()) {
        throw ClientError(ExitCode::Usage, "usage", "the heap has no table of one of these names",
                          "`vdk heap FILE sql` lists the tables");
    }
    OutputFile file(path);
    if (file.temporaryPath().empty()) {
        throw ClientError(ExitCode::CannotWrite, "output.open", path + " is no plain file");
    }
    database.copyTo(file.temporaryPath(), which, [&](const SqlTable& table) {
        console.note(std::string(table.name) + " copied");
    });
    file.commit();
    HeapDocument document(console, arguments, session, "export");
    HeapTable tables({{"table", "table"}, {"rows", ""}});
    for (const SqlTable* table : which) {
        tables.add({table->name, table->help});
    }
    document.field("sqlite", path);
    document.table("tables", tables);
    document.end();
    return 0;
}

} // namespace vdk
