// The objects of java.lang.ref: of which strength they are, and which field of theirs does not
// hold.
#pragma once

#include "heapfile/HeapModel.h"

#include <string>
#include <vector>

namespace vdk {

// Values are bits.
enum HeapReferenceKind : unsigned {
    HEAP_STRONG = 0,
    HEAP_SOFT = 1,
    HEAP_WEAK = 2,
    HEAP_PHANTOM = 4,
    HEAP_FINAL = 8, // of the JVM's own finalizers
    HEAP_ALL_KINDS = 15
};

// "soft", "weak", "phantom", "final"; "strong" for anything else.
const char* heapReferenceKindName(unsigned kind);
// Bits of a list "weak,soft"; "none" is 0. Throws ClientError (Usage).
unsigned heapReferenceKinds(const std::string& list);

class HeapReferenceKinds {
public:
    // `passed` are the kinds whose referents count as not held.
    explicit HeapReferenceKinds(const HeapModel& model, unsigned passed = HEAP_ALL_KINDS);

    unsigned kindOfClass(int classIndex) const {
        return classIndex < 0 ? HEAP_STRONG : classes[size_t(classIndex)].kind;
    }
    unsigned kindOf(int row) const {
        return model.isClass(row) ? unsigned(HEAP_STRONG) : kindOfClass(model.classOf(row));
    }
    // The referent of a reference of any kind, 0 if it has none.
    int referentOf(int row) const;
    // The place in the object's references that does not hold, -1 if all do.
    int passedPlace(int row) const;
    // True if all that `from` has of `to` is a reference that does not hold.
    bool holdsWeakly(int from, int to) const;

private:
    struct Class {
        unsigned kind = HEAP_STRONG;
        int place = -1; // of the referent
    };
    const HeapModel& model;
    const unsigned passed;
    std::vector<Class> classes;
    bool hasAny = false;
};

} // namespace vdk
