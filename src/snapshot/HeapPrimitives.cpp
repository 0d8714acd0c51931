#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/Progress.h"
#include "snapshot/HeapWalk.h"

namespace {

constexpr int PROGRESS_BLOCK = 46;
constexpr int PROGRESS_VALUES = 54;
constexpr int PROGRESS_OFFSETS = 55;
constexpr int PROGRESS_END = 65;

jint JNICALL write_primitive_field_values(jvmtiHeapReferenceKind kind,
                                          const jvmtiHeapReferenceInfo* info, jlong classTag,
                                          jlong* tag, jvalue value, jvmtiPrimitiveType type,
                                          void* userData) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    return walk->guarded(
               [&] { walk->putField(kind, info->field.index, classTag, *tag, value, type); })
               ? 0
               : JVMTI_VISIT_ABORT;
}

jint JNICALL write_primitive_arrays(jlong, jlong, jlong* tag, jint count, jvmtiPrimitiveType type,
                                    const void* elements, void* userData) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    return walk->guarded([&] { walk->putArray(*tag, count, type, elements); }) ? 0
                                                                               : JVMTI_VISIT_ABORT;
}

} // namespace

bool HeapWalk::hasPrimitives() {
    return ourIsIBM || ourIsJRockit || ourIs6u4OrNewer;
}

void HeapWalk::collectValuesWith(jvmtiHeapCallbacks& callbacks) {
    callbacks.primitive_field_callback = write_primitive_field_values;
    callbacks.array_primitive_value_callback = write_primitive_arrays;
}

void HeapWalk::writePrimitives() {
    progress.updateProgress(PROGRESS_BLOCK);
    if (ourIsOldIBM) {
        // Class objects got their tags after the pass over the objects.
        jvmtiHeapCallbacks callbacks = {};
        collectValuesWith(callbacks);
        CHECK_JVMTI(
            ourJVMTI->IterateThroughHeap(JVMTI_HEAP_FILTER_UNTAGGED, nullptr, &callbacks, this));
        rethrow();
    }
    progress.updateProgress(PROGRESS_VALUES);
    primitives.writeTo(writer, objectCount, progress, PROGRESS_OFFSETS, PROGRESS_END);
}

void HeapWalk::putField(jvmtiHeapReferenceKind kind, jint index, jlong classTag, jlong tag,
                        const jvalue& value, jvmtiPrimitiveType type) {
    const bool isStatic = kind == JVMTI_HEAP_REFERENCE_STATIC_FIELD;
    const int object = ObjectTags::indexOf(tag);
    if (!isStatic && kind != JVMTI_HEAP_REFERENCE_FIELD) {
        return;
    }
    if (object != fieldOwner) {
        // Fields of an object come one right after the other. Class objects have no record yet.
        const _ClassInfo* const own = classes.get(object);
        fieldOwner = object;
        ownerIsClass = own != nullptr;
        ownerInfo = ownerIsClass || !objects.contains(object) ? own : classOf(classTag);
    }
    const _ClassInfo* const info = ownerInfo;
    if (info == nullptr || ownerIsClass != isStatic || index < 0 ||
        index >= info->fields.getSize()) {
        return;
    }
    const _FieldInfo& field = *info->fields[index];
    if (field.primitiveType == 0 || field.isStatic() != isStatic) {
        return;
    }
    if (field.primitiveType != static_cast<char>(type)) {
        const char expected[] = {field.primitiveType, 0};
        const char actual[] = {static_cast<char>(type), 0};
        noteOdd(ODD_FIELD_TYPE, ZString("warning: field type mismatch: ") +
                                    (isStatic ? "STATIC" : "") + " expected=" + expected +
                                    " actual=" + actual);
        return;
    }
    const int bytes = isStatic ? info->staticPrimitiveSize : info->instancePrimitiveSize;
    primitives.putField(object, bytes, field.offset, value, type);
}

void HeapWalk::putArray(jlong tag, jint count, jvmtiPrimitiveType type, const void* elements) {
    const int object = recordedIndex(tag);
    if (object == 0 || count <= 0) {
        return;
    }
    if (primitiveBytes(type) == 0) {
        noteOdd(ODD_ARRAY_TYPE,
                ZString("JVM passed improper primitive type: ") + longToString(type));
        return;
    }
    // The record told the length, which is what a reader goes by.
    if (static_cast<uintptr_t>(count) == objects.get(object)) {
        primitives.putArray(object, count, type, elements);
    }
}
