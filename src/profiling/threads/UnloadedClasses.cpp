#include "profiling/threads/UnloadedClasses.h"

#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "db/RowSet.h"
#include "platform/Platform.h"
#include "probes/SignatureUtil.h"
#include "profiling/threads/MethodLookup.h"

namespace {

// A walk is worth it from so many unloaded classes on, and when no more than so many rows and
// classes come to each of them.
constexpr int LEAST_UNLOADED = 1000;
constexpr long SLOTS_PER_UNLOADED = 1024;
// What it takes to ask the JVM for a class's name, in rows looked at.
constexpr long SLOTS_PER_CLASS = 64;

struct Definition {
    long thread;
    uintptr_t place;
    int classNameStrID;
};
ZVector<Definition>& ourDefinitions = *new ZVector<Definition>();

constexpr int UNKNOWN = -1;
int ourUnloadedBefore = UNKNOWN; // at the last walk, or when first told
long ourSlotsOfLastWalk = 0;

template <typename Predicate>
void removeDefinitions(Predicate&& isOver) {
    int kept = 0;
    for (int i = 0; i < ourDefinitions.getSize(); i++) {
        if (!isOver(ourDefinitions[i])) {
            ourDefinitions[kept++] = ourDefinitions[i];
        }
    }
    ourDefinitions.removeRange(kept, ourDefinitions.getSize());
}

void markName(RowSet& names, jclass type) {
    JvmtiMemory<char> signature;
    const jvmtiError error = ourJVMTI->GetClassSignature(type, signature.receive(), nullptr);
    CHECK_JVMTI(error);
    // Arrays have no methods of their own.
    if (signature.get()[0] == 'L') {
        const ZString name = SignatureUtil::convertClassSignatureToFullName(signature.get());
        names.mark(ourDB->stringPool->getDBIndex(name.c_str(), false));
    }
}

// Names of the loaded classes and of those being defined; gives the number of the former, negative
// if the JVM is ending.
int markLoadedClasses(JNIEnv* env, RowSet& names) {
    jint count = 0;
    JvmtiMemory<jclass> classes;
    const jvmtiError error = ourJVMTI->GetLoadedClasses(&count, classes.receive());
    if (error == JVMTI_ERROR_WRONG_PHASE) {
        return -1;
    }
    CHECK_JVMTI(error);
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        markName(names, classes.get()[i]);
        env->DeleteLocalRef(classes.get()[i]);
    }
    for (int i = 0; i < ourDefinitions.getSize(); i++) {
        names.mark(ourDefinitions[i].classNameStrID);
    }
    return count;
}

} // namespace

void UnloadedClasses::definitionBegins(int classNameStrID, uintptr_t place) {
    const long thread = Platform::getCurrentThreadNativeID();
    removeDefinitions([&](const Definition& definition) {
        return definition.thread == thread && definition.place <= place;
    });
    ourDefinitions.push({thread, place, classNameStrID});
}

void UnloadedClasses::threadEnds() {
    const long thread = Platform::getCurrentThreadNativeID();
    removeDefinitions([&](const Definition& definition) { return definition.thread == thread; });
}

bool UnloadedClasses::freeMethods(JNIEnv* env) {
    RowSet names(ourDB->stringTable->getCapacity());
    const int classes = markLoadedClasses(env, names);
    if (classes < 0) {
        return false;
    }
    RowSet named(ourDB->methodTable->getIndexPool().getEnd());
    long slots =
        ourDB->frameTable->eachSlot([&](const FrameRecord& frame) { named.mark(frame.method); });
    slots += ourDB->methodTable->eachSlot([](const MethodRecord&) {});
    ourDB->methodTable->eachRecord([&](int index, const MethodRecord& row) {
        if (row.stamp > 0 && !named.contains(index) && !names.contains(row.classNameStrID)) {
            ZMethod::free(index);
        }
    });
    ZMethod::forgetHandles();
    ourSlotsOfLastWalk = slots + classes * SLOTS_PER_CLASS;
    return true;
}

void UnloadedClasses::freeMethodsIfEarned(JNIEnv* env, int unloadedClasses) {
    if (ourUnloadedBefore == UNKNOWN) {
        ourUnloadedBefore = unloadedClasses;
    }
    const long since = static_cast<long>(unloadedClasses) - ourUnloadedBefore;
    if (since >= LEAST_UNLOADED && since * SLOTS_PER_UNLOADED >= ourSlotsOfLastWalk &&
        freeMethods(env)) {
        ourUnloadedBefore = unloadedClasses;
        ourDB->stringPool->collectIfEarned(static_cast<int>(since));
    }
}

void UnloadedClasses::reset() {
    ourDefinitions.clear();
    ourUnloadedBefore = UNKNOWN;
    ourSlotsOfLastWalk = 0;
}
