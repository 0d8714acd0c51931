#include "profiling/memory/ObjectEnumerator.h"

#include "profiling/threads/ThreadInfo.h"

// Never destroyed: the JVM tells of ended objects to the very end of the process.
ObjectEnumerator& ourObjectEnumerator = *new ObjectEnumerator();

namespace {

// Changes under ourLock, which is not held here; a value that is one behind does no harm, for rows
// of allocator are not fetched by stamps.
int currentStamp() {
    return __atomic_load_n(&ourDB->currentStamp, __ATOMIC_RELAXED);
}

} // namespace

int ObjectEnumerator::store_allocation_info(const ThreadInfo* thread, int frame, long objects,
                                            long bytes) {
    LockHolder lock(*this);
    const int tag = ourDB->allocatorTable->nextIndex();
    *worths.getPtr(tag, true) = {static_cast<int>(objects), static_cast<int>(bytes),
                                 static_cast<int>(bytes >> 32)};
    AllocatorRecord* row = ourDB->allocatorTable->getRecord(tag, true);
    row->trn = thread->trn;
    row->frame = frame;
    row->objectIndex = 0;
    row->stamp = currentStamp();
    liveObjects++;
    return tag;
}

void ObjectEnumerator::setObjectIndex(int tag, int objectIndex) {
    AllocatorRecord* row = getAllocator(tag);
    LockHolder lock(*this);
    row->objectIndex = objectIndex;
    row->stamp = currentStamp();
}

AllocatorRecord* ObjectEnumerator::getAllocator(int tag) {
    Logger::assertTrue(tag >= 1, VDK_HERE);
    LockHolder lock(*this);
    return ourDB->allocatorTable->getRecord(tag, true);
}

void ObjectEnumerator::return_tag_to_pool(int tag) {
    Logger::assertTrue(tag >= 1, VDK_HERE);
    LockHolder lock(*this);
    AllocatorRecord* row = ourDB->allocatorTable->getRecord(tag, false);
    if (row == nullptr || row->stamp < 0) {
        // Returned before: twice in the pool it would be given to two objects.
        return;
    }
    row->stamp = -currentStamp();
    ourDB->allocatorTable->releaseIndex(tag);
    liveObjects--;
}

void ObjectEnumerator::clearAllocators() {
    LockHolder lock(*this);
    ourDB->allocatorTable->eachRecord([](int, AllocatorRecord& row) {
        row.trn = 0;
        row.frame = 0;
    });
}

void ObjectEnumerator::releaseAll() {
    LockHolder lock(*this);
    ourDB->allocatorTable->eachRecord([this](int tag, AllocatorRecord& row) {
        if (row.stamp > 0) {
            row.stamp = -currentStamp();
            ourDB->allocatorTable->releaseIndex(tag);
            liveObjects--;
        }
    });
}

int ObjectEnumerator::countObjects() {
    LockHolder lock(*this);
    return liveObjects;
}
