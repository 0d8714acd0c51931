#pragma once

#include "core/ground/ZSet.h"
#include "core/ground/ZVector.h"

#include <jvmti.h>

// What a heap walk knows of the classes: names, places in the hierarchy, and the fields by the
// indices under which the JVM reports them in heap callbacks.

struct _FieldInfo {
    int slot;           // among the instance reference fields, inherited ones first; -1 for others
    char primitiveType; // first letter of the signature, 0 for a reference
    int offset;         // byte in the region of instance or of static primitives
    int nameStrID;
    int modifiers;

    bool isStatic() const;
};

class _ClassInfo {
public:
    // Asks the JVM about the class itself; inherited fields come with addInheritedFields. Runs no
    // Java code. Caller holds ourLock.
    _ClassInfo(JNIEnv* env, jclass type);
    _ClassInfo(const _ClassInfo&) = delete;
    _ClassInfo& operator=(const _ClassInfo&) = delete;

    bool isArray() const { return isPrimitiveArray || isObjectArray; }

    jlong tag;
    int nameStrID;
    jlong superTag; // 0 if none
    bool isPrimitiveArray;
    bool isObjectArray;
    bool isClassClass; // java.lang.Class itself
    int elementSize;   // of a primitive array
    jlong size;        // of the class object
    ZVector<jlong> interfaces;
    // By the JVM's index: those of all interfaces, of the superclasses, and own ones, each class in
    // the order of GetClassFields. Owned by their classes. Empty if the class is not prepared.
    ZVector<_FieldInfo*> fields;
    int firstOwnField;
    int referenceSlots;
    int instancePrimitiveSize;
    int staticPrimitiveSize; // with that of superclasses and interfaces, whose part stays zero

    long countedAs;   // number of its objects' count, 0 if they are not counted
    bool wasFollowed; // by the walk over references, into one of its objects

    // No class info lies below; tells lengths of arrays from pointers where either may stand.
    static const _ClassInfo* ourMinAddress;

private:
    friend class ClassInfos;

    void readSignature(jclass type);
    void readSuperclass(JNIEnv* env, jclass type);
    void readInterfaces(JNIEnv* env, jclass type);
    void readOwnFields(jclass type);
    void addFields(_ClassInfo* declarer);

    bool isPrepared;
    bool isInterface;
    ZVector<_FieldInfo> ownFields; // pointers into it are held
};

// Not a length. What is neither is logged.
bool isGoodClassInfoPtr(const _ClassInfo* info);

// The classes of a walk by the snapshot index of their class objects.
class ClassInfos {
public:
    ClassInfos() : firstIndex(0), infos(1024), first(nullptr) {}
    ~ClassInfos();
    ClassInfos(const ClassInfos&) = delete;
    ClassInfos& operator=(const ClassInfos&) = delete;

    // All class objects have this index or a higher one, but java.lang.Class, which has 1.
    void begin(int lowestIndex) { firstIndex = lowestIndex; }
    // Null for an index that is no known class's.
    _ClassInfo* get(int index) const;
    // Takes it over; false, and nothing done, for an index that no class can have or one has.
    bool add(int index, _ClassInfo* info);
    // Gives the classes that were added since the last call their inherited fields.
    void complete();
    // Calls visit(index, info) for every class.
    template <typename Visitor>
    void each(Visitor&& visit) const;

private:
    static constexpr int CLASS_CLASS_INDEX = 1;

    void addClassFields(_ClassInfo* to, jlong fromTag, ZSet<long>& visited);

    int firstIndex;
    ZVector<int> incomplete;    // indices
    ZVector<_ClassInfo*> infos; // from firstIndex on; null where none is known
    _ClassInfo* first;          // of java.lang.Class
};

// Implementation

template <typename Visitor>
void ClassInfos::each(Visitor&& visit) const {
    if (first != nullptr) {
        visit(CLASS_CLASS_INDEX, first);
    }
    for (int i = 0; i < infos.getSize(); i++) {
        if (infos[i] != nullptr) {
            visit(firstIndex + i, infos[i]);
        }
    }
}
