// The first screen: what the heap is, where memory has gathered, what is biggest, what to ask next.
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapObjectTable.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/HeapSuspects.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

const size_t ShownClasses = 6;
const size_t WrittenClasses = 10;
const size_t ShownObjects = 4;
const size_t ShownSuspects = 3;
const double SmallestShare = 5;

std::map<std::string, int64_t> rootsByKind(const HeapModel& model) {
    std::map<std::string, int64_t> result;
    for (const HeapRoot& root : model.roots) {
        result[heapRootName(root.kind)]++;
    }
    return result;
}

class Screen {
public:
    Screen(const HeapSession& session, HeapDocument& document)
        : session(session), model(session.model()), document(document) {}

    void writeTotals(const HeapTotals& totals, size_t classCount) {
        document.field("shallow", totals.shallow);
        document.field("unreachable", totals.unreachable);
        document.field("unreachableBytes", totals.unreachableBytes);
        document.field("captureTimeMs", int64_t(model.captureTimeMs));
        document.line(model.file->path() + ": " + model.formatName + ", identifiers of " +
                      std::to_string(model.idSize) + " bytes");
        document.line(formatCount(totals.count) + " objects of " +
                      formatCount(int64_t(classCount)) + " classes, " +
                      formatBytes(totals.shallow) + "; " + formatCount(totals.unreachable) + ", " +
                      formatBytes(totals.unreachableBytes) + ", are not reached by any root");
        writeRoots();
        document.line("sizes: " + model.sizing.text());
        for (const std::string& note : model.notes) {
            document.line("note: " + note);
        }
    }

    void writeSuspected(const HeapSuspects& suspects) {
        if (JsonWriter* json = document.writer()) {
            writeSuspects(*json, session, suspects);
            return;
        }
        document.line(suspects.list.empty()
                          ? "\nNothing holds 5 % of the reached bytes itself"
                          : "\nSuspects: what holds 5 % of the reached bytes itself, and more");
        for (const HeapSuspect& suspect : suspects.list) {
            std::string share = formatPercent(suspect.share) + " %";
            document.line(std::string(share.size() < 7 ? 7 - share.size() : 0, ' ') + share + "  " +
                          formatBytes(suspect.bytes) + "  " + heapSuspectText(model, suspect));
            const std::string holder = heapHolderText(model, suspect.path);
            const std::string content = heapSuspectContent(suspect);
            for (const std::string& text :
                 {holder.empty() ? holder : "held by " + holder, content}) {
                if (!text.empty()) {
                    document.line("         " + text);
                }
            }
        }
    }

    void writeNext(const HeapSuspects& suspects, const std::vector<int>& biggest, bool inShell) {
        const std::string heap = inShell ? "" : "vdk heap " + shellWord(model.file->path()) + " ";
        const int row = !suspects.list.empty() ? suspects.list[0].row
                        : biggest.empty()      ? 0
                                               : biggest[0];
        document.line("\nNext:  " + heap + "suspects         # with the paths that hold them");
        if (row != 0 && !model.resultsOnly) {
            document.line("       " + heap + "show " + heapId(model, row) + " | path " +
                          heapId(model, row) + " | dominators " + heapId(model, row));
        }
        document.line("       " + heap + "objects CLASS | threads | collections | " +
                      (inShell ? "help" : "--help"));
    }

private:
    void writeRoots() {
        const auto kinds = rootsByKind(model);
        std::vector<std::string> texts;
        if (JsonWriter* json = document.writer()) {
            json->key("roots").beginObject();
            for (const auto& kind : kinds) {
                json->field(kind.first, kind.second);
            }
            json->endObject();
        }
        for (const auto& kind : kinds) {
            texts.push_back(formatCount(kind.second) + " " + kind.first);
        }
        document.line("roots: " + (texts.empty() ? "none" : join(texts, ", ")));
    }

    const HeapSession& session;
    const HeapModel& model;
    HeapDocument& document;
};

} // namespace

int reportHeapSummary(Console& console, const Arguments& arguments) {
    return showHeapFirstScreen(console, arguments, false);
}

int showHeapFirstScreen(Console& console, const Arguments& arguments, bool inShell) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    std::vector<HeapClassSum> sums = sumByClass(session, true);
    sortSums(sums, SortKey::Retained);
    const HeapSuspects suspects = findSuspects(session, SmallestShare, ShownSuspects);
    const std::vector<int> biggest = biggestObjects(session, ShownObjects);
    HeapDocument document(console, arguments, session, "summary");
    Screen screen(session, document);
    screen.writeTotals(totalsOf(session, sums), sums.size());
    screen.writeSuspected(suspects);
    document.table(
        "classes",
        sumTable(sums, heapTop(arguments, document.isText() ? ShownClasses : WrittenClasses), true),
        "Classes by retained bytes");
    document.table("objects", heapObjectTable(session, biggest), "Biggest objects");
    screen.writeNext(suspects, biggest, inShell);
    document.end();
    return 0;
}

} // namespace vdk
