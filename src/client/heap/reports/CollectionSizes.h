// How full the collections of java.util are.
#pragma once

#include "client/heap/HeapFields.h"

#include <memory>
#include <string>
#include <vector>

namespace vdk {

struct CollectionFill {
    int64_t size = 0;     // elements
    int64_t capacity = 0; // slots
    int64_t wasted = 0;   // bytes that an array fitted to the size would not have
    int array = 0;        // row, 0 for none
};

// Knows ArrayList, Vector, PriorityQueue, ArrayBlockingQueue, ArrayDeque, HashMap, Hashtable,
// WeakHashMap, IdentityHashMap, ConcurrentHashMap and HashSet of JDK 6 to 25, and their subclasses.
class CollectionSizes {
public:
    explicit CollectionSizes(const HeapModel& model);
    ~CollectionSizes();

    // False for other objects, and for the map inside of a set.
    bool read(int row, CollectionFill& fill) const;

private:
    struct Kind;
    const Kind* kindOf(int row) const;
    int64_t sizeOf(const Kind& kind, int row, int64_t slots) const;
    int64_t slotBytes(int array, int64_t slots) const;

    const HeapModel& model;
    std::vector<std::unique_ptr<Kind>> kinds;
    std::vector<const Kind*> kindOfClass;
    HeapFieldReader setMap, head, tail, counterCells, counterValue;
    std::vector<bool> isInSet; // rows of maps
};

} // namespace vdk
