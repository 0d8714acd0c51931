#include "client/heap/reports/CollectionSizes.h"

#include <algorithm>

namespace vdk {

namespace {

enum class Shape { List, Ring, Hash, Concurrent, Identity, Linear, Set };

struct Known {
    const char* className;
    Shape shape;
    const char* size;
    const char* array;
};

const Known KnownClasses[] = {
    {"java.util.ArrayList", Shape::List, "size", "elementData"},
    {"java.util.Vector", Shape::List, "elementCount", "elementData"},
    {"java.util.PriorityQueue", Shape::List, "size", "queue"},
    {"java.util.concurrent.PriorityBlockingQueue", Shape::List, "size", "queue"},
    {"java.util.concurrent.ArrayBlockingQueue", Shape::List, "count", "items"},
    {"java.util.ArrayDeque", Shape::Ring, "", "elements"},
    {"java.util.HashMap", Shape::Hash, "size", "table"},
    {"java.util.WeakHashMap", Shape::Hash, "size", "table"},
    {"java.util.Hashtable", Shape::Linear, "count", "table"},
    {"java.util.IdentityHashMap", Shape::Identity, "size", "table"},
    {"java.util.concurrent.ConcurrentHashMap", Shape::Concurrent, "baseCount", "table"},
    {"java.util.HashSet", Shape::Set, "", ""},
};

// Slots that a table of the shape needs for so many elements at the load factor of the JDK.
int64_t slotsNeeded(Shape shape, int64_t size) {
    if (size == 0) {
        return 0;
    }
    if (shape == Shape::List) {
        return size;
    }
    if (shape == Shape::Ring) {
        return size + 1;
    }
    if (shape == Shape::Linear) {
        return size * 4 / 3 + 1;
    }
    const bool isIdentity = shape == Shape::Identity;
    int64_t slots = 1;
    while (isIdentity ? slots * 2 < size * 3 : slots * 3 < size * 4) {
        slots *= 2;
    }
    return isIdentity ? slots * 2 : slots; // keys and values
}

} // namespace

struct CollectionSizes::Kind {
    Kind(const HeapModel& model, const Known& known)
        : shape(known.shape), size(model, known.size), array(model, known.array) {}
    Shape shape;
    HeapFieldReader size, array;
};

CollectionSizes::CollectionSizes(const HeapModel& model)
    : model(model), kindOfClass(model.classes.size(), nullptr), setMap(model, "map"),
      head(model, "head"), tail(model, "tail"), counterCells(model, "counterCells"),
      counterValue(model, "value"), isInSet(size_t(model.rowCount()) + 1, false) {
    for (const Known& known : KnownClasses) {
        kinds.push_back(std::make_unique<Kind>(model, known));
        for (size_t i = 0; i < model.classes.size(); i++) {
            if (model.classes[i].name != known.className) {
                continue;
            }
            for (size_t other = 0; other < model.classes.size(); other++) {
                if (model.isSubclass(int(other), int(i))) {
                    kindOfClass[other] = kinds.back().get();
                }
            }
        }
    }
    for (int row = 1; row <= model.lastRowWithId; row++) {
        const Kind* kind = kindOf(row);
        if (kind && kind->shape == Shape::Set) {
            isInSet[size_t(setMap.reference(row))] = true;
        }
    }
}

CollectionSizes::~CollectionSizes() = default;

const CollectionSizes::Kind* CollectionSizes::kindOf(int row) const {
    const int type = model.isClass(row) ? -1 : model.classOf(row);
    return type < 0 ? nullptr : kindOfClass[size_t(type)];
}

int64_t CollectionSizes::sizeOf(const Kind& kind, int row, int64_t slots) const {
    if (kind.shape == Shape::Ring) {
        const int64_t distance = tail.integer(row, 0) - head.integer(row, 0);
        return slots == 0 ? 0 : distance < 0 ? distance + slots : distance;
    }
    int64_t size = kind.size.integer(row, 0);
    const int cells = kind.shape == Shape::Concurrent ? counterCells.reference(row) : 0;
    for (int i = 1; cells != 0 && i < model.storage->getRefCount(cells); i++) {
        size += counterValue.integer(model.storage->getRef(cells, i), 0);
    }
    return size;
}

int64_t CollectionSizes::slotBytes(int array, int64_t slots) const {
    return model.sizeOf(array) >= 8 * slots ? 8 : 4;
}

bool CollectionSizes::read(int row, CollectionFill& fill) const {
    const Kind* kind = kindOf(row);
    if (!kind || isInSet[size_t(row)]) {
        return false;
    }
    if (kind->shape == Shape::Set) {
        row = setMap.reference(row);
        kind = row == 0 ? nullptr : kindOf(row);
        if (!kind || kind->shape == Shape::Set) {
            return false;
        }
    }
    fill = CollectionFill();
    fill.array = kind->array.reference(row);
    const int64_t slots =
        fill.array == 0 ? 0 : std::max(model.storage->getArrayLength(fill.array), 0);
    const int64_t size = sizeOf(*kind, row, slots);
    fill.size = std::clamp<int64_t>(size, 0, INT32_MAX);
    fill.capacity = kind->shape == Shape::Identity ? slots / 2 : slots;
    if (slots > 0 && fill.size == 0) {
        fill.wasted = std::max<int64_t>(model.sizeOf(fill.array), 0);
    } else {
        const int64_t spare = slots - slotsNeeded(kind->shape, fill.size);
        fill.wasted = spare > 0 ? spare * slotBytes(fill.array, slots) : 0;
    }
    return true;
}

} // namespace vdk
