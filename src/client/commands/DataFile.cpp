#include "client/commands/DataFile.h"

#include "client/commands/SelectionArguments.h"
#include "client/console/GzipStream.h"
#include "client/console/OutputFile.h"
#include "client/console/Text.h"
#include "client/fleet/JvmMetrics.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/sql/SqlDatabase.h"
#include "client/heap/sql/SqlModule.h"
#include "client/picture/FirefoxProfile.h"
#include "client/picture/PicturePage.h"
#include "client/picture/Pprof.h"
#include "client/profile/Export.h"
#include "client/tables/RecordedTables.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/SnapshotWriter.h"

#include <algorithm>
#include <filesystem>

namespace vdk {

namespace {

// A snapshot that goes into an output file, whose errors are thrown.
class SnapshotToFile : public SnapshotWriter {
public:
    explicit SnapshotToFile(OutputFile& file) : SnapshotWriter(-1), file(file) {}
    void flush() override {
        const int length = used;
        used = 0;
        bufferStart += length;
        file.write(buffer, size_t(length));
    }

private:
    OutputFile& file;
};

void writeSnapshot(OutputFile& file, DataSource& source) {
    DB& db = source.database();
    SnapshotToFile writer(file);
    ourContainsInvocations = makeProfile(db).hasCounts;
    writeSnapshotHeader(db.startTime, source.session.c_str(), writer, 0, SNAPSHOT_FORMAT_VALUE);
    writeUserTableDescriptions(&db, writer);
    Progress progress;
    writeAllTables(&db, writer, 0, 100, &progress, nullptr);
    writer.flush();
}

Picture pictureOf(DataSource& source, const FormChoices& choices,
                  std::vector<std::string>& unmatched, bool eachThread = false) {
    Picture picture({choices.filters, choices.signatures, eachThread});
    addAll(picture, source.database(), Side::Now, !choices.rawNames, choices.selection, &unmatched);
    picture.finish();
    picture.session = printable(source.session);
    picture.title = picture.session;
    picture.source = printable(source.name);
    picture.notes = printable(choices.notes);
    return picture;
}

// Into the file as it is, or as gzip where the file's name asks for that.
template <typename Write>
void writeText(OutputFile& file, const std::string& path, const Write& write) {
    if (!endsWith(path, ".gz")) {
        write(file.stream());
        return;
    }
    GzipStream packed(file.stream());
    write(packed.stream());
    packed.finish();
}

std::unique_ptr<SqlDatabase> openTables(DataSource& source, const FormChoices& choices,
                                        std::vector<std::string>& unmatched) {
    RecordedChoices how;
    how.selection = choices.selection;
    how.filters = choices.filters;
    how.signatures = choices.signatures;
    how.rawNames = choices.rawNames;
    return std::make_unique<SqlDatabase>(recordedTables(source.database(), how, unmatched), "",
                                         recordedViews());
}

void writeCsv(OutputFile& file, DataSource& source, const FormChoices& choices,
              std::vector<std::string>& unmatched) {
    const std::unique_ptr<SqlDatabase> tables = openTables(source, choices, unmatched);
    std::vector<std::string> names;
    for (const SqlTable& table : tables->allTables()) {
        names.push_back(table.name);
    }
    for (const SqlView& view : recordedViews()) {
        names.emplace_back(view.name);
    }
    if (std::find(names.begin(), names.end(), choices.table) == names.end()) {
        throw ClientError(ExitCode::Usage, "table.unknown",
                          "the recording has no table " + printable(choices.table),
                          "there are " + printable(join(names, ", ")));
    }
    const auto writeLine = [&](const auto& cells) {
        const char* separator = "";
        for (const auto& cell : cells) {
            file.stream() << separator << csvText(HeapTable::Cell(cell), false);
            separator = ",";
        }
        file.stream() << "\n";
    };
    tables->query("SELECT * FROM " + quotedName(choices.table), writeLine,
                  [&](const std::vector<SqlValue>& row) {
                      writeLine(row);
                      return true;
                  });
}

void writeSqlite(OutputFile& file, DataSource& source, const FormChoices& choices,
                 std::vector<std::string>& unmatched) {
    if (file.temporaryPath().empty()) {
        throw ClientError(ExitCode::CannotWrite, "output.open",
                          "a database goes into a plain file: --out NAME.sqlite");
    }
    const std::unique_ptr<SqlDatabase> tables = openTables(source, choices, unmatched);
    std::vector<const SqlTable*> all;
    for (const SqlTable& table : tables->allTables()) {
        all.push_back(&table);
    }
    tables->copyTo(file.temporaryPath(), all, [](const SqlTable&) {});
}

void writeStacks(std::ostream& out, DataSource& source, Form form, const FormChoices& choices,
                 std::vector<std::string>& unmatched) {
    Profile profile = makeProfile(source.database());
    unmatched = StackSelector(profile, choices.selection).findUnmatched();
    select(profile, choices.selection);
    ExportChoices how;
    how.filters = choices.filters;
    how.byThread = choices.byThread;
    how.signatures = choices.signatures;
    how.rawNames = choices.rawNames;
    how.unitNs = choices.unitNs;
    how.name = source.session;
    form == Form::Speedscope ? writeSpeedscope(out, profile, how)
                             : writeCollapsed(out, profile, how);
}

} // namespace

const std::vector<FormInfo>& allForms() {
    static const std::vector<FormInfo> forms = {
        {Form::Html,
         "html",
         {".html"},
         FormNeeds::Stacks,
         true,
         "open it in a browser; `vdk record ... --out NAME.snapshot` keeps all for `vdk report` "
         "and `vdk diff`"},
        {Form::Svg,
         "svg",
         {".svg"},
         FormNeeds::Stacks,
         true,
         "for documents; `vdk record ... --out NAME.html` can be searched"},
        {Form::Snapshot,
         "snapshot",
         {".snapshot"},
         FormNeeds::Everything,
         false,
         "`vdk report %`, `vdk export % --out NAME.html`"},
        {Form::Collapsed,
         "collapsed",
         {".collapsed", ".folded", ".collapsed.gz", ".folded.gz"},
         FormNeeds::CpuTimes,
         true,
         "a stack a line, for flame graph tools"},
        {Form::Speedscope,
         "speedscope",
         {".speedscope.json", ".speedscope.json.gz"},
         FormNeeds::CpuTimes,
         true,
         "open it at speedscope.app, or with `vdk record ... --out NAME.html` in any browser"},
        {Form::Pprof,
         "pprof",
         {".pb.gz", ".pprof"},
         FormNeeds::Stacks,
         true,
         "`go tool pprof -http : %`"},
        {Form::Firefox,
         "firefox",
         {".firefox.json", ".firefox.json.gz"},
         FormNeeds::Everything,
         true,
         "open it at profiler.firefox.com"},
        {Form::Csv, "csv", {".csv"}, FormNeeds::Everything, true, "a table, for spreadsheets"},
        {Form::Sqlite,
         "sqlite",
         {".sqlite", ".db"},
         FormNeeds::Everything,
         true,
         "`sqlite3 % 'select * from methods limit 10'`"},
        {Form::OpenMetrics,
         "openmetrics",
         {".openmetrics", ".prom"},
         FormNeeds::Everything,
         true,
         "`promtool tsdb create-blocks-from openmetrics % FOLDER`"},
        {Form::Json,
         "json",
         {".json"},
         FormNeeds::Stacks,
         false,
         "what `vdk report --json` prints"},
    };
    return forms;
}

const FormInfo& infoOf(Form form) {
    const std::vector<FormInfo>& forms = allForms();
    return *std::find_if(forms.begin(), forms.end(),
                         [&](const FormInfo& info) { return info.form == form; });
}

std::optional<Form> formOf(const std::string& path) {
    for (const FormInfo& info : allForms()) {
        for (const char* ending : info.endings) {
            if (endsWith(path, ending)) {
                return info.form;
            }
        }
    }
    return std::nullopt;
}

std::optional<Form> formOfName(const std::string& name) {
    for (const FormInfo& info : allForms()) {
        if (name == info.name) {
            return info.form;
        }
    }
    return std::nullopt;
}

int tablesOf(Form form) {
    switch (infoOf(form).needs) {
    case FormNeeds::CpuTimes:
        return CpuTables;
    case FormNeeds::Stacks:
        return CpuTables | AllocationTables | MonitorTables | ExceptionTables;
    default:
        return ALL_TABLES_MASK;
    }
}

std::string listOfEndings(Endings which) {
    std::vector<std::string> endings;
    for (const FormInfo& info : allForms()) {
        if (which == Endings::All || (which == Endings::Exported && info.isExported) ||
            (which == Endings::OfMoreThanCpuTimes && info.needs != FormNeeds::CpuTimes)) {
            endings.emplace_back(info.endings.front());
        }
    }
    const std::string last = endings.back();
    endings.pop_back();
    return join(endings, ", ") + " or " + last;
}

std::string longEnding(const std::string& path) {
    for (const FormInfo& info : allForms()) {
        for (const std::string ending : info.endings) {
            if (endsWith(path, ending) && ending.find('.', 1) != std::string::npos) {
                return ending;
            }
        }
    }
    return "";
}

WrittenForm writeForm(Console& console, DataSource& source, Form form, const std::string& path,
                      const FormChoices& choices) {
    OutputFile file(path);
    WrittenForm written;
    switch (form) {
    case Form::Html:
        writePage(file.stream(), pictureOf(source, choices, written.unmatched));
        break;
    case Form::Svg:
        writeSvg(file.stream(), pictureOf(source, choices, written.unmatched), choices.svg);
        break;
    case Form::Pprof:
        writePprof(file.stream(), pictureOf(source, choices, written.unmatched),
                   source.captureTimeMs);
        break;
    case Form::Snapshot:
        writeSnapshot(file, source);
        break;
    case Form::Firefox: {
        const Picture picture = pictureOf(source, choices, written.unmatched, true);
        writeText(file, path, [&](std::ostream& out) {
            writeFirefoxProfile(out, picture, source.database(), source.captureTimeMs);
        });
        break;
    }
    case Form::Csv:
        writeCsv(file, source, choices, written.unmatched);
        break;
    case Form::Sqlite:
        writeSqlite(file, source, choices, written.unmatched);
        break;
    case Form::OpenMetrics:
        file.stream() << metricsOfTables(source);
        break;
    case Form::Json: {
        Console document(file.stream(), console);
        document.json = true;
        writeReportDocument(document, source, Arguments());
        break;
    }
    default:
        writeText(file, path, [&](std::ostream& out) {
            writeStacks(out, source, form, choices, written.unmatched);
        });
    }
    file.stream().flush();
    // A database is written by SQLite.
    written.bytes = form == Form::Sqlite ? int64_t(std::filesystem::file_size(file.temporaryPath()))
                                         : file.size();
    file.commit();
    return written;
}

} // namespace vdk
