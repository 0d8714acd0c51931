#include "client/commands/Commands.h"
#include "client/commands/DataFile.h"
#include "client/commands/SelectionArguments.h"
#include "client/console/Text.h"
#include "client/profile/Report.h"

#include <algorithm>

namespace vdk {

namespace {

// Browsers fail on larger files.
const int64_t SpeedscopeWarnBytes = 200 << 20;

// What the options name, or else the end of the file's name.
Form chosenForm(const Arguments& arguments, const std::string& path) {
    std::vector<Form> named;
    if (arguments.has("--collapsed")) {
        named.push_back(Form::Collapsed);
    }
    if (arguments.has("--speedscope")) {
        named.push_back(Form::Speedscope);
    }
    if (arguments.has("--format")) {
        named.push_back(*formOfName(arguments.text("--format")));
    }
    if (named.empty()) {
        const std::optional<Form> form = formOf(path);
        if (form && infoOf(*form).isExported) {
            named.push_back(*form);
        }
    }
    if (named.size() != 1) {
        throw ClientError(ExitCode::Usage, "usage",
                          "name one form: with --format, or by an --out file that ends in " +
                              listOfEndings(Endings::Exported));
    }
    return named.front();
}

} // namespace

int runExport(Console& console, const Arguments& arguments) {
    const std::string path = arguments.text("--out", "-");
    const Form form = chosenForm(arguments, path);
    if (console.json && path == "-") {
        throw ClientError(ExitCode::Usage, "usage", "--json and --out - both want standard output");
    }
    const FormInfo& info = infoOf(form);
    DataSource source = openData(arguments.text("SOURCE"), arguments, tablesOf(form),
                                 info.needs == FormNeeds::Everything);
    Profile profile = makeProfile(source.database());
    select(profile, selectionOf(arguments));
    if (info.needs == FormNeeds::CpuTimes && profile.total() == 0) {
        console.note("no CPU data: sampling was off");
    }
    FormChoices choices;
    choices.selection = selectionOf(arguments);
    choices.filters = arguments.text("--filters") == "on";
    choices.table = arguments.text("--show", "methods");
    choices.byThread = arguments.has("--by-thread");
    choices.signatures = arguments.has("--signatures");
    choices.rawNames = arguments.has("--raw-names");
    choices.svg.depth = int(std::min(arguments.number("--depth", choices.svg.depth), 10000L));
    if (arguments.has("--min-percent")) {
        choices.svg.minPercent = double(arguments.number("--min-percent", 0));
    }
    const std::string unit = arguments.text("--unit", "us");
    choices.unitNs = unit == "ns" ? 1 : unit == "us" ? 1000 : 1000000;
    const WrittenForm written = writeForm(console, source, form, path, choices);
    noteUnmatched(console, written.unmatched);
    const std::string sampling = samplingText(profile, profile.sampledCpu());
    if (!sampling.empty()) {
        console.note(printable(sampling));
    }
    if (console.json) {
        JsonDocument json(console, "vdk.export/1");
        json.field("source", source.name);
        json.field("session", source.session).field("file", path);
        json.field("form", info.name);
        json.field("totalNs", profile.total()).field("bytes", written.bytes);
        writeSampler(json, profile);
        writeSampled(json, profile.sampledCpu());
        json.field("notWalkableNs", profile.notWalkableNs);
        json.end();
    }
    if (form == Form::Speedscope && written.bytes > SpeedscopeWarnBytes) {
        console.warn("the file has " + formatBytes(written.bytes) +
                     "; browsers may fail to open it: --filters on makes it smaller");
    }
    return 0;
}

} // namespace vdk
