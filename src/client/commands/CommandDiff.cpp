// `vdk diff`: two snapshots or JVMs compared, as text, JSON and picture, and held against limits.
#include "client/commands/Commands.h"
#include "client/commands/SelectionArguments.h"
#include "client/commands/Sources.h"
#include "client/console/Errors.h"
#include "client/console/OutputFile.h"
#include "client/console/Text.h"
#include "client/diff/ProfileDiff.h"
#include "client/events/RequestReport.h"
#include "client/events/SqlReport.h"
#include "client/picture/PicturePage.h"
#include "client/record/RecordedTime.h"

#include <algorithm>
#include <cmath>

namespace vdk {

namespace {

const std::pair<const char*, Per> PerNames[] = {{"nothing", Per::Nothing},
                                                {"second", Per::Second},
                                                {"call", Per::Call},
                                                {"request", Per::Request},
                                                {"share", Per::Share}};

const char* nameOf(Per per) {
    for (const auto& [name, value] : PerNames) {
        if (value == per) {
            return name;
        }
    }
    return "";
}

DataSource open(const std::string& source, const Arguments& arguments) {
    return openData(
        source, arguments,
        CpuTables | AllocationTables | MonitorTables | ExceptionTables | ProbeStackTables, true);
}

Extent extentOf(DataSource& source) {
    Extent extent;
    extent.seconds = double(recordedTimeMs(source.database())) / 1000;
    for (const Charge& charge : makeProfile(source.database()).charges) {
        extent.calls += double(charge.count);
    }
    const ProbeTables tables(source.database());
    if (const ProbeTable* requests = findRequests(tables)) {
        // Those that found the table full have been served, too.
        extent.requests = double(requests->rows.size()) + double(requests->refused);
    }
    return extent;
}

// Statements of both, as one more list.
DiffSection sqlSection(DataSource& base, DataSource& now) {
    DiffSection section;
    section.id = "sql";
    section.title = "SQL statements";
    section.unit = "ns";
    section.countTitle = "times";
    std::map<std::string, DiffRow> rows;
    const auto add = [&](DataSource& source, NameSums::Of DiffRow::*side, int64_t& all) {
        for (const auto& [text, sums] :
             sqlStatements(readSqlCalls(ProbeTables(source.database())))) {
            DiffRow& row = rows[text];
            row.name = text;
            (row.*side).own = (row.*side).total = sums.totalNs;
            (row.*side).count = sums.count;
            all += sums.totalNs;
        }
    };
    add(base, &DiffRow::base, section.base);
    add(now, &DiffRow::now, section.now);
    for (const auto& [text, row] : rows) {
        section.rows.push_back(row);
    }
    return section;
}

class DiffCommand {
public:
    DiffCommand(Console& console, const Arguments& arguments)
        : console(console), arguments(arguments), picture({false, arguments.has("--signatures")}) {
        for (const std::string& text : arguments.all("--max-growth")) {
            limits.push_back(diffLimit(text, true));
        }
        for (const std::string& text : arguments.all("--max-own")) {
            limits.push_back(diffLimit(text, false));
        }
    }

    int run() {
        base = open(arguments.text("A"), arguments);
        now = open(arguments.text("B"), arguments);
        compare();
        const std::vector<std::string> reasons =
            brokenLimits(sections, limits, double(arguments.number("--min-percent", 1)));
        writePicture();
        console.json ? writeJson(reasons) : print(reasons);
        return reasons.empty() ? 0 : int(ExitCode::Refused);
    }

private:
    void compare() {
        const Selection selection = selectionOf(arguments);
        const bool merge = !arguments.has("--raw-names");
        std::vector<std::string> unmatched, unmatchedNow;
        addAll(picture, base.database(), Side::Base, merge, selection, &unmatched);
        addAll(picture, now.database(), Side::Now, merge, selection, &unmatchedNow);
        picture.finish();
        picture.isComparison = true;
        for (const std::string& pattern : unmatched) {
            if (std::find(unmatchedNow.begin(), unmatchedNow.end(), pattern) !=
                unmatchedNow.end()) {
                noteUnmatched(console, {pattern});
            }
        }
        const Extent before = extentOf(base), after = extentOf(now);
        choosePer(before, after);
        for (StackTree& tree : picture.trees) {
            DiffSection sums;
            sums.base = tree.total(Side::Base).own;
            sums.now = tree.total(Side::Now).own;
            tree.baseFactor = factorFor(per, before, after, sums);
        }
        sections = diffSections(picture);
        DiffSection sql = sqlSection(base, now);
        for (DataSource* source : {&base, &now}) {
            if (const int64_t refused = refusedSqlCalls(ProbeTables(source->database()))) {
                console.warn(source->name + ": " + formatCount(refused) +
                             " SQL calls found their tables full and are not compared");
            }
        }
        if (!sql.rows.empty()) {
            sql.factor = factorFor(per, before, after, sql);
            sections.push_back(std::move(sql));
        }
        const std::string show = arguments.text("--show", "all");
        sections.erase(std::remove_if(sections.begin(), sections.end(),
                                      [&](const DiffSection& section) {
                                          return show != "all" && !startsWith(section.id, show);
                                      }),
                       sections.end());
        for (DiffSection& section : sections) {
            sortByChange(section);
        }
    }

    // By seconds where both tell; what is compared then says so.
    void choosePer(const Extent& before, const Extent& after) {
        per = before.seconds > 0 && after.seconds > 0 ? Per::Second : Per::Nothing;
        for (const auto& [name, value] : PerNames) {
            if (arguments.text("--per") == name) {
                per = value;
            }
        }
        seconds = {before.seconds, after.seconds};
    }

    std::string perText() const {
        switch (per) {
        case Per::Nothing:
            return "values as they were recorded";
        case Per::Share:
            return "shares: values before are multiplied so that both sums are equal";
        default: {
            char factor[32];
            snprintf(factor, sizeof(factor), "%.3f",
                     sections.empty() ? 1.0 : sections.front().factor);
            return std::string("per ") + nameOf(per) + ": values before are multiplied by " +
                   factor;
        }
        }
    }

    void writePicture() {
        const std::string out = arguments.text("--out");
        if (out.empty()) {
            return;
        }
        if (!endsWith(out, ".html")) {
            throw ClientError(ExitCode::Usage, "usage", "the name for --out must end in .html");
        }
        picture.title =
            printable(now.session) + ": " + printable(base.name) + " and " + printable(now.name);
        picture.session = printable(now.session);
        picture.source = picture.title;
        picture.notes = "red grew, blue shrank; " + perText();
        OutputFile file(out);
        writePage(file.stream(), picture);
        file.commit();
        console.note(out + ": a flame graph colored by change");
    }

    void printSection(const DiffSection& section) {
        const double before = double(section.base) * section.factor;
        console.out << section.title << ": " << amountOf(before, section.unit) << " before, "
                    << amountOf(double(section.now), section.unit) << " now ("
                    << growthOf(before, double(section.now)) << ")\n";
        printRows(section, section.rows, section.id == "sql" ? "STATEMENT" : "METHOD (own values)");
        if (!section.paths.empty() && !arguments.has("--no-paths")) {
            printRows(section, section.paths, "CALL PATH");
        }
        console.out << "\n";
    }

    void printRows(const DiffSection& section, const std::vector<DiffRow>& rows,
                   const char* title) {
        std::vector<TextTable::Column> columns = {{"BEFORE", TextTable::Right},
                                                  {"NOW", TextTable::Right},
                                                  {"CHANGE", TextTable::Right},
                                                  {"", TextTable::Right}};
        if (!section.countTitle.empty()) {
            columns.push_back({"TIMES BEFORE", TextTable::Right});
            columns.push_back({"TIMES NOW", TextTable::Right});
        }
        columns.push_back({title});
        TextTable table(columns);
        const size_t top = size_t(arguments.number("--top", title[0] == 'C' ? 5 : 15));
        size_t shown = 0;
        for (const DiffRow& row : rows) {
            const double change = section.changeOfOwn(row);
            if (shown == top || std::abs(change) < 0.5) {
                break;
            }
            shown++;
            const double before = double(row.base.own) * section.factor;
            std::vector<std::string> cells = {
                amountOf(before, section.unit), amountOf(double(row.now.own), section.unit),
                (change > 0 ? "+" : "") + amountOf(change, section.unit),
                growthOf(before, double(row.now.own))};
            if (!section.countTitle.empty()) {
                cells.push_back(formatCount(row.base.count));
                cells.push_back(formatCount(row.now.count));
            }
            cells.push_back(printable(row.name));
            table.add(cells);
        }
        if (shown > 0) {
            table.print(console);
        }
    }

    void print(const std::vector<std::string>& reasons) {
        console.note("before: " + base.name + ", now: " + now.name + "; " + perText());
        for (const DiffSection& section : sections) {
            printSection(section);
        }
        if (sections.empty()) {
            console.note("neither has anything that was recorded");
        }
        for (const std::string& reason : reasons) {
            console.out << "limit: " << reason << "\n";
        }
    }

    static void writeSide(JsonWriter& json, const char* key, const NameSums::Of& sums) {
        json.key(key).beginObject().field("own", sums.own).field("total", sums.total);
        json.field("count", sums.count).endObject();
    }

    void writeRows(JsonWriter& json, const char* key, const DiffSection& section,
                   const std::vector<DiffRow>& rows) {
        json.key(key).beginArray();
        const size_t top = size_t(arguments.number("--top", INT32_MAX));
        for (size_t i = 0; i < std::min(rows.size(), top); i++) {
            const DiffRow& row = rows[i];
            const bool isNew = row.base.total == 0 && row.base.own == 0 && row.base.count == 0;
            const bool isGone = row.now.total == 0 && row.now.own == 0 && row.now.count == 0;
            json.beginObject().field("name", row.name);
            json.field("status", isNew ? "new" : isGone ? "gone" : "both");
            writeSide(json, "before", row.base);
            writeSide(json, "now", row.now);
            json.field("ownChange", int64_t(section.changeOfOwn(row))).endObject();
        }
        json.endArray();
    }

    void writeSource(JsonWriter& json, const char* key, const DataSource& source, double recorded) {
        json.key(key).beginObject().field("source", source.name).field("session", source.session);
        json.key("recordedNs");
        recorded > 0 ? json.value(int64_t(recorded * 1e9)) : json.nullValue();
        json.endObject();
    }

    void writeJson(const std::vector<std::string>& reasons) {
        JsonDocument json(console, "vdk.diff/1");
        writeSource(json, "before", base, seconds.first);
        writeSource(json, "now", now, seconds.second);
        json.field("per", nameOf(per)).key("kinds").beginArray();
        for (const DiffSection& section : sections) {
            json.beginObject().field("kind", section.id).field("unit", section.unit);
            json.field("factor", section.factor).field("before", section.base);
            json.field("now", section.now);
            writeRows(json, section.id == "sql" ? "statements" : "methods", section, section.rows);
            if (section.id != "sql") {
                writeRows(json, "paths", section, section.paths);
            }
            json.endObject();
        }
        json.endArray().key("brokenLimits").beginArray();
        for (const std::string& reason : reasons) {
            json.value(reason);
        }
        json.endArray();
        json.end();
    }

    Console& console;
    const Arguments& arguments;
    Picture picture;
    DataSource base, now;
    std::vector<DiffLimit> limits;
    std::vector<DiffSection> sections;
    Per per = Per::Nothing;
    std::pair<double, double> seconds;
};

} // namespace

int runDiff(Console& console, const Arguments& arguments) {
    try {
        return DiffCommand(console, arguments).run();
    } catch (const ClientError& error) {
        if (error.word != "snapshot.heapdump") {
            throw;
        }
    }
    Arguments heap = arguments;
    heap.values["FILE"] = {arguments.text("A")};
    heap.values["REPORT"] = {"diff"};
    heap.values["ARGUMENT"] = {arguments.text("B")};
    return runHeap(console, heap);
}

} // namespace vdk
