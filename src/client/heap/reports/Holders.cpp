// What keeps the objects of a class alive, one level up: the objects that dominate them, by class.
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapFields.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"

#include <algorithm>
#include <map>
#include <set>

namespace vdk {

namespace {

struct HolderSum {
    std::set<int> holders; // rows
    int64_t count = 0, shallow = 0, retained = 0;
    int biggest = 0;
    int64_t biggestBytes = -1;
};

// For each class the first of its name: loaders may define many.
std::vector<int> firstOfName(const HeapModel& model) {
    std::vector<int> first;
    std::map<std::string, int> known;
    for (size_t i = 0; i < model.classes.size(); i++) {
        first.push_back(known.try_emplace(model.classes[i].name, int(i)).first->second);
    }
    return first;
}

} // namespace

int reportHeapHolders(Console& console, const Arguments& arguments) {
    const auto& patterns = heapArguments(arguments, 1, 1, "a pattern of class names");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    const HeapClassSet classes = classesNamed(session, patterns[0]);
    std::vector<int> passed; // classes that hold for others
    for (const std::string& pattern : arguments.all("--skip")) {
        for (int type : session.classesByPattern(pattern)) {
            passed.push_back(type);
        }
    }
    const HeapClassSet skipped(model, passed);
    const std::vector<int> first = firstOfName(model);
    // By class of the holder: a class object by the class that it is.
    std::map<std::pair<bool, int>, HolderSum> sums;
    int64_t count = 0;
    for (int row = 1; row <= model.lastRowWithId; row++) {
        if (!classes.hasObject(row) || !session.isReached(row)) {
            continue;
        }
        count++;
        HeapSession::WayToRoots way(session);
        int holder = way.above(row);
        while (holder != 0 && skipped.hasObject(holder)) {
            holder = way.above(holder);
        }
        const bool isClass = holder != 0 && model.isClass(holder);
        const int type = holder == 0 ? -1
                         : isClass   ? model.classByRow(holder)
                                     : model.classOf(holder);
        HolderSum& sum = sums[{isClass, holder == 0 ? -2 : type < 0 ? -1 : first[size_t(type)]}];
        sum.holders.insert(holder);
        sum.count++;
        sum.shallow += std::max<int64_t>(session.sizeOf(row), 0);
        sum.retained += session.retainedOf(row);
        if (holder != 0 && session.retainedOf(holder) > sum.biggestBytes) {
            sum.biggest = holder;
            sum.biggestBytes = session.retainedOf(holder);
        }
    }
    using Entry = std::pair<std::pair<bool, int>, HolderSum>;
    std::vector<Entry> rows(sums.begin(), sums.end());
    std::stable_sort(rows.begin(), rows.end(), [](const Entry& a, const Entry& b) {
        return a.second.retained > b.second.retained;
    });
    const size_t top = std::min(rows.size(), heapTop(arguments, 30));
    HeapTable table({{"objects", "count", HeapTable::Kind::Count},
                     {"shallow", "shallow", HeapTable::Kind::Bytes},
                     {"retained", "retained", HeapTable::Kind::Bytes},
                     {"holders", "holders", HeapTable::Kind::Count},
                     {"held by", "holder"},
                     {"biggest", "biggest"}});
    for (size_t i = 0; i < top; i++) {
        const auto& [key, sum] = rows[i];
        const bool isNobody = key.second == -2;
        const std::string name = isNobody         ? "(roots, or several objects)"
                                 : key.second < 0 ? "?"
                                                  : model.classes[size_t(key.second)].name;
        table.add({sum.count, sum.shallow, sum.retained,
                   isNobody ? HeapTable::Cell() : HeapTable::Cell(sum.holders.size()),
                   (key.first ? "class " : "") + name,
                   isNobody ? HeapTable::Cell() : HeapTable::Cell(heapId(model, sum.biggest))});
    }
    table.setOmitted(rows.size() - top);
    HeapDocument document(console, arguments, session, "holders");
    document.field("count", count);
    document.table("holders", table);
    document.end();
    return 0;
}

} // namespace vdk
