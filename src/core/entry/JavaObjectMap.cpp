#include "core/entry/JavaObjectMap.h"

#include "core/ground/Logger.h"
#include "core/ground/ZLock.h"
#include "core/ground/ZMap.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"

namespace {

typedef ZMap<int, int> IntMap;

const int INITIAL_CAPACITY = 16;

// Never destroyed: the JVM's service thread may report freed objects to the very end.
ZLock& ourJavaObjectMapLock = *new ZLock("ourJavaObjectMapLock");
// Held over the calls that tag an object, so that no two threads tag the same one. The ObjectFree
// handler, which may run on a thread that has suspended all others, never takes it.
ZLock& ourTaggingLock = *new ZLock("ourTaggingLock");
ZVector<IntMap*>& ourMaps = *new ZVector<IntMap*>();
int ourLastTag = 0;

int nextTag() {
    LockHolder lock(ourJavaObjectMapLock);
    return ++ourLastTag;
}

// The map of a handle, or null. Caller holds ourJavaObjectMapLock.
IntMap* find(long handle) {
    for (int i = 0; i < ourMaps.getSize(); i++) {
        if (reinterpret_cast<long>(ourMaps[i]) == handle) {
            return ourMaps[i];
        }
    }
    return nullptr;
}

// False when the JVM ends: probes may still run then, and nothing is remembered any more.
bool isTagDone(jvmtiError error) {
    if (error == JVMTI_ERROR_WRONG_PHASE) {
        return false;
    }
    CHECK_JVMTI(error);
    return true;
}

// 0 when the object has none.
int getTag(jobject object) {
    jlong tag = 0;
    return isTagDone(ourJVMTI9->GetTag(object, &tag)) ? static_cast<int>(tag) : 0;
}

// 0 when the JVM ends.
int getOrMakeTag(jobject object) {
    LockHolder lock(ourTaggingLock);
    const int known = getTag(object);
    if (known != 0) {
        return known;
    }
    const int tag = nextTag();
    jlong kept = 0;
    if (!isTagDone(ourJVMTI9->SetTag(object, tag)) ||
        !isTagDone(ourJVMTI9->GetTag(object, &kept))) {
        return 0;
    }
    Logger::assertEquals(static_cast<int>(kept), tag, VDK_HERE);
    return tag;
}

// Calls visit(map, tag, value) for the object's entry, if it has one, with ourJavaObjectMapLock
// held.
template <typename Visit>
void visitEntry(long handle, jobject object, Visit&& visit) {
    const int tag = handle == 0 || object == nullptr ? 0 : getTag(object);
    if (tag == 0) {
        return;
    }
    LockHolder lock(ourJavaObjectMapLock);
    IntMap* map = find(handle);
    const int* value = map == nullptr ? nullptr : map->getPtr(tag);
    if (value != nullptr) {
        visit(*map, tag, *value);
    }
}

} // namespace

long JavaObjectMap::create() {
    IntMap* map = new IntMap(INITIAL_CAPACITY);
    LockHolder lock(ourJavaObjectMapLock);
    ourMaps.push(map);
    return reinterpret_cast<long>(map);
}

void JavaObjectMap::destroy(long handle) {
    LockHolder lock(ourJavaObjectMapLock);
    for (int i = 0; i < ourMaps.getSize(); i++) {
        if (reinterpret_cast<long>(ourMaps[i]) == handle) {
            delete ourMaps[i];
            ourMaps.removeRange(i, i + 1);
            return;
        }
    }
}

void JavaObjectMap::put(long handle, jobject object, int value) {
    if (handle == 0 || object == nullptr) {
        return;
    }
    const int tag = getOrMakeTag(object);
    if (tag == 0) {
        return;
    }
    LockHolder lock(ourJavaObjectMapLock);
    IntMap* map = find(handle);
    if (map != nullptr) {
        map->put(tag, value);
    }
}

int JavaObjectMap::get(long handle, jobject object, int fallback) {
    int result = fallback;
    visitEntry(handle, object, [&](IntMap&, int, int value) { result = value; });
    return result;
}

bool JavaObjectMap::contains(long handle, jobject object) {
    bool isFound = false;
    visitEntry(handle, object, [&](IntMap&, int, int) { isFound = true; });
    return isFound;
}

int JavaObjectMap::remove(long handle, jobject object, int fallback) {
    int old = fallback;
    visitEntry(handle, object, [&](IntMap& map, int tag, int value) {
        old = value;
        map.remove(tag);
        map.compact();
    });
    return old;
}

void JavaObjectMap::onObjectFree(jlong tag) {
    LockHolder lock(ourJavaObjectMapLock);
    for (int i = 0; i < ourMaps.getSize(); i++) {
        if (ourMaps[i]->getPtr(static_cast<int>(tag)) != nullptr) {
            ourMaps[i]->remove(static_cast<int>(tag));
            ourMaps[i]->compact();
        }
    }
}
