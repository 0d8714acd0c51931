#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace vdk {

namespace {

const size_t ShownArrays = 40;

// Why an array is worth a look.
enum class Waste { None, Empty, AllNull, AllZero, Sparse };

const char* wasteName(Waste waste) {
    switch (waste) {
    case Waste::Empty:
        return "length 0";
    case Waste::AllNull:
        return "all null";
    case Waste::AllZero:
        return "all zero";
    case Waste::Sparse:
        return "mostly null";
    default:
        return "";
    }
}

// Arrays of one kind in one field of one class.
struct ArrayGroup {
    int64_t count = 0;
    int64_t bytes = 0;
    int64_t used = 0;     // elements that are not null
    int64_t elements = 0; // of reference arrays
    int example = 0;      // row
};

// Waste, class of the array, class of its first referrer (-1 for none), position there (-1 for an
// element of an array).
using GroupKey = std::tuple<Waste, int, int, int>;

class ArrayFinder {
public:
    explicit ArrayFinder(const HeapSession& session)
        : model(session.model()), storage(session.storage()), referrers(session.referrers()) {}

    std::map<GroupKey, ArrayGroup> run() {
        std::map<GroupKey, ArrayGroup> groups;
        for (int row = 1; row <= model.rowCount(); row++) {
            if (storage.getArrayLength(row) < 0 || model.isClass(row)) {
                continue;
            }
            int64_t used = 0;
            Waste waste = judge(row, used);
            if (waste == Waste::None) {
                continue;
            }
            ArrayGroup& group = groups[keyOf(row, waste)];
            group.count++;
            group.bytes += std::max<int64_t>(model.sizeOf(row), 0);
            group.used += used;
            group.elements += storage.getArrayLength(row);
            if (group.example == 0) {
                group.example = row;
            }
        }
        return groups;
    }

private:
    Waste judge(int row, int64_t& used) const {
        int length = storage.getArrayLength(row);
        if (length == 0) {
            return Waste::Empty;
        }
        int type = model.classOf(row);
        if (type >= 0 && model.classes[size_t(type)].elementType != 'L') {
            return isAllZero(row) ? Waste::AllZero : Waste::None;
        }
        BigIntArrayIterator64 list = storage.getReferences().initReferenceIterator(row);
        for (int i = 0; list.hasNext(); i++) {
            used += list.next() != 0 && i > 0;
        }
        if (used == 0) {
            return Waste::AllNull;
        }
        return used * 4 <= length && length >= 8 ? Waste::Sparse : Waste::None;
    }

    bool isAllZero(int row) const {
        const uint8_t* bytes = nullptr;
        uint32_t count = 0;
        char type = 0;
        if (!model.primitiveArray(row, bytes, count, type)) {
            return false;
        }
        uint64_t length = uint64_t(count) * (type == 'J' || type == 'D'   ? 8
                                             : type == 'I' || type == 'F' ? 4
                                             : type == 'C' || type == 'S' ? 2
                                                                          : 1);
        return std::all_of(bytes, bytes + length, [](uint8_t b) { return b == 0; });
    }

    GroupKey keyOf(int row, Waste waste) const {
        if (referrers.getCount(row) == 0) {
            return {waste, model.classOf(row), -1, 0};
        }
        int owner = referrers.getRef(row, 0);
        if (storage.getArrayLength(owner) >= 0) {
            return {waste, model.classOf(row), model.classOf(owner), -1};
        }
        int position = 0;
        while (position < storage.getRefCount(owner) && storage.getRef(owner, position) != row) {
            position++;
        }
        // The statics of each class are positions of their own; one row stands for all.
        if (model.isClass(owner)) {
            return {waste, model.classOf(row), model.classClass, 0};
        }
        return {waste, model.classOf(row), model.classOf(owner), position};
    }

    const HeapModel& model;
    const ObjectStorage& storage;
    const RefTable& referrers;
};

std::string ownerName(const HeapModel& model, const RefTable& referrers, const GroupKey& key,
                      int example) {
    int type = std::get<2>(key);
    if (type < 0) {
        return "(no referrer)";
    }
    const std::string& name = model.classes[size_t(type)].name;
    int position = std::get<3>(key);
    if (position < 0) {
        return "element of " + name;
    }
    int owner = referrers.getRef(example, 0);
    if (model.isClass(owner)) {
        return "static fields";
    }
    return name + "." + model.referenceName(owner, position);
}

} // namespace

int reportHeapArrays(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    std::map<GroupKey, ArrayGroup> groups = ArrayFinder(session).run();
    std::vector<std::pair<GroupKey, ArrayGroup>> rows(groups.begin(), groups.end());
    std::stable_sort(rows.begin(), rows.end(),
                     [](const auto& a, const auto& b) { return a.second.bytes > b.second.bytes; });
    const size_t top = std::min(rows.size(), heapTop(arguments, ShownArrays));
    HeapTable table({{"bytes", "", HeapTable::Kind::Bytes},
                     {"arrays", "", HeapTable::Kind::Count},
                     {"kind", "kind"},
                     {"class", "class"},
                     {"held by", "owner"},
                     {"", "count"},
                     {"", "bytes"},
                     {"", "elements"},
                     {"", "used"},
                     {"", "example"}});
    for (size_t i = 0; i < top; i++) {
        const auto& [key, group] = rows[i];
        const int type = std::get<1>(key);
        table.add({group.bytes, group.count, wasteName(std::get<0>(key)),
                   type < 0 ? std::string("?") : model.classes[size_t(type)].name,
                   ownerName(model, session.referrers(), key, group.example), group.count,
                   group.bytes, group.elements, group.used, heapId(model, group.example)});
    }
    table.setOmitted(rows.size() - top);
    HeapDocument document(console, arguments, session, "arrays");
    document.table("groups", table);
    document.end();
    return 0;
}

} // namespace vdk
