#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/HeapRecords.h"
#include "db/Progress.h"
#include "profiling/threads/ZFrameStorage.h"
#include "snapshot/HeapWalk.h"

namespace {

constexpr int PROGRESS_ROOTS = 40;
constexpr int PROGRESS_REFERENCES = 45;
constexpr int POINTER_DIGITS = 16;

// Types of roots in the file: bits, one in a record.
enum RootType {
    ROOT_OTHER = 1,
    ROOT_JNI_GLOBAL = 2,
    ROOT_JNI_LOCAL = 4,
    ROOT_STACK_LOCAL = 8,
    ROOT_THREAD = 32,
    ROOT_MONITOR = 64
};

// The body tells whether the walk goes on into the object.
template <typename Body>
jvmtiIterationControl guardedStep(void* userData, Body&& body) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    bool follows = false;
    if (!walk->guarded([&] { follows = body(walk); })) {
        return JVMTI_ITERATION_ABORT;
    }
    return follows ? JVMTI_ITERATION_CONTINUE : JVMTI_ITERATION_IGNORE;
}

jvmtiIterationControl JNICALL heap_root_callback(jvmtiHeapRootKind kind, jlong, jlong, jlong* tag,
                                                 void* userData) {
    return guardedStep(userData, [&](HeapWalk* walk) {
        walk->writeHeapRoot(kind, *tag);
        return walk->isFollowedForClasses(*tag);
    });
}

jvmtiIterationControl JNICALL stack_reference_callback(jvmtiHeapRootKind kind, jlong, jlong,
                                                       jlong* tag, jlong threadTag, jint depth,
                                                       jmethodID method, jint slot,
                                                       void* userData) {
    return guardedStep(userData, [&](HeapWalk* walk) {
        walk->writeStackReference(kind, *tag, threadTag, depth, method, slot);
        return walk->isFollowedForClasses(*tag);
    });
}

jvmtiIterationControl JNICALL object_reference_callback(jvmtiObjectReferenceKind kind,
                                                        jlong classTag, jlong, jlong* tag,
                                                        jlong referrerTag, jint index,
                                                        void* userData) {
    const bool isTold = kind != JVMTI_REFERENCE_FIELD && kind != JVMTI_REFERENCE_ARRAY_ELEMENT &&
                        kind != JVMTI_REFERENCE_CLASS && kind != JVMTI_REFERENCE_INTERFACE &&
                        classTag != 0;
    return guardedStep(userData, [&](HeapWalk* walk) {
        if (isTold) {
            walk->writeClassReference(kind, *tag, referrerTag, index);
        }
        return walk->isFollowedForClasses(*tag);
    });
}

jvmtiIterationControl JNICALL passHeapRoot(jvmtiHeapRootKind, jlong, jlong, jlong*, void*) {
    return JVMTI_ITERATION_CONTINUE;
}

jvmtiIterationControl JNICALL passStackReference(jvmtiHeapRootKind, jlong, jlong, jlong*, jlong,
                                                 jint, jmethodID, jint, void*) {
    return JVMTI_ITERATION_CONTINUE;
}

jvmtiIterationControl JNICALL write_fields_and_array_refs_callback(jvmtiObjectReferenceKind kind,
                                                                   jlong classTag, jlong,
                                                                   jlong* tag, jlong referrerTag,
                                                                   jint index, void* userData) {
    const bool isTold =
        (kind == JVMTI_REFERENCE_FIELD || kind == JVMTI_REFERENCE_ARRAY_ELEMENT) && classTag != 0;
    return guardedStep(userData, [&](HeapWalk* walk) {
        if (isTold) {
            walk->writeFieldOrElement(kind, *tag, referrerTag, index);
        }
        return walk->isFollowedForReferences(classTag);
    });
}

} // namespace

void HeapWalk::writeReferences() {
    CHECK_JVMTI(ourJVMTI->IterateOverReachableObjects(heap_root_callback, stack_reference_callback,
                                                      object_reference_callback, this));
    rethrow();
    releaseClassObjects();
    progress.updateProgress(PROGRESS_ROOTS);
    CHECK_JVMTI(ourJVMTI->IterateOverReachableObjects(passHeapRoot, passStackReference,
                                                      write_fields_and_array_refs_callback, this));
    rethrow();
    progress.updateProgress(PROGRESS_REFERENCES);
}

// The listed classes are roots of this walk by the references that it holds to them, so nothing but
// class objects need be followed to find all that belongs to classes.
bool HeapWalk::isFollowedForClasses(jlong tag) const {
    return ourIsIBM || ourIsJRockit || classOf(tag) != nullptr;
}

bool HeapWalk::isFollowedForReferences(jlong classTag) {
    _ClassInfo* const info = classOf(classTag);
    if (info == nullptr || info->isObjectArray || info->referenceSlots != 0 || !info->wasFollowed) {
        if (info != nullptr) {
            info->wasFollowed = true;
        }
        return true;
    }
    return false;
}

void HeapWalk::writeRoot(int type, jlong tag, ThreadAndFrame thread, int threadIndex,
                         int variable) {
    const int index = recordedIndex(tag);
    if (index == 0) {
        return;
    }
    writer.writeByte(HEAP_RECORD_ROOT);
    writer.writeOID(index);
    writer.writeInt(type);
    writer.writeInt(thread.trn);
    writer.writeOID(threadIndex);
    writer.writeInt(thread.frame);
    writer.writeInt(variable);
}

void HeapWalk::writeHeapRoot(jvmtiHeapRootKind kind, jlong tag) {
    const ThreadAndFrame none = {0, 0};
    switch (kind) {
    case JVMTI_HEAP_ROOT_JNI_GLOBAL:
        writeRoot(ROOT_JNI_GLOBAL, tag, none, 0, 0);
        break;
    case JVMTI_HEAP_ROOT_MONITOR:
        writeRoot(ROOT_MONITOR, tag, none, 0, 0);
        break;
    case JVMTI_HEAP_ROOT_OTHER:
        writeRoot(ROOT_OTHER, tag, none, 0, 0);
        break;
    case JVMTI_HEAP_ROOT_THREAD:
        writeRoot(ROOT_THREAD, tag, {threads.get(tag).trn, 0}, recordedIndex(tag), 0);
        break;
    case JVMTI_HEAP_ROOT_SYSTEM_CLASS:
    case JVMTI_HEAP_ROOT_STACK_LOCAL:
    case JVMTI_HEAP_ROOT_JNI_LOCAL:
        break;
    default:
        noteOdd(ODD_ROOT, ZString("heap_root_callback: JVM passed improper root kind: ") +
                              longToString(kind));
    }
}

// The frame so many calls above the thread's innermost one, 0 if there is none. The JVM tells a
// thread's locals from the innermost call on, so the way from the last answer is short.
int HeapWalk::frameAt(jlong threadTag, const ThreadAndFrame& thread, jint depth) {
    if (threadTag != lastThreadTag || depth < lastDepth) {
        lastThreadTag = threadTag;
        lastDepth = 0;
        lastFrame = thread.frame;
    }
    while (lastDepth < depth && lastFrame > 0) {
        lastFrame = ourFrameStorage.getParent(lastFrame);
        lastDepth++;
    }
    lastDepth = depth;
    return lastFrame > 0 ? lastFrame : 0;
}

void HeapWalk::writeStackReference(jvmtiHeapRootKind kind, jlong tag, jlong threadTag, jint depth,
                                   jmethodID method, jint slot) {
    if (kind != JVMTI_HEAP_ROOT_STACK_LOCAL && kind != JVMTI_HEAP_ROOT_JNI_LOCAL) {
        noteOdd(ODD_STACK_ROOT,
                ZString("stack_reference_callback: JVM passed improper root kind: ") +
                    longToString(kind));
        return;
    }
    if (kind == JVMTI_HEAP_ROOT_JNI_LOCAL && threadTag == ownThreadTag && classOf(tag) != nullptr) {
        return; // a reference of this walk
    }
    const ThreadAndFrame thread = threads.get(threadTag);
    const int frame = frameAt(threadTag, thread, depth);
    const bool isLocal = kind == JVMTI_HEAP_ROOT_STACK_LOCAL;
    const ZVector<StackLocal>* const known =
        isLocal && method != nullptr ? locals.get(method) : nullptr;
    int variable = 0;
    for (int i = 0; known != nullptr && variable == 0 && i < known->getSize(); i++) {
        variable = (*known)[i].slot == slot ? (*known)[i].nameStrID : 0;
    }
    writeRoot(isLocal ? ROOT_STACK_LOCAL : ROOT_JNI_LOCAL, tag, {thread.trn, frame},
              recordedIndex(threadTag), variable);
}

void HeapWalk::writeStaticField(int from, int to, jint index) {
    const _ClassInfo* const info = classes.get(from);
    if (info == nullptr || index < 0 || (!info->isArray() && index >= info->fields.getSize())) {
        noteOdd(ODD_STATIC, ZString("warning: skipping reference: static field ") +
                                longToString(index) + " of object " + longToString(from));
        return;
    }
    if (info->isArray()) {
        noteOdd(ODD_STATIC_OF_ARRAY,
                ZString("Warning: static field is reported for array class: ") +
                    longToString(from));
        return;
    }
    writer.writeByte(HEAP_RECORD_STATIC_FIELD);
    writer.writeOID(from);
    writer.writeOID(to);
    writer.writeInt(index);
}

void HeapWalk::writeClassReference(jvmtiObjectReferenceKind kind, jlong tag, jlong referrerTag,
                                   jint index) {
    const int from = recordedIndex(referrerTag);
    const int to = recordedIndex(tag);
    if (from == 0 || to == 0) {
        return;
    }
    int record = 0;
    switch (kind) {
    case JVMTI_REFERENCE_CLASS_LOADER:
        record = HEAP_RECORD_CLASS_LOADER;
        break;
    case JVMTI_REFERENCE_SIGNERS:
        record = HEAP_RECORD_SIGNERS;
        break;
    case JVMTI_REFERENCE_PROTECTION_DOMAIN:
        record = HEAP_RECORD_PROTECTION_DOMAIN;
        break;
    case JVMTI_REFERENCE_STATIC_FIELD:
        writeStaticField(from, to, index);
        return;
    case JVMTI_REFERENCE_CONSTANT_POOL:
        record = HEAP_RECORD_CONSTANT;
        break;
    default:
        noteOdd(ODD_REFERENCE,
                ZString("object_reference_callback: JVM passed improper reference kind: ") +
                    longToString(kind));
        return;
    }
    writer.writeByte(record);
    writer.writeOID(from);
    writer.writeOID(to);
    if (record == HEAP_RECORD_CONSTANT) {
        writer.writeInt(index);
    }
}

// Slot of an instance's field by the JVM's index, -1 for none.
int HeapWalk::slotOfField(int from, jint index) {
    if (classes.get(from) != nullptr) {
        return -1;
    }
    const _ClassInfo* const info = reinterpret_cast<const _ClassInfo*>(objects.get(from));
    if (!isGoodClassInfoPtr(info)) {
        noteOdd(ODD_CLASS_INFO, ZString("warning: classInfoPtr: ") +
                                    toHexadecimal(objects.get(from), POINTER_DIGITS));
        return -1;
    }
    if (index < 0 || index >= info->fields.getSize()) {
        return -1;
    }
    const int slot = info->fields[index]->slot;
    return slot < info->referenceSlots ? slot : -1;
}

void HeapWalk::writeFieldOrElement(jvmtiObjectReferenceKind kind, jlong tag, jlong referrerTag,
                                   jint index) {
    const int from = recordedIndex(referrerTag);
    const int to = recordedIndex(tag);
    if (from == 0 || to == 0) {
        return;
    }
    const bool isField = kind == JVMTI_REFERENCE_FIELD;
    const int slot = isField ? slotOfField(from, index) : index;
    if (slot < 0 || (!isField && static_cast<uintptr_t>(slot) >= objects.get(from))) {
        return;
    }
    writer.writeByte(isField ? HEAP_RECORD_FIELD : HEAP_RECORD_ELEMENT);
    writer.writeOID(from);
    writer.writeOID(to);
    writer.writeInt(slot);
}
