#pragma once

#include <climits>
#include <jni.h>

// The tag of an object in ourJVMTI during a heap walk. Its high word is the object's generation.
// Its low word, signed: a positive one is the row of `allocator` of an object whose allocation was
// recorded, and that row holds the object's snapshot index; a negative one is minus the snapshot
// index; 0 is no tag.
//
// A low word that is negative may stem from an earlier snapshot: an index is to be trusted only for
// objects that the walk at hand has met.
namespace ObjectTags {

inline int lowWord(jlong tag) {
    return static_cast<int>(static_cast<unsigned long>(tag));
}
inline int generationOf(jlong tag) {
    return static_cast<int>(static_cast<unsigned long>(tag) >> 32);
}

// Snapshot index by the low word; 0 for none.
int getRecordedObjectIndex(int lowTag);
inline int getObjectIndex(int lowTag) {
    if (lowTag > 0) {
        return getRecordedObjectIndex(lowTag);
    }
    return lowTag == INT_MIN ? 0 : -lowTag;
}
inline int indexOf(jlong tag) {
    return getObjectIndex(lowWord(tag));
}

// The tag with the next index in it, and with the current generation if it had none. The counter
// runs down from -1.
jlong updateTag(jlong tag, int* counter);

} // namespace ObjectTags
