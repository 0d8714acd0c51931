#include "db/HeapRecords.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/Progress.h"
#include "profiling/memory/InstanceCounting.h"
#include "profiling/memory/ObjectEnumerator.h"
#include "snapshot/HeapWalk.h"

namespace {

constexpr int PROGRESS_OBJECTS = 10;
constexpr int PROGRESS_OTHER_CLASSES = 25;
constexpr int PROGRESS_CLASS_RECORDS = 30;

jint JNICALL write_objects_callback(jlong classTag, jlong size, jlong* tag, jint length,
                                    void* userData) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    return walk->guarded([&] { walk->writeObject(classTag, size, tag, length); })
               ? 0
               : JVMTI_VISIT_ABORT;
}

} // namespace

void HeapWalk::writeObjects() {
    jvmtiHeapCallbacks callbacks = {};
    callbacks.heap_iteration_callback = write_objects_callback;
    if (hasPrimitives() && !ourIsOldIBM) {
        collectValuesWith(callbacks);
    }
    CHECK_JVMTI(ourJVMTI->IterateThroughHeap(0, nullptr, &callbacks, this));
    rethrow();
    if (ourIsOldIBM) {
        tagClassObjects(); // the pass took them for ordinary objects
    }
    objectCount = -counter - 1;
    progress.updateProgress(PROGRESS_OBJECTS);
}

// Gives the object its index and writes its record.
void HeapWalk::writeObject(jlong classTag, jlong size, jlong* tag, jint length) {
    if (classTag == classClassTag) {
        return; // class objects have records of their own
    }
    *tag = ObjectTags::updateTag(*tag, &counter);
    const _ClassInfo* const info = classOf(classTag);
    if (info == nullptr) {
        noteOdd(ODD_CLASS, ZString("info=NULL at ") + Logger::place(VDK_HERE) + ": class tag " +
                               longToString(classTag));
        return;
    }
    if (counting != nullptr) {
        counting->addObject(info->countedAs, size);
    }
    const int index = -counter - 1;
    if (!info->isArray()) {
        writeObjectRecord(HEAP_RECORD_OBJECT, classTag, size, *tag, info->referenceSlots);
        objects.add(index, reinterpret_cast<uintptr_t>(info));
    } else if (length >= 0) {
        const int record =
            info->isPrimitiveArray ? HEAP_RECORD_PRIMITIVE_ARRAY : HEAP_RECORD_REFERENCE_ARRAY;
        writeObjectRecord(record, classTag, size, *tag, length);
        objects.add(index, static_cast<uintptr_t>(length));
    }
}

void HeapWalk::writeObjectRecord(int record, jlong classTag, jlong size, jlong tag, int length) {
    const int index = -counter - 1;
    writer.writeByte(record);
    writer.writeOID(index);
    writer.writeOID(ObjectTags::indexOf(classTag));
    writer.writeLong(size);
    writer.writeInt(ObjectTags::generationOf(tag));
    writer.writeInt(length);
    writeAllocator(tag);
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
    if (objects.contains(index)) {
        noteOdd(ODD_TWICE, ZString("warning: skipping class with tag ") + longToString(info.tag));
        return;
    }
    objects.add(index, 0);
    const _ClassInfo* const type = classOf(classClassTag);
    if (counting != nullptr && type != nullptr) {
        counting->addObject(type->countedAs, info.size);
    }
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
