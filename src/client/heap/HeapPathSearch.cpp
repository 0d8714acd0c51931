#include "client/heap/HeapPathSearch.h"

#include "client/console/Text.h"
#include "client/heap/HeapReport.h"

namespace vdk {

std::string nameOfReference(const HeapModel& model, int from, int to) {
    BigIntArrayIterator64 list = model.storage->getReferences().initReferenceIterator(from);
    for (int position = 0; list.hasNext(); position++) {
        if (list.next() == to) {
            return model.referenceName(from, position);
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

// Heap dumps of the JVM never have names of local variables.
std::string nameNote(const HeapModel& model, const HeapRoot& root) {
    const std::string name = heapRootVariable(model, root);
    if (!name.empty()) {
        return " " + name + " of";
    }
    const bool isMissing =
        root.kind == HEAP_ROOT_STACK_LOCAL && model.format == HeapModel::Format::Snapshot;
    return isMissing ? " (no name: vdk run --locals) of" : "";
}

void printPath(Console& console, const HeapModel& model, const std::vector<int>& path,
               const std::string& indentation) {
    for (const HeapRoot* root : rootsOf(model, path[0])) {
        const std::string place = heapRootPlace(model, *root);
        console.out << indentation << "root: " << heapRootName(root->kind) << nameNote(model, *root)
                    << (place.empty() ? "" : " ") << place << "\n";
    }
    console.out << indentation << heapLabel(model, path[0]) << "\n";
    for (size_t i = 1; i < path.size(); i++) {
        console.out << indentation << "  "
                    << printable(nameOfReference(model, path[i - 1], path[i])) << " -> "
                    << heapLabel(model, path[i]) << "\n";
    }
}

void writePath(JsonWriter& json, const HeapSession& session, const std::vector<int>& path) {
    const HeapModel& model = session.model();
    json.key("roots").beginArray();
    for (const HeapRoot* root :
         path.empty() ? std::vector<const HeapRoot*>() : rootsOf(model, path[0])) {
        json.beginObject()
            .field("kind", heapRootName(root->kind))
            .field("place", heapRootPlace(model, *root));
        const std::string variable = heapRootVariable(model, *root);
        if (!variable.empty()) {
            json.field("variable", variable);
        }
        json.endObject();
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
    json.endArray();
}

} // namespace vdk
