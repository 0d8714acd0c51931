#pragma once

#include "core/ground/ZLock.h"
#include "db/DB.h"

class ThreadInfo;

// ObjectEnumerator numbers the objects whose allocation was recorded and that are still alive: the
// low word of such an object's tag in ourJVMTI is its row of `allocator`. Rows are born when an
// object is recorded and end with the object, long after recording was stopped if need be.
//
// Its own lock guards the table, so that the end of an object never waits for ourLock: the JVM may
// tell of it from within a walk over the heap. Lock order: ourLock first. Nothing is asked of the
// JVM while it is held.
class ObjectEnumerator : public ZLock {
public:
    ObjectEnumerator() : ZLock("ObjectEnumeratorLock") {}

    // A row for an object that the thread allocated in the frame; gives its tag.
    int store_allocation_info(const ThreadInfo* thread, int frame);
    // Stores the index of an object in a heap snapshot. The tag is 1 or more.
    void setObjectIndex(int tag, int objectIndex);
    // The record of a tag, made if absent. The tag is 1 or more; the record stays until the object
    // ends, and its fields but objectIndex do not change while the application is suspended.
    AllocatorRecord* getAllocator(int tag);
    // The object has ended. The tag is 1 or more.
    void return_tag_to_pool(int tag);
    // All rows forget where their objects come from. Tags of live objects stay valid.
    void clearAllocators();
    // Objects that were recorded and live.
    int countObjects();

private:
    int liveObjects = 0;
};

extern ObjectEnumerator& ourObjectEnumerator;
