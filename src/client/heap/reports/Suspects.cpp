// What may leak: the places where memory has gathered, and what holds them.
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/HeapSuspects.h"

#include <algorithm>
#include <sstream>

namespace vdk {

namespace {

const double SmallestShare = 5;
const size_t ShownSuspects = 10;

HeapTable tableOf(const HeapSession& session, const HeapSuspects& suspects) {
    std::vector<HeapTable::Column> columns = {{"share", "share", HeapTable::Kind::Percent},
                                              {"bytes", "bytes", HeapTable::Kind::Bytes}};
    HeapTable::addObjectColumns(columns);
    columns.push_back({"", "heldBy"});
    columns.push_back({"", "group"});
    HeapTable table(columns);
    for (const HeapSuspect& suspect : suspects.list) {
        HeapTable::Row row = {suspect.share, suspect.bytes};
        HeapTable::addObject(row, session.model(), suspect.row);
        row.emplace_back(heapHolderText(session.model(), suspect.path));
        row.emplace_back(suspect.groupSize);
        table.add(std::move(row));
    }
    return table;
}

void printSuspect(Console& console, const HeapSession& session, const HeapSuspect& suspect) {
    const HeapModel& model = session.model();
    console.out << "\n"
                << formatPercent(suspect.share) << " %, " << formatBytes(suspect.bytes) << ": "
                << heapSuspectText(model, suspect) << "\n";
    const std::string holder = heapHolderText(model, suspect.path);
    if (!holder.empty()) {
        console.out << "  held by " << holder << "\n";
    }
    const int type = model.classOf(suspect.row);
    const int loader = type < 0 ? 0 : model.loaderOf(type);
    if (loader != 0) {
        console.out << "  class loaded by " << heapLabel(model, loader) << "\n";
    }
    for (const HeapClassSum& child : suspect.children) {
        console.out << "  holds " << formatCount(child.count) << " " << printable(child.name)
                    << ", " << formatBytes(child.retained) << "\n";
    }
    if (!suspect.path.empty()) {
        printPath(console, model, suspect.path, "    ");
    }
}

} // namespace

int reportHeapSuspects(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const bool isGate = arguments.has("--gate");
    const auto gate = double(arguments.number("--gate", 100));
    const HeapSuspects suspects = findSuspects(session, std::clamp(gate, 0.1, SmallestShare),
                                               heapTop(arguments, ShownSuspects));
    const bool isRefused =
        isGate && std::any_of(suspects.list.begin(), suspects.list.end(),
                              [&](const HeapSuspect& each) { return each.share >= gate; });
    HeapDocument document(console, arguments, session, "suspects");
    document.field("reachedBytes", suspects.reachedBytes);
    if (JsonWriter* json = document.writer()) {
        if (isGate) {
            json->field("gate", gate).field("passed", !isRefused);
        }
        writeSuspects(*json, session, suspects);
    } else if (document.isText()) {
        console.out << formatBytes(suspects.reachedBytes) << " are reached by roots\n";
        for (const HeapSuspect& suspect : suspects.list) {
            printSuspect(console, session, suspect);
        }
        if (suspects.list.empty()) {
            console.out << "nothing holds " << formatPercent(SmallestShare)
                        << " % of that itself\n";
        }
    } else {
        document.table("suspects", tableOf(session, suspects));
    }
    document.end();
    if (isRefused && !console.json) {
        console.err << "vdk: a suspect holds " << formatPercent(gate) << " % and more\n";
    }
    return isRefused ? int(ExitCode::Refused) : 0;
}

} // namespace vdk
