#include "db/HeapRecords.h"

#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/Progress.h"
#include "profiling/memory/ObjectEnumerator.h"
#include "snapshot/HeapWalk.h"

namespace {

constexpr int PROGRESS_OBJECTS = 22;
constexpr int PROGRESS_ARRAYS = 23;
constexpr int PROGRESS_OTHER_CLASSES = 25;
constexpr int PROGRESS_CLASS_RECORDS = 30;

jvmtiIterationControl JNICALL write_tagged_objects_callback(jlong classTag, jlong size, jlong* tag,
                                                            void* userData) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    return walk->guarded([&] { walk->writeObject(classTag, size, *tag); })
               ? JVMTI_ITERATION_CONTINUE
               : JVMTI_ITERATION_ABORT;
}

jint JNICALL write_tagged_arrays_callback(jlong classTag, jlong size, jlong* tag, jint length,
                                          void* userData) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    return walk->guarded([&] { walk->writeArray(classTag, size, *tag, length); })
               ? 0
               : JVMTI_VISIT_ABORT;
}

} // namespace

void HeapWalk::writeObjects() {
    CHECK_JVMTI(
        ourJVMTI->IterateOverHeap(JVMTI_HEAP_OBJECT_TAGGED, write_tagged_objects_callback, this));
    rethrow();
    progress.updateProgress(PROGRESS_OBJECTS);
    jvmtiHeapCallbacks callbacks = {};
    callbacks.heap_iteration_callback = write_tagged_arrays_callback;
    CHECK_JVMTI(
        ourJVMTI->IterateThroughHeap(JVMTI_HEAP_FILTER_UNTAGGED, nullptr, &callbacks, this));
    rethrow();
    progress.updateProgress(PROGRESS_ARRAYS);
}

// False if the object has a record already, or an index that this walk did not give: a tag of an
// earlier snapshot on an object that the first pass did not show.
bool HeapWalk::writeObjectRecord(int record, jlong classTag, jlong size, jlong tag, int length) {
    const int index = ObjectTags::indexOf(tag);
    if (index <= 0 || index > objectCount || isRecorded(index)) {
        if (index != 0) {
            noteOdd(ODD_TWICE, ZString("warning: skipping object with tag ") + longToString(tag));
        }
        return false;
    }
    markRecorded(index);
    writer.writeByte(record);
    writer.writeOID(index);
    writer.writeOID(ObjectTags::indexOf(classTag));
    writer.writeLong(size);
    writer.writeInt(ObjectTags::generationOf(tag));
    writer.writeInt(length);
    writeAllocator(tag);
    return true;
}

void HeapWalk::writeObject(jlong classTag, jlong size, jlong tag) {
    if (classTag == 0 || tag == 0 || classTag == classClassTag) {
        return; // class objects have records of their own
    }
    _ClassInfo* const info = classOf(classTag);
    if (info == nullptr) {
        noteOdd(ODD_CLASS, ZString("info=NULL at ") + Logger::place(VDK_HERE) + ": class tag " +
                               longToString(classTag));
        return;
    }
    if (!info->isArray() &&
        writeObjectRecord(HEAP_RECORD_OBJECT, classTag, size, tag, info->referenceSlots)) {
        infoOrLength[ObjectTags::indexOf(tag)] = reinterpret_cast<uintptr_t>(info);
    }
}

void HeapWalk::writeArray(jlong classTag, jlong size, jlong tag, jint length) {
    if (length < 0 || classTag == 0 || tag == 0) {
        return;
    }
    const _ClassInfo* const info = classOf(classTag);
    if (info == nullptr || !info->isArray()) {
        return;
    }
    const int record =
        info->isPrimitiveArray ? HEAP_RECORD_PRIMITIVE_ARRAY : HEAP_RECORD_REFERENCE_ARRAY;
    if (writeObjectRecord(record, classTag, size, tag, length)) {
        infoOrLength[ObjectTags::indexOf(tag)] = static_cast<uintptr_t>(length);
    }
}

void HeapWalk::writeAllocator(jlong tag) {
    const int lowTag = ObjectTags::lowWord(tag);
    if (lowTag <= 0) {
        return;
    }
    const AllocatorRecord* const allocator = ourObjectEnumerator.getAllocator(lowTag);
    if (allocator->frame != 0) {
        writer.writeByte(HEAP_RECORD_ALLOCATOR);
        writer.writeOID(ObjectTags::getObjectIndex(lowTag));
        writer.writeInt(allocator->trn);
        writer.writeInt(allocator->frame);
        allocatorCount++;
    }
}

void HeapWalk::writeClasses() {
    progress.updateProgress(PROGRESS_OTHER_CLASSES);
    classes.each([&](int index, const _ClassInfo* info) { writeClass(index, *info); });
    progress.updateProgress(PROGRESS_CLASS_RECORDS);
}

void HeapWalk::writeClass(int index, const _ClassInfo& info) {
    if (index > objectCount || isRecorded(index)) {
        noteOdd(ODD_TWICE, ZString("warning: skipping class with tag ") + longToString(info.tag));
        return;
    }
    markRecorded(index);
    const _ClassInfo* const superclass = classOf(info.superTag);
    writer.writeByte(HEAP_RECORD_CLASS);
    writer.writeInt(info.nameStrID);
    writer.writeOID(index);
    writer.writeOID(superclass == nullptr ? 0 : ObjectTags::indexOf(info.superTag));
    writer.writeLong(info.size);
    writer.writeInt(ObjectTags::generationOf(info.tag));
    writer.writeLong(0);
    writer.writeInt(info.interfaces.getSize());
    for (int i = 0; i < info.interfaces.getSize(); i++) {
        writer.writeOID(ObjectTags::indexOf(info.interfaces[i]));
    }
    writeFieldList(info, true, true);
    writeFieldList(info, false, true);
    writeFieldList(info, true, false);
    writeFieldList(info, false, false);
    writer.writeInt(0);
    writer.writeInt(0);
    writeAllocator(info.tag);
}

// The fields of one kind that the class itself declares.
void HeapWalk::writeFieldList(const _ClassInfo& info, bool isStatic, bool isReference) {
    const long countPosition = writer.getPosition();
    int count = 0;
    writer.writeInt(0);
    for (int i = info.firstOwnField; i < info.fields.getSize(); i++) {
        const _FieldInfo& field = *info.fields[i];
        if (field.isStatic() != isStatic || (field.primitiveType == 0) != isReference) {
            continue;
        }
        count++;
        writer.writeInt(field.nameStrID);
        if (isReference) {
            writer.writeInt(field.modifiers);
        } else {
            writer.writeByte(field.primitiveType);
        }
    }
    if (count != 0) {
        writer.patchInt(countPosition, count);
    }
}
