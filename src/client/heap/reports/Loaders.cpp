// Classes and objects by class loader, classes that are there more than once, and what keeps a
// loader alive.
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapFields.h"
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/HeapSuspects.h"
#include "client/heap/reports/LoaderGroups.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

const size_t ShownLoaders = 30;
const size_t ShownDuplicates = 20;
const size_t ExplainedLoaders = 10; // each takes a search through the heap

std::string loaderText(const HeapModel& model, int row) {
    return row == 0 ? "the JVM's own loader" : heapLabel(model, row);
}

class LoaderReport {
public:
    LoaderReport(const HeapSession& session, HeapDocument& document, const std::string& wanted)
        : session(session), model(session.model()), document(document), groups(model),
          name(model, "name"),
          sums(sumByGroup(session, groups.count(), groups.functionOf(), true)) {
        for (size_t i = 0; i < groups.count(); i++) {
            if (isWanted(groups.rowOf(i), wanted)) {
                order.push_back(i);
            }
        }
        std::stable_sort(order.begin(), order.end(),
                         [&](size_t a, size_t b) { return sums[a].retained > sums[b].retained; });
    }

    bool isEmpty() const { return order.empty(); }

    void writeLoaders(size_t top) {
        HeapTable table({{"classes", "classes", HeapTable::Kind::Count},
                         {"objects", "count", HeapTable::Kind::Count},
                         {"shallow", "shallow", HeapTable::Kind::Bytes},
                         {"retained", "retained", HeapTable::Kind::Bytes},
                         {"name", "name"},
                         {"loader", ""},
                         {"", "id"},
                         {"", "class"},
                         {"held by", "heldBy"}});
        size_t explained = 0;
        for (size_t i = 0; i < std::min(top, order.size()); i++) {
            const HeapClassSum& sum = sums[order[i]];
            const int row = groups.rowOf(order[i]);
            std::string text;
            model.stringValue(name.reference(row), text, 200);
            const bool isExplained = row != 0 && explained++ < ExplainedLoaders;
            table.add({groups.classesOf(order[i]), sum.count, sum.shallow, sum.retained, text,
                       loaderText(model, row), row == 0 ? "" : heapId(model, row),
                       row == 0 ? "" : model.classNameOf(row),
                       isExplained ? heapHolderText(model, pathTo(row)) : ""});
        }
        table.setOmitted(order.size() - std::min(top, order.size()));
        document.field("count", order.size());
        document.table("loaders", table);
    }

    // Names that several loaders define.
    void writeDuplicates(size_t top) {
        struct Copies {
            std::vector<int> classes;
            int64_t count = 0, shallow = 0;
        };
        std::map<std::string, Copies> byName;
        for (size_t i = 0; i < model.classes.size(); i++) {
            if (model.classes[i].elementType == 0 && model.classes[i].row <= model.lastRowWithId) {
                byName[model.classes[i].name].classes.push_back(int(i));
            }
        }
        for (const HeapClassSum& sum : sumByClass(session, false)) {
            const auto found = byName.find(sum.name);
            if (found != byName.end()) {
                found->second.count += sum.count;
                found->second.shallow += sum.shallow;
            }
        }
        std::vector<std::pair<std::string, Copies>> rows(byName.begin(), byName.end());
        rows.erase(std::remove_if(rows.begin(), rows.end(),
                                  [](const auto& row) { return row.second.classes.size() < 2; }),
                   rows.end());
        std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
            return a.second.classes.size() > b.second.classes.size();
        });
        HeapTable table({{"copies", "copies", HeapTable::Kind::Count},
                         {"objects", "count", HeapTable::Kind::Count},
                         {"shallow", "shallow", HeapTable::Kind::Bytes},
                         {"class", "class"}});
        for (size_t i = 0; i < std::min(top, rows.size()); i++) {
            const Copies& copies = rows[i].second;
            table.add({copies.classes.size(), copies.count, copies.shallow, rows[i].first});
        }
        table.setOmitted(rows.size() - std::min(top, rows.size()));
        if (document.writer() || !rows.empty()) {
            document.table("duplicates", table, "Classes of one name that several loaders define");
        }
    }

    void printPaths(Console& console, size_t top) {
        for (size_t i = 0; i < std::min({top, order.size(), ExplainedLoaders}); i++) {
            const int row = groups.rowOf(order[i]);
            const std::vector<int> path = row == 0 ? std::vector<int>() : pathTo(row);
            if (!path.empty()) {
                console.out << "\n" << loaderText(model, row) << " is kept by\n";
                printPath(console, model, path, "  ");
            }
        }
    }

private:
    bool isWanted(int row, const std::string& wanted) const {
        if (wanted.empty()) {
            return true;
        }
        return row != 0 && (isdigit(static_cast<unsigned char>(wanted[0]))
                                ? session.rowOf(wanted) == row
                                : classNameMatches(wanted, model.classNameOf(row)));
    }
    std::vector<int> pathTo(int row) const { return shortestPath(session, row, false); }

    const HeapSession& session;
    const HeapModel& model;
    HeapDocument& document;
    const LoaderGroups groups;
    const HeapFieldReader name;
    const std::vector<HeapClassSum> sums;
    std::vector<size_t> order;
};

} // namespace

int reportHeapLoaders(Console& console, const Arguments& arguments) {
    const auto& names = heapArguments(arguments, 0, 1, "at most a loader: its class or identifier");
    HeapSession session(console, heapOptions(arguments), true);
    HeapDocument document(console, arguments, session, "loaders");
    LoaderReport report(session, document, names.empty() ? "" : names[0]);
    report.writeLoaders(heapTop(arguments, ShownLoaders));
    if (names.empty()) {
        report.writeDuplicates(heapTop(arguments, ShownDuplicates));
    } else if (document.isText()) {
        report.printPaths(console, heapTop(arguments, ExplainedLoaders));
    }
    document.end();
    return 0;
}

} // namespace vdk
