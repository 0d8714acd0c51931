#include "client/commands/DataFile.h"

#include "client/commands/SelectionArguments.h"
#include "client/console/OutputFile.h"
#include "client/console/Text.h"
#include "client/picture/PicturePage.h"
#include "client/picture/Pprof.h"
#include "client/profile/Export.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/SnapshotWriter.h"

namespace vdk {

namespace {

struct FormRow {
    Form form;
    const char* name;
    const char* ending;
};
// The first ending that fits counts.
const FormRow Forms[] = {
    {Form::Html, "html", ".html"},
    {Form::Snapshot, "snapshot", ".snapshot"},
    {Form::Collapsed, "collapsed", ".collapsed"},
    {Form::Collapsed, "collapsed", ".folded"},
    {Form::Speedscope, "speedscope", ".speedscope.json"},
    {Form::Pprof, "pprof", ".pb.gz"},
    {Form::Pprof, "pprof", ".pprof"},
    {Form::Json, "json", ".json"},
};

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
                  std::vector<std::string>& unmatched) {
    Picture picture({choices.filters, choices.signatures});
    addAll(picture, source.database(), Side::Now, !choices.rawNames, choices.selection, &unmatched);
    picture.finish();
    picture.session = printable(source.session);
    picture.title = picture.session;
    picture.source = printable(source.name);
    picture.notes = printable(choices.notes);
    return picture;
}

void writeStacks(OutputFile& file, DataSource& source, Form form, const FormChoices& choices,
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
    form == Form::Speedscope ? writeSpeedscope(file.stream(), profile, how)
                             : writeCollapsed(file.stream(), profile, how);
}

} // namespace

std::optional<Form> formOf(const std::string& path) {
    for (const FormRow& row : Forms) {
        if (endsWith(path, row.ending)) {
            return row.form;
        }
    }
    return std::nullopt;
}

const char* formName(Form form) {
    for (const FormRow& row : Forms) {
        if (row.form == form) {
            return row.name;
        }
    }
    return "";
}

std::optional<Form> formOfName(const std::string& name) {
    for (const FormRow& row : Forms) {
        if (name == row.name) {
            return row.form;
        }
    }
    return std::nullopt;
}

WrittenForm writeForm(Console& console, DataSource& source, Form form, const std::string& path,
                      const FormChoices& choices) {
    OutputFile file(path);
    WrittenForm written;
    switch (form) {
    case Form::Html:
        writePage(file.stream(), pictureOf(source, choices, written.unmatched));
        break;
    case Form::Pprof:
        writePprof(file.stream(), pictureOf(source, choices, written.unmatched),
                   source.captureTimeMs);
        break;
    case Form::Snapshot:
        writeSnapshot(file, source);
        break;
    case Form::Json: {
        Console document(file.stream(), console);
        document.json = true;
        writeReportDocument(document, source, Arguments());
        break;
    }
    default:
        writeStacks(file, source, form, choices, written.unmatched);
    }
    file.stream().flush();
    written.bytes = file.size();
    file.commit();
    return written;
}

} // namespace vdk
