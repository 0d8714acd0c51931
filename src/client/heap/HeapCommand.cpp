#include "client/commands/Commands.h"
#include "client/console/Text.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"

#include <algorithm>

namespace vdk {

namespace {

const HeapReport& reportOf(const Arguments& arguments) {
    const std::string name = arguments.text("REPORT", "summary");
    for (const HeapReport& report : heapReports()) {
        if (name == report.name) {
            return report;
        }
    }
    throw ClientError(ExitCode::Usage, "usage", "there is no report " + name);
}

// An option that a report does not know would be passed over, and the answer be another question's.
void checkOptions(const HeapReport& report, const Arguments& arguments) {
    if (arguments.has("--table") && !arguments.has("--csv")) {
        throw ClientError(ExitCode::Usage, "usage", "--table goes with --csv");
    }
    static const char* const special[] = {
        "--sort",       "--by-class", "--since", "--held-by", "--by",         "--no-retained",
        "--weak",       "--where",    "--from",  "--gate",    "--subclasses", "--skip",
        "--max-growth", "--sqlite",   "--csv",   "--exclude"};
    for (const std::string option : special) {
        const bool isKnown =
            std::string(report.options).find(" " + option + " ") != std::string::npos;
        if (arguments.has(option) && !isKnown) {
            throw ClientError(ExitCode::Usage, "usage",
                              std::string(report.name) + " takes no " + option,
                              "`vdk heap --help` tells which report does");
        }
    }
}

} // namespace

const std::vector<HeapReport>& heapReports() {
    static const std::vector<HeapReport> reports = {
        {"summary", "", "totals, what holds most, biggest classes and objects (default)", " --csv ",
         reportHeapSummary, false},
        {"suspects", "", "where memory has gathered, and what holds it; --gate for scripts",
         " --gate --csv ", reportHeapSuspects, true},
        {"histogram", "[CLASSES]", "objects, shallow and retained bytes of classes",
         " --sort --no-retained --csv ", reportHeapHistogram, true},
        {"objects", "CLASSES", "objects of a class; --where chooses, --sort puts in order",
         " --where --sort --subclasses --no-retained --csv ", reportHeapObjects, true},
        {"show", "ID", "all about an object: fields, elements from --from on, text, loader",
         " --from --no-retained --csv ", reportHeapShow, true},
        {"biggest", "", "objects by retained bytes", " --csv ", reportHeapBiggest, false},
        {"dominators", "[ID]", "what an object (or nothing else) keeps alive, one level",
         " --by-class --csv ", reportHeapDominators, false},
        {"refs", "ID", "what an object refers to", " --csv ", reportHeapReferences, true},
        {"referrers", "ID", "what refers to an object", " --csv ", reportHeapReferrers, true},
        {"path", "ID", "shortest path from a root to an object", " --weak --csv ", reportHeapPath,
         true},
        {"paths", "CLASSES", "shortest paths from roots to all objects of a class, merged",
         " --exclude --csv ", reportHeapPaths, true},
        {"references", "", "soft, weak, phantom and final references, what they alone hold",
         " --csv ", reportHeapReferenceObjects, true},
        {"retained", "NAME...", "what objects, or all of some classes, retain together", " --csv ",
         reportHeapRetained, true},
        {"holders", "CLASSES",
         "what dominates the objects of a class, by class; past those of --skip", " --skip --csv ",
         reportHeapHolders, true},
        {"threads", "[NAME]", "what threads retain with their locals; of NAME stack and locals",
         " --csv ", reportHeapThreads, true},
        {"loaders", "[NAME|ID]", "classes and objects by class loader, classes loaded twice",
         " --csv ", reportHeapLoaders, true},
        {"packages", "[PACKAGES]", "objects by package", " --sort --no-retained --csv ",
         reportHeapPackages, true},
        {"unreachable", "", "what no root reaches, by class", " --csv ", reportHeapUnreachable,
         true},
        {"strings", "", "texts that are there more than once", " --csv ", reportHeapStrings, true},
        {"arrays", "", "empty and nearly empty arrays, by what holds them", " --csv ",
         reportHeapArrays, true},
        {"collections", "", "how full lists, maps and sets are, and what holds the wasteful ones",
         " --csv ", reportHeapCollections, true},
        {"duplicates", "", "primitive arrays with equal content", " --csv ", reportHeapDuplicates,
         true},
        {"diff", "FILE2...",
         "changes from FILE to FILE2 and who holds what is new; limits for scripts",
         " --sort --by --max-growth --csv ", reportHeapDiff, true},
        {"sql", "[QUERY]", "a query over the heap as tables; without one, the tables", " --csv ",
         reportHeapSql, true},
        {"export", "[TABLE...]", "those tables in a database file, which --sqlite names",
         " --sqlite --csv ", reportHeapExport, true},
        {"shell", "", "question after question on the opened heap, with history and completion",
         " ", reportHeapShell, true},
        {"server", "", "the same for programs: a line of JSON each, on standard input and output",
         " ", reportHeapServer, true},
        {"generations", "", "objects by the mark behind their birth (snapshots only)", " --csv ",
         reportHeapGenerations, true},
        {"sites", "[CLASSES]", "objects by class and by what allocated them (snapshots only)",
         " --since --held-by --by --csv ", reportHeapSites, true},
    };
    return reports;
}

std::vector<std::string> heapReportNames() {
    std::vector<std::string> names;
    for (const HeapReport& report : heapReports()) {
        names.emplace_back(report.name);
    }
    return names;
}

std::vector<std::string> heapOptionNames() {
    std::vector<std::string> names;
    for (const OptionSpec& option : findCommand("heap")->options) {
        if (!option.isPositional()) {
            names.push_back(option.name);
        }
    }
    return names;
}

std::string heapReportHelp() {
    std::string text;
    for (const HeapReport& report : heapReports()) {
        std::string name =
            std::string(report.name) + (report.arguments[0] != 0 ? " " : "") + report.arguments;
        name.resize(std::max<size_t>(name.size() + 1, 20), ' ');
        text += "  " + name + report.help + "\n";
    }
    return text;
}

bool heapReportNeedsGraph(const Arguments& arguments) {
    return reportOf(arguments).graphNeeded;
}

int runHeap(Console& console, const Arguments& arguments) {
    const HeapReport& report = reportOf(arguments);
    checkOptions(report, arguments);
    // An index is read, and a dump in gzip form inflated, when a report comes to need it.
    int code = 0;
    withHeapErrors(arguments.text("FILE", ""), [&] {
        code = arguments.has("REPORT") ? report.run(console, arguments)
                                       : runHeapWithoutReport(console, arguments);
    });
    if (console.json) {
        console.out << "\n";
    }
    return code;
}

} // namespace vdk
