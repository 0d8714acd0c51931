#include "profiling/HeapIteration.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"

void iterateOverHeapEither(jvmtiEnv* jvmti, jvmtiHeapObjectCallback callback, void* data) {
    if (ourIsJRockit) {
        CHECK_JVMTI(jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_TAGGED, callback, data));
        CHECK_JVMTI(jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_UNTAGGED, callback, data));
        return;
    }
    CHECK_JVMTI(jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_EITHER, callback, data));
}
