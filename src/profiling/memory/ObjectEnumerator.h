#pragma once

#include "core/ground/ZLock.h"
#include "db/DB.h"
#include "db/ZIntChunkMap.h"

class ThreadInfo;

// What a recorded object added to its row of `allocinfo`: itself or, sampled, what it stands for.
struct AllocationWorth {
    int objects;
    int bytesLow, bytesHigh; // not one long, which would take 16 bytes an object in all

    long bytes() const {
        return static_cast<long>(static_cast<unsigned long>(static_cast<unsigned>(bytesHigh))
                                     << 32 |
                                 static_cast<unsigned>(bytesLow));
    }
};

// ObjectEnumerator numbers the objects whose allocation was recorded and that are still alive: the
// low word of such an object's tag in ourJVMTI is its row of `allocator`. Rows are born when an
// object is recorded and end with the object, long after recording was stopped if need be.
//
// Its own lock guards the table, so that the end of an object never waits for ourLock: the JVM may
// tell of it from within a walk over the heap. Lock order: ourLock first. Nothing is asked of the
// JVM while it is held.
class ObjectEnumerator : public ZLock {
public:
    ObjectEnumerator() : ZLock("ObjectEnumeratorLock"), worths(1024, AllocationWorth{0, 0, 0}) {}

    // A row for an object that the thread allocated in the frame, with what it counts for; gives
    // its tag.
    int store_allocation_info(const ThreadInfo* thread, int frame, long objects, long bytes);
    // Stores the index of an object in a heap snapshot. The tag is 1 or more.
    void setObjectIndex(int tag, int objectIndex);
    // The record of a tag, made if absent. The tag is 1 or more; the record stays until the object
    // ends, and its fields but objectIndex do not change while the application is suspended.
    AllocatorRecord* getAllocator(int tag);
    // The object has ended. The tag is 1 or more.
    void return_tag_to_pool(int tag);
    // All rows forget where their objects come from. Tags of live objects stay valid.
    void clearAllocators();
    // No object has a tag any more.
    void releaseAll();
    // Objects that were recorded and live.
    int countObjects();
    // Calls visitor(record, worth) for each of them. The lock is held meanwhile.
    template <typename Visitor>
    void eachLive(Visitor visitor) {
        LockHolder lock(*this);
        ourDB->allocatorTable->eachRecord([&](int tag, const AllocatorRecord& row) {
            const AllocationWorth* worth = row.stamp > 0 ? worths.getPtr(tag, false) : nullptr;
            if (worth != nullptr) {
                visitor(row, *worth);
            }
        });
    }

private:
    ZIntChunkMap<AllocationWorth> worths; // by tag; of ended objects too
    int liveObjects = 0;
};

extern ObjectEnumerator& ourObjectEnumerator;
