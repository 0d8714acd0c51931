#pragma once

#include "core/ground/ZMap.h"
#include "core/ground/ZString.h"
#include "db/SnapshotWriter.h"
#include "snapshot/ClassInfo.h"
#include "snapshot/ObjectTable.h"
#include "snapshot/ObjectTags.h"
#include "snapshot/PrimitiveBlock.h"

#include <exception>
#include <jvmti.h>

class InstanceCounting;
class Progress;

// What is known of a thread's stack when it was stored: the frame of its top.
struct ThreadAndFrame {
    int trn;
    int frame;
};

// A local variable of a method.
struct StackLocal {
    int slot;
    int nameStrID;
};

// HeapWalk writes the heap sections of a snapshot, from the heap header to the primitive block.
//
// DESCRIPTION
//   The JVM gives objects no identity that could go into a file. So every object is tagged with a
//   dense index, and later passes name objects by their tags. Everything that the walk knows goes
//   with this object; tags stay, for their generations (see Generations).
//   Caller holds ourLock, and the application stands still as far as it can be suspended. What the
//   JVM reports oddly is logged and left out, and the walk goes on.
// IMPLEMENTATION
//   What a capture costs is the JVM's search for the tag of each object that it shows, and of its
//   class, so there are few passes, and none shows an object that has nothing to tell. The class
//   objects are found and tagged ahead; with the classes known, the pass that tags the objects
//   writes their records as well, and puts their values aside, which come last in the file. Then a
//   walk over roots and class objects alone, and one over all references.
//   Callbacks run on the VM thread at a safepoint: they write, read the maps and take no lock but
//   that of the ObjectEnumerator, which nobody holds over a call into the JVM. An exception in one
//   ends the pass and goes on in the caller of it.
class HeapWalk {
public:
    // Tells the counting, if there is one, of all objects. The scratch file is empty, open for
    // reading and writing, and the caller's.
    HeapWalk(JNIEnv* jniEnv, SnapshotWriter& snapshotWriter, int scratch,
             Progress& progressOfCapture, InstanceCounting* countingOfObjects);
    ~HeapWalk();
    HeapWalk(const HeapWalk&) = delete;
    HeapWalk& operator=(const HeapWalk&) = delete;

    // The path names the generation that begins with the snapshot.
    void write(const ZString& path);
    // Stores the counts that the header left open.
    void patchHeader();

    // What follows is for the callbacks.

    // Runs the body of a callback; false after an exception, then or before.
    template <typename Body>
    bool guarded(Body&& body) noexcept;
    void writeObject(jlong classTag, jlong size, jlong* tag, jint length);
    void writeHeapRoot(jvmtiHeapRootKind kind, jlong tag);
    void writeStackReference(jvmtiHeapRootKind kind, jlong tag, jlong threadTag, jint depth,
                             jmethodID method, jint slot);
    void writeClassReference(jvmtiObjectReferenceKind kind, jlong tag, jlong referrerTag,
                             jint index);
    void writeFieldOrElement(jvmtiObjectReferenceKind kind, jlong tag, jlong referrerTag,
                             jint index);
    // Whether the pass over roots and class objects goes on into the object.
    bool isFollowedForClasses(jlong tag) const;
    // Whether the pass over references goes on into an object of the class: one without references
    // has nothing to tell but its class, which the first of its class tells.
    bool isFollowedForReferences(jlong classTag);
    void putField(jvmtiHeapReferenceKind kind, jint index, jlong classTag, jlong tag,
                  const jvalue& value, jvmtiPrimitiveType type);
    void putArray(jlong tag, jint count, jvmtiPrimitiveType type, const void* elements);

private:
    // Odd things that a JVM may report; of each kind a few are logged.
    enum OddKind {
        ODD_CLASS,
        ODD_TWICE,
        ODD_ROOT,
        ODD_STACK_ROOT,
        ODD_REFERENCE,
        ODD_STATIC,
        ODD_STATIC_OF_ARRAY,
        ODD_CLASS_INFO,
        ODD_FIELD_TYPE,
        ODD_ARRAY_TYPE,
        ODD_KINDS
    };
    void noteOdd(OddKind kind, const ZString& text);
    void rethrow();

    // Ahead of the records: HeapWalk.cpp.
    void writeHeapHeader();
    void collectClasses();
    void findClassObjects();
    void tagClassObjects();
    void collectThreads();
    void collectLocals(const jvmtiStackInfo& stack);
    void addClass(jclass type);
    void releaseClassObjects();

    // The records: HeapRecords.cpp.
    void writeObjects();
    void writeObjectRecord(int record, jlong classTag, jlong size, jlong tag, int length);
    void writeAllocator(jlong tag);
    void writeClasses();
    void writeClass(int index, const _ClassInfo& info);
    void writeFieldList(const _ClassInfo& info, bool isStatic, bool isReference);

    // References and roots: HeapReferences.cpp.
    void writeReferences();
    void writeRoot(int type, jlong tag, ThreadAndFrame thread, int threadIndex, int variable);
    void writeStaticField(int from, int to, jint index);
    int frameAt(jlong threadTag, const ThreadAndFrame& thread, jint depth);
    int slotOfField(int from, jint index);

    // Primitive values: HeapPrimitives.cpp.
    static bool hasPrimitives();
    void collectValuesWith(jvmtiHeapCallbacks& callbacks);
    void writePrimitives();

    // Index of an object that has a record; 0 for any other.
    int recordedIndex(jlong tag) const {
        const int index = ObjectTags::indexOf(tag);
        return objects.contains(index) ? index : 0;
    }
    // The class of an object by its class's tag; null for none.
    _ClassInfo* classOf(jlong classTag) const { return classes.get(ObjectTags::indexOf(classTag)); }

    JNIEnv* env;
    SnapshotWriter& writer;
    Progress& progress;
    InstanceCounting* counting;
    std::exception_ptr failure; // of a callback
    int oddCounts[ODD_KINDS];

    long headerPosition; // of the object count
    int allocatorCount;
    int counter;         // of updateTag
    jclass classClass;   // local reference to java.lang.Class
    jlong classClassTag; // -1 where it is no tag
    ClassInfos classes;
    ZVector<jobject> classObjects;      // local references, java.lang.Class the first
    int listedClasses;                  // the first ones are those of GetLoadedClasses
    bool hasLocals;                     // the JVM tells local variables
    ZMap<long, ThreadAndFrame> threads; // by tag
    ZMap<_jmethodID*, ZVector<StackLocal>*> locals;
    jlong lastThreadTag; // of frameAt
    jint lastDepth;
    int lastFrame;
    jlong ownThreadTag;

    int objectCount;     // highest index
    ObjectTable objects; // the _ClassInfo of an instance, the length of an array
    PrimitiveBlock primitives;
    int fieldOwner; // the object whose values came last
    bool ownerIsClass;
    const _ClassInfo* ownerInfo; // tells its fields; null if nothing does
};

// Implementation

template <typename Body>
bool HeapWalk::guarded(Body&& body) noexcept {
    if (failure) {
        return false;
    }
    try {
        body();
        return true;
    } catch (...) {
        failure = std::current_exception();
        return false;
    }
}
