// Natives of com.vandrik.Natives that compute over an ObjectStorage: what is reachable and
// retained, referrers, dominators, and row numbers for object ids. Arrays are held in place for the
// whole run.

#include "offline/BackwardReferences.h"
#include "offline/DominatorComputer.h"
#include "offline/NativesBoundary.h"
#include "offline/OIDProcessor.h"
#include "offline/Reachability.h"

#include <unistd.h>

namespace {

LiveHandles<OIDProcessor> ourOIDProcessors("OIDProcessors");

int threadsForAnalysis() {
    return sysconf(_SC_NPROCESSORS_ONLN) > 1 ? 2 : 1;
}

void logStep(const char* step) {
    Logger::message(step);
}

void computeDominators(ObjectStorage& storage, const jint* roots, int rootCount,
                       const jint* reachableBits) {
    ZString line("dc: 1: oc=");
    line.appendLong(storage.getObjectCount());
    line.append(" rc=");
    line.appendLong(rootCount);
    Logger::message(line);
    DominatorComputer computer(storage, roots, rootCount, reachableBits);
    logStep("dc: 2");
    storage.deleteBucketTable();
    storage.calculateRetainedSizes();
    logStep("dc: 3");
    storage.deleteMarkBits();
}

} // namespace

VDK_CLIENT_NATIVE(void, f)
(JNIEnv* env, jclass, jlong handle, jintArray objects, jintArray markBits) {
    runGuardedNative<int>(env, VDK_HERE, 0, [&](NativeErrors& errors) {
        const ObjectStorage& storage = ourStorages.get(handle);
        CriticalInts list(env, objects);
        CriticalInts bits(env, markBits);
        bits.requireLength(bitFieldWords(storage.getObjectCount()));
        bits.writeBack();
        const jint* rows = list.hold();
        return markReachable(&errors, storage, rows, list.length(), bits.hold()) ? 1 : 0;
    });
}

VDK_CLIENT_NATIVE(jint, f0)
(JNIEnv* env, jclass, jlong handle, jintArray extraMarks, jintArray list, jint from, jint to,
 jintArray objects, jintArray reachableBits, jintArray resultBits) {
    return runGuardedNative<jint>(env, VDK_HERE, 0, [&](NativeErrors& errors) -> jint {
        const ObjectStorage& storage = ourStorages.get(handle);
        const int words = bitFieldWords(storage.getObjectCount());
        CriticalInts extra(env, extraMarks, true);
        CriticalInts group(env, list, extraMarks != nullptr);
        CriticalInts roots(env, objects);
        CriticalInts reachable(env, reachableBits);
        CriticalInts result(env, resultBits);
        if (extraMarks != nullptr) {
            extra.requireLength(words);
        } else {
            const bool good = from >= 0 && from <= to && to <= group.length();
            Logger::assertTrue(good, VDK_HERE);
        }
        reachable.requireLength(words);
        result.requireLength(words);
        result.writeBack();
        const jint* extraBits = extra.hold();
        const jint* groupRows = extraBits == nullptr ? group.hold() + from : nullptr;
        const jint* rootRows = roots.hold();
        const jint* liveBits = reachable.hold();
        const bool done = markAllButRetained(&errors, storage, extraBits, groupRows, to - from,
                                             rootRows, roots.length(), liveBits, result.hold());
        return done ? 1 : 0;
    });
}

VDK_CLIENT_NATIVE(jlong, s1)(JNIEnv* env, jclass, jlong handle, jintArray markBits) {
    return runGuardedNative<jlong>(env, VDK_HERE, 0, [&](NativeErrors&) -> jlong {
        const ObjectStorage& storage = ourStorages.get(handle);
        CriticalInts bits(env, markBits);
        bits.requireLength(bitFieldWords(storage.getObjectCount()));
        return sumOfMarkedSizes(storage, bits.hold());
    });
}

VDK_CLIENT_NATIVE(jint, osNcomputeBRTImpl)
(JNIEnv* env, jclass, jlong handle, jintArray reachableBits, jintArray counts) {
    return runGuardedNative<jint>(env, VDK_HERE, 0, [&](NativeErrors&) -> jint {
        ObjectStorage& storage = ourStorages.get(handle);
        CriticalInts reachable(env, reachableBits);
        CriticalInts scratch(env, counts);
        reachable.requireLength(bitFieldWords(storage.getObjectCount()));
        scratch.requireLength(storage.getObjectCount());
        scratch.writeBack();
        const jint* bits = reachable.hold();
        computeBackwardReferences(storage, bits, scratch.hold(), threadsForAnalysis());
        return 1;
    });
}

VDK_CLIENT_NATIVE(jint, osNcomputeDominatorsAndRetainedSizesImpl)
(JNIEnv* env, jclass, jlong handle, jintArray roots, jintArray reachableBits) {
    return runGuardedNative<jint>(env, VDK_HERE, 0, [&](NativeErrors&) -> jint {
        logStep("dc: 0");
        ObjectStorage& storage = ourStorages.get(handle);
        CriticalInts rootRows(env, roots);
        CriticalInts reachable(env, reachableBits);
        reachable.requireLength(bitFieldWords(storage.getObjectCount()));
        const jint* rows = rootRows.hold();
        computeDominators(storage, rows, rootRows.length(), reachable.hold());
        return 1;
    });
}

VDK_CLIENT_NATIVE(jlong, createOIDProcessor)(JNIEnv* env, jclass, jboolean wide, jint capacity) {
    return runGuardedNative<jlong>(env, VDK_HERE, 0, [&](NativeErrors& errors) -> jlong {
        OIDProcessor* processor = nullptr;
        try {
            processor = new OIDProcessor(wide == JNI_TRUE, capacity);
            return ourOIDProcessors.add(processor);
        } catch (const std::bad_alloc&) {
            delete processor;
            errors.fail("db::oome");
            return 0;
        }
    });
}

VDK_CLIENT_NATIVE(void, processOIDs)
(JNIEnv* env, jclass, jlong handle, jlongArray oids, jint count) {
    runGuardedNative<int>(env, VDK_HERE, 0, [&](NativeErrors&) {
        OIDProcessor& processor = ourOIDProcessors.get(handle);
        CriticalLongs ids(env, oids);
        Logger::assertTrue(count >= 0, VDK_HERE);
        ids.requireLength(count);
        processor.processOIDs(ids.hold(), count);
        return 1;
    });
}

VDK_CLIENT_NATIVE(void, convertOIDsToIndices)(JNIEnv* env, jclass, jlong handle) {
    runGuardedNative<int>(env, VDK_HERE, 0, [&](NativeErrors&) {
        ourOIDProcessors.get(handle).convertOIDsToIndices();
        return 1;
    });
}

VDK_CLIENT_NATIVE(jint, getIndex)(JNIEnv* env, jclass, jlong handle, jlong oid) {
    return runGuardedNative<jint>(env, VDK_HERE, 0, [&](NativeErrors&) -> jint {
        return ourOIDProcessors.get(handle).getIndex(oid);
    });
}

VDK_CLIENT_NATIVE(void, deleteOIDProcessor)(JNIEnv* env, jclass, jlong handle) {
    runGuardedNative<int>(env, VDK_HERE, 0, [&](NativeErrors&) {
        ourOIDProcessors.remove(handle);
        return 1;
    });
}
