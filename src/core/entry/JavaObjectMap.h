#pragma once

#include <jvmti.h>

// JavaObjectMap: maps from a Java object to an int that do not keep the object alive, for probes.
// An object is known by its tag in ourJVMTI9; when it is collected its tag leaves every map. The
// maps are guarded by ourJavaObjectMapLock, which is never held over a call into the JVM. A handle
// of 0, or of a map that was deleted, makes each operation return at once.
class JavaObjectMap {
public:
    // The handle of a new map.
    static long create();
    static void destroy(long handle);
    static void put(long handle, jobject object, int value);
    // The fallback when the object is not in the map. Assigns no tag.
    static int get(long handle, jobject object, int fallback);
    static bool contains(long handle, jobject object);
    // The old value, or the fallback.
    static int remove(long handle, jobject object, int fallback);

    // From the ObjectFree event of ourJVMTI9. Calls no JNI.
    static void onObjectFree(jlong tag);
};
