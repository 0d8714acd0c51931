#include "client/heap/HeapReferenceKinds.h"

#include "client/console/Console.h"
#include "client/console/Text.h"

namespace vdk {

namespace {

const struct {
    unsigned kind;
    const char* name;
    const char* className;
} Kinds[] = {{HEAP_SOFT, "soft", "java.lang.ref.SoftReference"},
             {HEAP_WEAK, "weak", "java.lang.ref.WeakReference"},
             {HEAP_PHANTOM, "phantom", "java.lang.ref.PhantomReference"},
             {HEAP_FINAL, "final", "java.lang.ref.FinalReference"}};

// A file may claim a class to be above itself.
const int MostSuperclasses = 100;

unsigned kindOfName(const HeapModel& model, int type) {
    for (int depth = 0; type >= 0 && depth < MostSuperclasses; depth++) {
        const HeapClass& each = model.classes[size_t(type)];
        for (const auto& kind : Kinds) {
            if (each.name == kind.className) {
                return kind.kind;
            }
        }
        type = each.superClass;
    }
    return HEAP_STRONG;
}

} // namespace

const char* heapReferenceKindName(unsigned kind) {
    for (const auto& each : Kinds) {
        if (each.kind == kind) {
            return each.name;
        }
    }
    return "strong";
}

unsigned heapReferenceKinds(const std::string& list) {
    unsigned kinds = 0;
    for (size_t at = 0; at <= list.size() && list != "none";) {
        const size_t end = std::min(list.find(',', at), list.size());
        const std::string word = list.substr(at, end - at);
        unsigned found = 0;
        for (const auto& each : Kinds) {
            found |= word == each.name ? each.kind : 0;
        }
        if (found == 0) {
            throw ClientError(ExitCode::Usage, "usage",
                              "\"" + printable(word, 100) + "\" is no strength of references",
                              "there are soft, weak, phantom and final, with commas between, and "
                              "none");
        }
        kinds |= found;
        at = end + 1;
    }
    return kinds;
}

HeapReferenceKinds::HeapReferenceKinds(const HeapModel& model, unsigned passed)
    : model(model), passed(passed), classes(model.classes.size()) {
    for (size_t i = 0; i < classes.size(); i++) {
        const unsigned kind = kindOfName(model, int(i));
        const HeapFieldPlace place =
            kind == HEAP_STRONG ? HeapFieldPlace() : model.fieldPlace(int(i), "referent");
        if (place.owner >= 0 && place.type == 'L') {
            classes[i] = {kind, int(place.at) + 1}; // behind the reference to the class
            hasAny = true;
        }
    }
}

int HeapReferenceKinds::referentOf(int row) const {
    if (kindOf(row) == HEAP_STRONG) {
        return 0;
    }
    const int place = classes[size_t(model.classOf(row))].place;
    return place < model.storage->getRefCount(row) ? model.storage->getRef(row, place) : 0;
}

int HeapReferenceKinds::passedPlace(int row) const {
    return hasAny && (kindOf(row) & passed) != 0 ? classes[size_t(model.classOf(row))].place : -1;
}

bool HeapReferenceKinds::holdsWeakly(int from, int to) const {
    const int place = passedPlace(from);
    if (place < 0) {
        return false;
    }
    for (int i = 0; i < model.storage->getRefCount(from); i++) {
        if (i != place && model.storage->getRef(from, i) == to) {
            return false;
        }
    }
    return true;
}

} // namespace vdk
