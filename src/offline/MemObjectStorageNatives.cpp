// Natives of com.vandrik.Natives over an ObjectStorage: rows and their attributes. Those that
// compute are in HeapAnalysisNatives.cpp.

#include "offline/NativesBoundary.h"
#include "offline/OfflineGlobals.h"

LiveHandles<ObjectStorage> ourStorages("ObjectStorages");

namespace {

// Runs body(storage) for a handle and a row that must be one.
template <typename R, typename Body>
R runGuardedRow(JNIEnv* env, const char* file, int line, jlong handle, jint row, Body&& body) {
    return runGuardedNative<R>(env, file, line, 0, [&](NativeErrors& errors) -> R {
        ObjectStorage& storage = ourStorages.get(handle);
        return storage.checkIndex(&errors, row) ? body(storage) : 0;
    });
}

// The same for natives that return nothing.
template <typename Body>
void runGuardedSetter(JNIEnv* env, const char* file, int line, jlong handle, jint row,
                      Body&& body) {
    runGuardedRow<int>(env, file, line, handle, row, [&](ObjectStorage& storage) {
        body(storage);
        return 1;
    });
}

// Runs body(storage, errors), which creates a row, and gives 1 if it did.
template <typename Body>
jint runGuardedCreate(JNIEnv* env, const char* file, int line, jlong handle, Body&& body) {
    return runGuardedNative<jint>(env, file, line, 0, [&](NativeErrors& errors) -> jint {
        return body(ourStorages.get(handle), &errors) ? 1 : 0;
    });
}

} // namespace

VDK_CLIENT_NATIVE(jlong, osNcreate)
(JNIEnv* env, jclass, jint objectCount, jbyte withScratch, jstring tempPath) {
    return runGuardedNative<jlong>(env, VDK_HERE, 0, [&](NativeErrors& errors) -> jlong {
        Logger::assertNotNULL(tempPath, VDK_HERE);
        ourAlternateTempDirForBigIntArraysUtf8 = toPath(env, tempPath);
        if (objectCount < 1) {
            errors.violated("objectCount > 0", objectCount, 0);
            return 0;
        }
        ObjectStorage* storage = new ObjectStorage(&errors, objectCount, withScratch == 1);
        try {
            return ourStorages.add(storage);
        } catch (...) {
            delete storage;
            throw;
        }
    });
}

VDK_CLIENT_NATIVE(void, osNdelete)(JNIEnv* env, jclass, jlong handle) {
    runGuardedNative<int>(env, VDK_HERE, 0, [&](NativeErrors&) {
        ourStorages.remove(handle);
        return 1;
    });
}

VDK_CLIENT_NATIVE(void, osNunmapImpl)(JNIEnv* env, jclass, jlong handle) {
    runGuardedNative<int>(env, VDK_HERE, 0, [&](NativeErrors&) {
        ourStorages.get(handle).getReferences().unmapRefTable("FROM NATIVE");
        return 1;
    });
}

VDK_CLIENT_NATIVE(jint, osNcreateObjectImpl)
(JNIEnv* env, jclass, jlong handle, jint index, jint classRow, jint generation, jint size,
 jint fieldCount) {
    return runGuardedCreate(env, VDK_HERE, handle, [&](ObjectStorage& storage, RowErrors* errors) {
        return storage.createObject(errors, index, classRow, generation, size, fieldCount);
    });
}

VDK_CLIENT_NATIVE(jint, osNcreatePrimArrayImpl)
(JNIEnv* env, jclass, jlong handle, jint index, jint classRow, jint length, jint size,
 jint generation) {
    return runGuardedCreate(env, VDK_HERE, handle, [&](ObjectStorage& storage, RowErrors* errors) {
        return storage.createPrimArray(errors, index, classRow, length, size, generation);
    });
}

VDK_CLIENT_NATIVE(jint, osNcreateObjectArrayImpl)
(JNIEnv* env, jclass, jlong handle, jint index, jint classRow, jint generation, jint size,
 jint length) {
    return runGuardedCreate(env, VDK_HERE, handle, [&](ObjectStorage& storage, RowErrors* errors) {
        return storage.createObjectArray(errors, index, classRow, generation, size, length);
    });
}

VDK_CLIENT_NATIVE(jint, osNcreateClassImpl)
(JNIEnv* env, jclass, jlong handle, jint index, jint generation, jint size, jint refCount) {
    return runGuardedCreate(env, VDK_HERE, handle, [&](ObjectStorage& storage, RowErrors* errors) {
        return storage.createClass(errors, index, generation, size, refCount);
    });
}

VDK_CLIENT_NATIVE(void, osNsetRefImpl)
(JNIEnv* env, jclass, jlong handle, jint row, jint reference, jint position) {
    runGuardedSetter(env, VDK_HERE, handle, row,
                     [&](ObjectStorage& storage) { storage.setRef(row, reference, position); });
}

VDK_CLIENT_NATIVE(jint, osNgetRefImpl)(JNIEnv* env, jclass, jlong handle, jint row, jint position) {
    return runGuardedRow<jint>(env, VDK_HERE, handle, row, [&](ObjectStorage& storage) {
        return storage.getRef(row, position);
    });
}

// Reads one attribute of a row.
#define VDK_ROW_GETTER(type, name, getter)                                                         \
    VDK_CLIENT_NATIVE(type, name)(JNIEnv * env, jclass, jlong handle, jint row) {                  \
        return runGuardedRow<type>(env, VDK_HERE, handle, row,                                     \
                                   [&](ObjectStorage& storage) { return storage.getter(row); });   \
    }

VDK_ROW_GETTER(jint, osNgetRefCountImpl, getRefCount)
VDK_ROW_GETTER(jint, osNgetSizeImpl, getSize)
VDK_ROW_GETTER(jint, osNgetGenerationImpl, getGeneration)
VDK_ROW_GETTER(jint, osNgetDominatorImpl, getDominator)
VDK_ROW_GETTER(jint, osNgetArrayLengthImpl, getArrayLength)
VDK_ROW_GETTER(jint, osNgetMetaLengthImpl, getMetaLength)
VDK_ROW_GETTER(jint, osNgetOIDHighPartImpl, getOIDHighPart)
VDK_ROW_GETTER(jint, osNgetAllocatorTRNImpl, getAllocatorThread)
VDK_ROW_GETTER(jint, osNgetAllocatorFrameImpl, getAllocatorFrame)
VDK_ROW_GETTER(jlong, osNgetRetainedSizeImpl, getRetainedSize)
VDK_ROW_GETTER(jlong, osNgetPrimitiveDataPositionImpl, getPrimitiveDataPosition)
VDK_ROW_GETTER(jlong, osNgetMetaPositionImpl, getMetaPosition)

// Stores one attribute of a row.
#define VDK_ROW_SETTER(type, name, setter)                                                         \
    VDK_CLIENT_NATIVE(void, name)(JNIEnv * env, jclass, jlong handle, jint row, type value) {      \
        runGuardedSetter(env, VDK_HERE, handle, row,                                               \
                         [&](ObjectStorage& storage) { storage.setter(row, value); });             \
    }

VDK_ROW_SETTER(jint, osNsetSizeImpl, setSize)
VDK_ROW_SETTER(jint, osNsetOIDHighPartImpl, setOIDHighPart)
VDK_ROW_SETTER(jlong, osNsetRetainedSizeImpl, setRetainedSize)
VDK_ROW_SETTER(jlong, osNsetPrimitiveDataPositionImpl, setPrimitiveDataPosition)

VDK_CLIENT_NATIVE(void, osNsetAllocatorImpl)
(JNIEnv* env, jclass, jlong handle, jint row, jint frame, jint thread) {
    runGuardedSetter(env, VDK_HERE, handle, row,
                     [&](ObjectStorage& storage) { storage.setAllocator(row, frame, thread); });
}

VDK_CLIENT_NATIVE(void, osNsetMetaImpl)
(JNIEnv* env, jclass, jlong handle, jint row, jlong position, jint length) {
    runGuardedSetter(env, VDK_HERE, handle, row,
                     [&](ObjectStorage& storage) { storage.setMeta(row, position, length); });
}

VDK_CLIENT_NATIVE(jint, osNreadArrayImpl)
(JNIEnv* env, jclass, jlong handle, jint readKind, jintArray data, jint from, jint to) {
    return runGuardedNative<jint>(env, VDK_HERE, 0, [&](NativeErrors&) -> jint {
        ObjectStorage& storage = ourStorages.get(handle);
        CriticalInts ints(env, data);
        const bool good = from >= 0 && from <= to && to - from <= ints.length();
        Logger::assertTrue(good, VDK_HERE);
        jint* elements = ints.hold();
        if (!isIntelByteOrder()) {
            for (int i = 0; i < to - from; i++) {
                elements[i] =
                    static_cast<jint>(__builtin_bswap32(static_cast<unsigned>(elements[i])));
            }
        }
        return storage.readArray(readKind, elements, from, to) ? 1 : 0;
    });
}

VDK_CLIENT_NATIVE(jstring, getDefaultTADir)(JNIEnv* env, jclass) {
    return runGuardedNative<jstring>(env, VDK_HERE, nullptr,
                                     [&](NativeErrors&) { return env->NewStringUTF("/tmp/"); });
}

VDK_CLIENT_NATIVE(jlong, getIndexFileFullLength)(JNIEnv* env, jclass) {
    return runGuardedNative<jlong>(env, VDK_HERE, 0,
                                   [&](NativeErrors&) -> jlong { return ourIndexFileFullLength; });
}
