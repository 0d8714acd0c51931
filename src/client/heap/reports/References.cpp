// The objects of java.lang.ref: what they refer to, what nothing else holds, and what waits for its
// finalizer.
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapFields.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/reports/OwnerWalk.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

const size_t ShownGroups = 30;
const int Cleared = -2; // stands for the class of a referent

struct ReferenceGroup {
    int type;         // class of the references
    int referentType; // -1 for one without a class, or Cleared
    int64_t count = 0;
    int64_t queued = 0;
    int64_t alone = 0; // referents that nothing stronger leads to
    int64_t bytes = 0; // that would go with the references of this group
};

// The queue that references which stand in one are given instead of their own; 0 if not known.
int markOfQueued(const HeapModel& model) {
    for (const HeapClass& type : model.classes) {
        for (size_t i = 0; type.name == "java.lang.ref.ReferenceQueue" &&
                           i < heapStaticFieldCount(model, type.row);
             i++) {
            const HeapNamedValue field = heapStaticField(model, type.row, i);
            if (field.name == "ENQUEUED") {
                return field.value.row;
            }
        }
    }
    return 0;
}

class Finder {
public:
    explicit Finder(const HeapSession& session)
        : model(session.model()), kinds(model), walk(session, &kinds), queue(model, "queue"),
          queuedMark(markOfQueued(model)) {
        for (const HeapRoot& root : model.roots) {
            walk.reach(root.row, OwnerWalk::Shared);
        }
        isStrong.resize(size_t(model.rowCount()) + 1);
        for (int row = 1; row <= model.rowCount(); row++) {
            isStrong[size_t(row)] = walk.ownerOf(row) != OwnerWalk::Nobody;
        }
        for (int row = 1; row <= model.lastRowWithId; row++) {
            if (session.isReached(row) && kinds.kindOf(row) != HEAP_STRONG) {
                add(row);
            }
        }
        walk.eachOwned([&](int owner, int64_t size) { groups[size_t(owner) - 1].bytes += size; });
        std::stable_sort(groups.begin(), groups.end(), [](const auto& a, const auto& b) {
            return a.bytes != b.bytes ? a.bytes > b.bytes : a.count > b.count;
        });
    }

    HeapTable table(size_t top) const {
        HeapTable table({{"references", "count", HeapTable::Kind::Count},
                         {"queued", "queued", HeapTable::Kind::Count},
                         {"alone", "alone", HeapTable::Kind::Count},
                         {"retained", "retained", HeapTable::Kind::Bytes},
                         {"kind", "kind"},
                         {"class", "class"},
                         {"to", ""},
                         {"", "referent"}});
        top = std::min(top, groups.size());
        for (size_t i = 0; i < top; i++) {
            const ReferenceGroup& group = groups[i];
            const bool isCleared = group.referentType == Cleared;
            const std::string referent =
                group.referentType < 0 ? "?" : model.classes[size_t(group.referentType)].name;
            table.add({group.count, group.queued, group.alone, group.bytes,
                       heapReferenceKindName(kinds.kindOfClass(group.type)),
                       model.classes[size_t(group.type)].name, isCleared ? "(cleared)" : referent,
                       isCleared ? HeapTable::Cell() : HeapTable::Cell(referent)});
        }
        table.setOmitted(groups.size() - top);
        return table;
    }

    // Sums over the groups of a kind.
    ReferenceGroup sumOf(unsigned kind) const {
        ReferenceGroup sum = {-1, -1};
        for (const ReferenceGroup& group : groups) {
            if (kinds.kindOfClass(group.type) == kind) {
                sum.count += group.count;
                sum.queued += group.queued;
                sum.alone += group.alone;
                sum.bytes += group.bytes;
            }
        }
        return sum;
    }

private:
    void add(int row) {
        const int referent = kinds.referentOf(row);
        const std::pair<int, int> key = {model.classOf(row),
                                         referent == 0 ? Cleared : model.classOf(referent)};
        const auto [known, isNew] = indexOf.try_emplace(key, groups.size());
        if (isNew) {
            groups.push_back({key.first, key.second});
        }
        ReferenceGroup& group = groups[known->second];
        group.count++;
        group.queued += queuedMark != 0 && queue.reference(row) == queuedMark;
        if (referent != 0 && !isStrong[size_t(referent)]) {
            group.alone++;
            walk.reach(referent, int(known->second) + 1);
        }
    }
    const HeapModel& model;
    const HeapReferenceKinds kinds;
    OwnerWalk walk;
    const HeapFieldReader queue;
    const int queuedMark;
    std::vector<bool> isStrong;                    // what roots reach without such references
    std::map<std::pair<int, int>, size_t> indexOf; // in `groups`
    std::vector<ReferenceGroup> groups;
};

} // namespace

int reportHeapReferenceObjects(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const Finder finder(session);
    HeapDocument document(console, arguments, session, "references");
    for (const unsigned kind : {HEAP_SOFT, HEAP_WEAK, HEAP_PHANTOM, HEAP_FINAL}) {
        const ReferenceGroup sum = finder.sumOf(kind);
        document.field(heapReferenceKindName(kind), sum.count);
        document.line(formatCount(sum.count) + " " + heapReferenceKindName(kind) +
                      (sum.count == 1 ? " reference, " : " references, ") + formatCount(sum.alone) +
                      " to what nothing stronger holds, " + formatBytes(sum.bytes));
    }
    const ReferenceGroup finalizers = finder.sumOf(HEAP_FINAL);
    document.field("finalizersQueued", finalizers.queued);
    document.line(formatCount(finalizers.count) + " objects have a finalizer that has not run, " +
                  formatCount(finalizers.queued) + " of them wait in its queue");
    document.table("references", finder.table(heapTop(arguments, ShownGroups)));
    document.end();
    return 0;
}

} // namespace vdk
