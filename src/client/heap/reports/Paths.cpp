// How roots reach all objects of a class: their shortest paths, merged.
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/reports/PathTree.h"

#include <algorithm>

namespace vdk {

namespace {

const size_t ShownSteps = 40;

class Picture {
public:
    Picture(const HeapSession& session, const HeapPathTree& tree, size_t top)
        : model(session.model()), steps(tree.steps()), below(steps.size()),
          table({{"reached", "count", HeapTable::Kind::Count},
                 {"shallow", "shallow", HeapTable::Kind::Bytes},
                 {"objects", "objects", HeapTable::Kind::Count},
                 {"path", ""},
                 {"", "depth"},
                 {"", "name"},
                 {"", "class"},
                 {"", "id"},
                 {"", "root"}}) {
        // A step reaches no more than the one before it, which comes first here too.
        std::vector<int> order(steps.size());
        for (size_t i = 0; i < order.size(); i++) {
            order[i] = int(i);
        }
        std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
            return steps[size_t(a)].count > steps[size_t(b)].count;
        });
        order.resize(std::min(order.size(), top));
        std::vector<int> first;
        for (int each : order) {
            const int above = steps[size_t(each)].above;
            (above < 0 ? first : below[size_t(above)]).push_back(each);
        }
        draw(first);
        table.setOmitted(steps.size() - order.size());
    }

    const HeapTable& drawn() const { return table; }

private:
    struct Open {
        int step;
        size_t indentation;
        int depth;
    };

    // Only where a path divides the next steps are indented.
    void draw(const std::vector<int>& first) {
        std::vector<Open> open;
        for (size_t i = first.size(); i-- > 0;) {
            open.push_back({first[i], 0, 0});
        }
        while (!open.empty()) {
            const Open at = open.back();
            open.pop_back();
            add(at);
            const std::vector<int>& next = below[size_t(at.step)];
            const size_t indentation = at.indentation + (next.size() > 1 || at.depth == 0 ? 2 : 0);
            for (size_t i = next.size(); i-- > 0;) {
                open.push_back({next[i], indentation, at.depth + 1});
            }
        }
    }

    void add(const Open& at) {
        const HeapPathStep& step = steps[size_t(at.step)];
        std::string name, root;
        if (step.root != nullptr) {
            const std::string place = heapRootPlace(model, *step.root);
            root = heapRootName(step.root->kind) + (place.empty() ? "" : " " + place);
        } else {
            name = model.storage->getArrayLength(step.from) >= 0
                       ? "[]"
                       : nameOfReference(model, step.from, step.row);
        }
        const std::string label =
            step.objects == 1 ? heapLabel(model, step.row) : printable(model.classNameOf(step.row));
        table.add({step.count, step.shallow, step.objects,
                   std::string(at.indentation, ' ') +
                       (step.root != nullptr ? root + ": " : printable(name) + " -> ") + label +
                       (step.isChain ? ", one behind another" : ""),
                   at.depth, step.root != nullptr ? HeapTable::Cell() : HeapTable::Cell(name),
                   model.classNameOf(step.row), heapId(model, step.row),
                   step.root != nullptr ? HeapTable::Cell(root) : HeapTable::Cell()});
    }

    const HeapModel& model;
    const std::vector<HeapPathStep>& steps;
    std::vector<std::vector<int>> below; // of those shown, by step
    HeapTable table;
};

} // namespace

int reportHeapPaths(Console& console, const Arguments& arguments) {
    const auto& patterns = heapArguments(arguments, 1, 1, "a pattern of class names");
    const unsigned kinds = arguments.has("--exclude")
                               ? heapReferenceKinds(arguments.text("--exclude"))
                               : unsigned(HEAP_ALL_KINDS);
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    const HeapPathTree tree(session, classesNamed(session, patterns[0]),
                            HeapReferenceKinds(model, kinds));
    const Picture picture(session, tree, heapTop(arguments, ShownSteps));
    HeapDocument document(console, arguments, session, "paths");
    document.field("total", tree.total());
    document.field("reached", tree.reached());
    document.field("count", tree.merged());
    document.line(formatCount(tree.total()) + " objects: paths lead to " +
                  formatCount(tree.merged()) + ", only references left out lead to " +
                  formatCount(tree.reached() - tree.merged()) + ", nothing to " +
                  formatCount(tree.total() - tree.reached()));
    document.table("paths", picture.drawn());
    document.end();
    return tree.merged() == 0 ? int(ExitCode::Refused) : 0;
}

} // namespace vdk
