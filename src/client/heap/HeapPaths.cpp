#include "client/console/Text.h"
#include "client/heap/HeapClasses.h"
#include "client/heap/HeapReport.h"
#include "offline/Reachability.h"

#include <algorithm>
#include <memory>
#include <set>

namespace vdk {

namespace {

const size_t ShownClasses = 30;

// Rows whose field "referent" does not hold its object: instances of the classes below
// java.lang.ref.Reference that the collector clears.
class WeakReferences {
public:
    explicit WeakReferences(const HeapModel& model) : model(model) {
        for (size_t i = 0; i < model.classes.size(); i++) {
            if (isWeak(int(i))) {
                weak.insert(int(i));
            }
        }
    }
    // True if all that `from` has of `to` is the referent.
    bool holdsWeakly(int from, int to) const {
        if (model.isClass(from) || weak.count(model.classOf(from)) == 0) {
            return false;
        }
        for (int i = 0; i < model.storage->getRefCount(from); i++) {
            if (model.storage->getRef(from, i) == to &&
                model.referenceName(from, i) != "referent") {
                return false;
            }
        }
        return true;
    }

private:
    bool isWeak(int type) const {
        for (int depth = 0; type >= 0 && depth < 100; depth++) {
            const HeapClass& c = model.classes[size_t(type)];
            if (c.name == "java.lang.ref.WeakReference" ||
                c.name == "java.lang.ref.SoftReference" ||
                c.name == "java.lang.ref.PhantomReference" ||
                c.name == "java.lang.ref.FinalReference") {
                return true;
            }
            type = c.superClass;
        }
        return false;
    }

    const HeapModel& model;
    std::set<int> weak;
};

// Breadth-first search from the object against the references up to the first root: the rows from
// the root to the object, empty if no root reaches it.
std::vector<int> shortestPath(const HeapSession& session, int target, bool alsoWeak) {
    const RefTable& referrers = *session.storage().getBackwardReferences();
    const std::vector<int>& roots = session.rootRows();
    WeakReferences weak(session.model());
    // The next row on the way to the target, plus 1; 0 for a row not met.
    BigIntArray64 toward("path");
    BigIntArray64 queue("path queue");
    int head = 0, tail = 0;
    queue.set(tail++, target);
    toward.set(target, target + 1);
    while (head < tail) {
        int row = queue.get(head++);
        if (std::binary_search(roots.begin(), roots.end(), row)) {
            std::vector<int> path(1, row);
            while (path.back() != target) {
                path.push_back(toward.get(path.back()) - 1);
            }
            return path;
        }
        BigIntArrayIterator64 list = referrers.initReferenceIterator(row);
        while (list.hasNext()) {
            int source = list.next();
            if (toward.get(source) != 0 || (!alsoWeak && weak.holdsWeakly(source, row))) {
                continue;
            }
            toward.set(source, row + 1);
            queue.set(tail++, source);
        }
    }
    return {};
}

std::string nameOfReference(const HeapModel& model, int from, int to) {
    for (int i = 0; i < model.storage->getRefCount(from); i++) {
        if (model.storage->getRef(from, i) == to) {
            return model.referenceName(from, i);
        }
    }
    return "?";
}

std::vector<const HeapRoot*> rootsOf(const HeapModel& model, int row) {
    std::vector<const HeapRoot*> result;
    for (const HeapRoot& root : model.roots) {
        if (root.row == row) {
            result.push_back(&root);
        }
    }
    return result;
}

// Marks the rows of the group that the arguments name: objects by identifier, classes by pattern.
int64_t markGroup(const HeapSession& session, const std::vector<std::string>& names,
                  std::vector<int>& bits, std::vector<int>& rows) {
    std::set<int> classes;
    for (const std::string& name : names) {
        if (isdigit(static_cast<unsigned char>(name[0])) || startsWith(name, "@")) {
            rows.push_back(session.rowOf(name));
            continue;
        }
        std::vector<int> found = session.classesByPattern(name);
        if (found.empty()) {
            throw ClientError(ExitCode::Refused, "heap.noclass",
                              "the heap has no class " + printable(name, 200), HeapClassNameHint);
        }
        classes.insert(found.begin(), found.end());
    }
    if (!classes.empty()) {
        for (int row = 1; row <= session.model().rowCount(); row++) {
            if (!session.model().isClass(row) && classes.count(session.model().classOf(row)) != 0) {
                rows.push_back(row);
            }
        }
    }
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    for (int row : rows) {
        setMark(bits.data(), row);
    }
    return int64_t(rows.size());
}

} // namespace

int reportHeapPath(Console& console, const Arguments& arguments) {
    const auto& ids = heapArguments(arguments, 1, 1, "an object");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    int target = session.rowOf(ids[0]);
    std::vector<int> path = shortestPath(session, target, arguments.has("--weak"));
    std::vector<const HeapRoot*> roots =
        path.empty() ? std::vector<const HeapRoot*>() : rootsOf(model, path[0]);
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.path/1", session);
        json.key("roots").beginArray();
        for (const HeapRoot* root : roots) {
            json.beginObject()
                .field("kind", heapRootName(root->kind))
                .field("place", heapRootPlace(model, *root))
                .endObject();
        }
        json.endArray().key("path").beginArray();
        for (size_t i = 0; i < path.size(); i++) {
            json.beginObject();
            if (i > 0) {
                json.field("name", nameOfReference(model, path[i - 1], path[i]));
            }
            writeHeapObject(json, session, path[i]);
            json.endObject();
        }
        json.endArray().endObject();
    } else if (path.empty()) {
        console.out << "no root reaches " << heapLabel(model, target)
                    << (arguments.has("--weak") ? "" : " but through weak references, if at all")
                    << "\n";
    } else {
        for (const HeapRoot* root : roots) {
            std::string place = heapRootPlace(model, *root);
            console.out << "root: " << heapRootName(root->kind) << (place.empty() ? "" : " ")
                        << place << "\n";
        }
        console.out << heapLabel(model, path[0]) << "\n";
        for (size_t i = 1; i < path.size(); i++) {
            console.out << "  " << printable(nameOfReference(model, path[i - 1], path[i])) << " -> "
                        << heapLabel(model, path[i]) << "\n";
        }
    }
    return path.empty() ? int(ExitCode::Refused) : 0;
}

int reportHeapRetained(Console& console, const Arguments& arguments) {
    const auto& names = heapArguments(arguments, 1, SIZE_MAX, "classes or objects");
    HeapSession session(console, heapOptions(arguments), true);
    const size_t words = session.reachedBits().size();
    std::vector<int> group(words, 0);
    std::vector<int> result(words, 0);
    std::vector<int> groupRows;
    int64_t groupCount = markGroup(session, names, group, groupRows);
    const std::vector<int>& roots = session.rootRows();
    markAllButRetained(nullptr, session.storage(), group.data(), nullptr, 0, roots.data(),
                       int(roots.size()), session.reachedBits().data(), result.data());
    // What is left unmarked is reached through the group alone; the group itself, marked by hand,
    // belongs to it.
    std::vector<int> retained;
    int64_t bytes = 0;
    for (int row = 1; row <= session.model().rowCount(); row++) {
        bool own = isMarked(group.data(), row) && session.isReached(row);
        if (own || !isMarked(result.data(), row)) {
            retained.push_back(row);
            bytes += std::max<int64_t>(session.sizeOf(row), 0);
        }
    }
    std::vector<HeapClassSum> sums = sumRowsByClass(session, retained);
    std::sort(sums.begin(), sums.end(), [](const HeapClassSum& a, const HeapClassSum& b) {
        return a.shallow != b.shallow ? a.shallow > b.shallow : a.name < b.name;
    });
    size_t top = heapTop(arguments, console.json ? sums.size() : ShownClasses);
    sums.resize(std::min(sums.size(), top));
    if (console.json) {
        JsonWriter json(console.out, true);
        beginHeapDocument(json, "vdk.heap.retained/1", session);
        json.field("group", groupCount).field("count", int64_t(retained.size()));
        json.field("retained", bytes).key("classes").beginArray();
        for (const HeapClassSum& sum : sums) {
            json.beginObject()
                .field("class", sum.name)
                .field("count", sum.count)
                .field("shallow", sum.shallow)
                .endObject();
        }
        json.endArray().endObject();
        return 0;
    }
    console.out << formatCount(groupCount)
                << (groupCount == 1 ? " object retains " : " objects retain ") << formatBytes(bytes)
                << " in " << formatCount(int64_t(retained.size()))
                << (retained.size() == 1 ? " object\n" : " objects\n");
    TextTable table({{"objects", TextTable::Right}, {"shallow", TextTable::Right}, {"class"}});
    for (const HeapClassSum& sum : sums) {
        table.add({formatCount(sum.count), formatBytes(sum.shallow), printable(sum.name)});
    }
    table.print(console);
    return 0;
}

} // namespace vdk
