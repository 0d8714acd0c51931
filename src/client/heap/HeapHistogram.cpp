#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapReport.h"

#include <algorithm>
#include <map>
#include <memory>

namespace vdk {

namespace {

const size_t SummaryClasses = 10;
const size_t HistogramClasses = 50;

struct Totals {
    int64_t count = 0;
    int64_t shallow = 0;
    int64_t unreachable = 0;
    int64_t unreachableBytes = 0;
};

Totals totalsOf(const HeapSession& session, const std::vector<HeapClassSum>& sums) {
    Totals totals;
    for (const HeapClassSum& sum : sums) {
        totals.count += sum.count;
        totals.shallow += sum.shallow;
    }
    for (int row = 1; row <= session.model().lastRowWithId; row++) {
        const int64_t size = session.sizeOf(row);
        if (!session.isReached(row) && size >= 0) {
            totals.unreachable++;
            totals.unreachableBytes += size;
        }
    }
    return totals;
}

std::map<std::string, int64_t> rootsByKind(const HeapModel& model) {
    std::map<std::string, int64_t> result;
    for (const HeapRoot& root : model.roots) {
        result[heapRootName(root.kind)]++;
    }
    return result;
}

// Sums of both heaps by name of class, as a class has another identity in each.
struct Difference {
    HeapClassSum before;
    HeapClassSum after;
};

std::string withSign(int64_t value, std::string (*format)(int64_t)) {
    return (value > 0 ? "+" : "") + format(value);
}

} // namespace

int reportHeapSummary(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    std::vector<HeapClassSum> sums = sumByClass(session, true);
    sortSums(sums, SortKey::Retained);
    Totals totals = totalsOf(session, sums);
    size_t top = heapTop(arguments, SummaryClasses);
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.summary/1", session);
        json.field("shallow", totals.shallow).field("unreachable", totals.unreachable);
        json.field("unreachableBytes", totals.unreachableBytes);
        json.field("captureTimeMs", int64_t(model.captureTimeMs));
        json.key("roots").beginObject();
        for (const auto& kind : rootsByKind(model)) {
            json.field(kind.first, kind.second);
        }
        json.endObject();
        writeSums(json, sums, top, true);
        json.endObject();
        return 0;
    }
    console.out << model.file->path() << ": " << model.formatName << ", identifiers of "
                << model.idSize << " bytes\n"
                << formatCount(totals.count) << " objects of " << formatCount(int64_t(sums.size()))
                << " classes, " << formatBytes(totals.shallow) << "\n"
                << formatCount(totals.unreachable) << " of them, "
                << formatBytes(totals.unreachableBytes) << ", are not reached by any root\n"
                << "roots:" << (model.roots.empty() ? " none" : "");
    const char* separator = " ";
    for (const auto& kind : rootsByKind(model)) {
        console.out << separator << formatCount(kind.second) << " " << kind.first;
        separator = ", ";
    }
    console.out << "\nsizes: " << model.sizing.text() << "\n";
    for (const std::string& note : model.notes) {
        console.out << "note: " << note << "\n";
    }
    console.out << "\n";
    printSums(console, sums, top, true);
    return 0;
}

int reportHeapHistogram(Console& console, const Arguments& arguments) {
    const auto& patterns = heapArguments(arguments, 0, 1, "at most a pattern of class names");
    bool analyze = !arguments.has("--no-retained");
    HeapSession session(console, heapOptions(arguments), analyze);
    std::vector<HeapClassSum> sums = sumByClass(session, analyze);
    Totals totals = totalsOf(session, sums);
    if (!patterns.empty()) {
        std::vector<int> wanted = session.classesByPattern(patterns[0]);
        sums.erase(std::remove_if(sums.begin(), sums.end(),
                                  [&](const HeapClassSum& sum) {
                                      return !std::binary_search(wanted.begin(), wanted.end(),
                                                                 sum.classIndex);
                                  }),
                   sums.end());
        if (sums.empty()) {
            console.note("no class matches " + printable(patterns[0], 200) + "; " +
                         HeapClassNameHint);
        }
    }
    sortSums(sums, sortKey(arguments, analyze));
    size_t top = heapTop(arguments, console.json ? sums.size() : HistogramClasses);
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.histogram/1", session);
        json.field("count", totals.count).field("shallow", totals.shallow);
        writeSums(json, sums, top, analyze);
        json.endObject();
        return 0;
    }
    printSums(console, sums, top, analyze);
    HeapClassSum all;
    all.count = totals.count;
    all.shallow = totals.shallow;
    printTotals(console, sums, all, !patterns.empty());
    return 0;
}

int reportHeapDiff(Console& console, const Arguments& arguments) {
    const auto& others = heapArguments(arguments, 1, 1, "the file to compare with");
    if (!arguments.text("--index").empty()) {
        throw ClientError(ExitCode::Usage, "usage", "an index belongs to one file, diff has two");
    }
    std::map<std::string, Difference> byName;
    HeapOptions options = heapOptions(arguments);
    const std::string firstFile = options.file;
    std::vector<std::string> firstRemarks;
    {
        HeapSession session(console, options, true);
        for (const std::string& remark : session.model().remarks) {
            firstRemarks.push_back(firstFile + ": " + remark);
        }
        for (const HeapClassSum& sum : sumByClass(session, true)) {
            addTo(byName[sum.name].before, sum);
        }
    }
    options.file = others[0];
    HeapSession session(console, options, true);
    for (const HeapClassSum& sum : sumByClass(session, true)) {
        addTo(byName[sum.name].after, sum);
    }
    std::vector<std::pair<std::string, Difference>> rows(byName.begin(), byName.end());
    rows.erase(std::remove_if(rows.begin(), rows.end(),
                              [](const auto& row) {
                                  const Difference& d = row.second;
                                  return d.before.count == d.after.count &&
                                         d.before.shallow == d.after.shallow &&
                                         d.before.retained == d.after.retained;
                              }),
               rows.end());
    SortKey key = sortKey(arguments, true);
    auto change = [key](const Difference& d) {
        return sortValue(d.after, key) - sortValue(d.before, key);
    };
    std::stable_sort(rows.begin(), rows.end(), [&](const auto& a, const auto& b) {
        return key != SortKey::Name && std::abs(change(a.second)) > std::abs(change(b.second));
    });
    size_t top = heapTop(arguments, console.json ? rows.size() : HistogramClasses);
    rows.resize(std::min(rows.size(), top));
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.diff/1", session, firstRemarks);
        json.field("before", firstFile).key("classes").beginArray();
        for (const auto& row : rows) {
            json.beginObject().field("class", row.first);
            json.field("countBefore", row.second.before.count);
            json.field("count", row.second.after.count);
            json.field("shallowBefore", row.second.before.shallow);
            json.field("shallow", row.second.after.shallow);
            json.field("retainedBefore", row.second.before.retained);
            json.field("retained", row.second.after.retained).endObject();
        }
        json.endArray().endObject();
        return 0;
    }
    if (rows.empty()) {
        console.note("no class differs");
    }
    TextTable table({{"objects", TextTable::Right},
                     {"shallow", TextTable::Right},
                     {"retained", TextTable::Right},
                     {"class"}});
    for (const auto& row : rows) {
        const Difference& d = row.second;
        table.add({withSign(d.after.count - d.before.count, formatCount),
                   withSign(d.after.shallow - d.before.shallow, formatBytes),
                   withSign(d.after.retained - d.before.retained, formatBytes),
                   printable(row.first)});
    }
    table.print(console);
    return 0;
}

} // namespace vdk
