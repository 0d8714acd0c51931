#include "client/commands/Commands.h"
#include "client/commands/SelectionArguments.h"
#include "client/commands/Sources.h"
#include "client/console/OutputFile.h"
#include "client/console/Text.h"
#include "client/profile/Export.h"

namespace vdk {

// Browsers fail on larger files.
static const std::streamoff SpeedscopeWarnBytes = 200 << 20;

int runExport(Console& console, const Arguments& arguments) {
    std::string path = arguments.text("--out", "-");
    bool speedscope = arguments.has("--speedscope");
    bool collapsed = arguments.has("--collapsed");
    if (!speedscope && !collapsed) {
        speedscope = endsWith(path, ".speedscope.json");
        collapsed = endsWith(path, ".collapsed") || endsWith(path, ".folded");
    }
    if (speedscope == collapsed) {
        throw ClientError(ExitCode::Usage, "usage",
                          "name one form: --collapsed or --speedscope, or an --out file that ends "
                          "in .collapsed or .speedscope.json");
    }
    DataSource source = openData(arguments.text("SOURCE"), arguments, CpuTables);
    Profile profile = makeProfile(source.database());
    if (profile.total() == 0) {
        console.note("no CPU data: sampling was off");
    }
    const Selection selection = selectionOf(arguments);
    noteUnmatched(console, StackSelector(profile, selection).findUnmatched());
    select(profile, selection);
    ExportChoices choices;
    choices.filters = arguments.text("--filters") == "on";
    choices.byThread = arguments.has("--by-thread");
    choices.signatures = arguments.has("--signatures");
    choices.rawNames = arguments.has("--raw-names");
    std::string unit = arguments.text("--unit", "us");
    choices.unitNs = unit == "ns" ? 1 : unit == "us" ? 1000 : 1000000;
    choices.name = source.session;
    if (console.json && path == "-") {
        throw ClientError(ExitCode::Usage, "usage", "--json and --out - both want standard output");
    }
    OutputFile file(path);
    if (speedscope) {
        writeSpeedscope(file.stream(), profile, choices);
    } else {
        writeCollapsed(file.stream(), profile, choices);
    }
    std::streamoff size = file.size();
    file.commit();
    if (console.json) {
        JsonDocument json(console, "vdk.export/1");
        json.field("source", source.name);
        json.field("session", source.session).field("file", path);
        json.field("form", speedscope ? "speedscope" : "collapsed");
        json.field("totalNs", profile.total()).field("bytes", int64_t(size));
        json.end();
    }
    if (speedscope && size > SpeedscopeWarnBytes) {
        console.warn("the file has " + formatBytes(size) +
                     "; browsers may fail to open it: --filters on makes it smaller");
    }
    return 0;
}

} // namespace vdk
