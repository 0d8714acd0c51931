#include "snapshot/HeapWalk.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "profiling/memory/Generations.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"
#include "snapshot/PrimitiveBlock.h"
#include "snapshot/TagEnvironment.h"

namespace {

constexpr jint MAX_FRAMES = 10000;
constexpr int MOST_ODD_LINES = 10;
constexpr int PROGRESS_HEAP_HEADER = 7;
constexpr int PROGRESS_TAGGED = 10;
constexpr int PROGRESS_THREADS = 15;
constexpr int PROGRESS_CLASSES = 20;
constexpr int COUNT_BYTES = 4;

jvmtiIterationControl JNICALL updateObjectsPureTags(jlong classTag, jlong, jlong* tag,
                                                    void* userData) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    return walk->guarded([&] { walk->tagObject(classTag, tag); }) ? JVMTI_ITERATION_CONTINUE
                                                                  : JVMTI_ITERATION_ABORT;
}

jvmtiIterationControl JNICALL updateClassesPureTags(jlong classTag, jlong, jlong* tag,
                                                    void* userData) {
    HeapWalk* const walk = static_cast<HeapWalk*>(userData);
    return walk->guarded([&] { walk->tagClassObject(classTag, tag); }) ? JVMTI_ITERATION_CONTINUE
                                                                       : JVMTI_ITERATION_ABORT;
}

void debugLine(const ZString& text) {
    if (Options::isDebug("memsnapshot")) {
        Logger::message(ZString("memsnapshot: ") + text);
    }
}

} // namespace

HeapWalk::HeapWalk(JNIEnv* jniEnv, SnapshotWriter& snapshotWriter, Progress& progressOfCapture)
    : env(jniEnv), writer(snapshotWriter), progress(progressOfCapture), oddCounts(),
      headerPosition(0), allocatorCount(0), counter(-1),
      classClass(jniEnv->GetObjectClass(ourClassCallbackGlobalRef)), classClassTag(-1),
      classObjectTags(1024), hasLocals(true), threads(16), locals(512), lastThreadTag(0),
      lastDepth(0), lastFrame(0), objectCount(0), infoOrLength(nullptr), recorded(nullptr),
      primitives(nullptr) {}

HeapWalk::~HeapWalk() {
    for (int slot = 0; slot < locals.getCapacity(); slot++) {
        if (locals.isFull(slot)) {
            delete locals.valueAt(slot);
        }
    }
    delete[] infoOrLength;
    delete[] recorded;
    env->DeleteLocalRef(classClass);
}

void HeapWalk::noteOdd(OddKind kind, const ZString& text) {
    if (oddCounts[kind]++ < MOST_ODD_LINES) {
        Logger::message(text);
    }
}

void HeapWalk::rethrow() {
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void HeapWalk::write(const ZString& path) {
    ourFrameStorage.getVMStartFrame(); // objects of the start may name it
    writeHeapHeader();
    // The objects that have no generation yet get it with their index.
    Generations::advanceGeneration(env, ZString("Captured snapshot ") + path, false);
    tagAllObjects();
    collectThreads();
    collectClasses();
    collectUnlistedClasses();
    classes.complete();
    allocateTables();
    writeObjects();
    writeClasses();
    writeReferences();
    if (ourIsIBM || ourIsJRockit || ourIs6u4OrNewer) {
        writePrimitives();
    }
    for (int kind = 0; kind < ODD_KINDS; kind++) {
        if (oddCounts[kind] > MOST_ODD_LINES) {
            Logger::message(ZString("warning: heap snapshot: only the first ") +
                            longToString(MOST_ODD_LINES) + " of " + longToString(oddCounts[kind]) +
                            " warnings of one kind are in the log");
        }
    }
}

void HeapWalk::writeHeapHeader() {
    writer.writeByte(SNAPSHOT_HEAP_TAG);
    headerPosition = writer.getPosition();
    writer.writeInt(0); // objects
    writer.writeInt(0); // strings: always 0
    writer.writeInt(0); // allocators
    progress.updateProgress(PROGRESS_HEAP_HEADER);
}

void HeapWalk::patchHeader() {
    writer.patchInt(headerPosition, objectCount);
    writer.patchInt(headerPosition + 2 * COUNT_BYTES, allocatorCount);
}

void HeapWalk::tagObject(jlong classTag, jlong* tag) {
    if (classTag != classClassTag) {
        *tag = ObjectTags::updateTag(*tag, &counter);
    }
}

void HeapWalk::tagClassObject(jlong classTag, jlong* tag) {
    if (classTag == classClassTag && *tag != classClassTag) {
        *tag = ObjectTags::updateTag(*tag, &counter);
        classObjectTags.push(*tag);
    }
}

void HeapWalk::tagAllObjects() {
    if (!ourIsOldIBM) {
        jlong tag = 0;
        CHECK_JVMTI(ourJVMTI->GetTag(classClass, &tag));
        classClassTag = ObjectTags::updateTag(tag, &counter);
        CHECK_JVMTI(ourJVMTI->SetTag(classClass, classClassTag));
    }
    iterateOverHeapEither(ourJVMTI, updateObjectsPureTags, this);
    rethrow();
    classes.begin(-counter);
    tagClassObjects();
    rethrow();
    progress.updateProgress(PROGRESS_TAGGED);
}

void HeapWalk::tagClassObjects() {
    if (ourIsJRockit || ourIsIBM) {
        iterateOverHeapEither(ourJVMTI, updateClassesPureTags, this);
        return;
    }
    // The same objects, without a look at the tags of all the others.
    CHECK_JVMTI(ourJVMTI->IterateOverInstancesOfClass(classClass, JVMTI_HEAP_OBJECT_EITHER,
                                                      updateClassesPureTags, this));
}

void HeapWalk::collectLocals(const jvmtiStackInfo& stack) {
    for (jint i = 0; hasLocals && i < stack.frame_count; i++) {
        const jmethodID method = stack.frame_buffer[i].method;
        if (method == nullptr || locals.contains(method)) {
            continue;
        }
        jint count = 0;
        JvmtiMemory<jvmtiLocalVariableEntry> table;
        const jvmtiError error = ourJVMTI->GetLocalVariableTable(method, &count, table.receive());
        hasLocals = error != JVMTI_ERROR_MUST_POSSESS_CAPABILITY;
        locals.put(method, nullptr);
        if (error != JVMTI_ERROR_NONE) {
            continue; // a native method, one without such a table, or one that is gone
        }
        ZVector<StackLocal>* const found = new ZVector<StackLocal>(count > 0 ? count : 1);
        locals.put(method, found);
        for (jint k = 0; k < count; k++) {
            const jvmtiLocalVariableEntry& entry = table.get()[k];
            found->push({entry.slot, ourDB->stringPool->getDBIndex(entry.name, true)});
            deallocateQuietly(entry.name);
            deallocateQuietly(entry.signature);
            deallocateQuietly(entry.generic_signature);
        }
    }
}

void HeapWalk::collectThreads() {
    jint count = 0;
    JvmtiMemory<jvmtiStackInfo> stacks;
    if (ourJVMTI->GetAllStackTraces(MAX_FRAMES, stacks.receive(), &count) != JVMTI_ERROR_NONE) {
        return;
    }
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        const jvmtiStackInfo& stack = stacks.get()[i];
        const ThreadInfo* info = getStoredThreadInfo(stack.thread);
        jlong tag = 0;
        CHECK_JVMTI(ourJVMTI->GetTag(stack.thread, &tag));
        env->DeleteLocalRef(stack.thread);
        if (info != nullptr && tag != 0) {
            const int frame = ourFrameStorage.fillCurrentFrameJVMTIFromStackInfo(env, stack);
            threads.put(tag, {info->trn, frame});
        }
        collectLocals(stack);
        progress.updateProgress(PROGRESS_TAGGED +
                                static_cast<int>(static_cast<long>(i) * 5 / count));
    }
    progress.updateProgress(PROGRESS_THREADS);
}

void HeapWalk::addClass(jclass type) {
    _ClassInfo* const info = new _ClassInfo(env, type);
    if (!classes.add(ObjectTags::indexOf(info->tag), info)) {
        noteOdd(ODD_CLASS, ZString("warning: skipping class with tag ") + longToString(info->tag));
        delete info;
    }
}

void HeapWalk::collectClasses() {
    jint count = 0;
    JvmtiMemory<jclass> loaded;
    CHECK_JVMTI(ourJVMTI->GetLoadedClasses(&count, loaded.receive()));
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        jlong tag = 0;
        CHECK_JVMTI(ourJVMTI->GetTag(loaded.get()[i], &tag));
        // An index beyond the last one stems from an earlier snapshot.
        const int index = ObjectTags::indexOf(tag);
        if (index <= 0 || index >= -counter || ourIsOldIBM) {
            const jlong updated = ObjectTags::updateTag(tag, &counter);
            CHECK_JVMTI(ourJVMTI->SetTag(loaded.get()[i], updated));
            CHECK_JVMTI(ourJVMTI->GetTag(loaded.get()[i], &tag));
            Logger::assertEquals(tag, updated, VDK_HERE);
        }
    }
    for (jint i = 0; i < count; i++) {
        addClass(loaded.get()[i]);
        env->DeleteLocalRef(loaded.get()[i]);
    }
}

// Class objects that the heap holds and GetLoadedClasses did not give: those of primitive types, of
// archived classes that are not loaded. The JVM finds an object by its tag in time proportional to
// all tagged objects, so an environment that tags class objects alone serves for it.
void HeapWalk::collectUnlistedClasses() {
    int missing = 0;
    for (int i = 0; i < classObjectTags.getSize(); i++) {
        missing += classOf(classObjectTags[i]) == nullptr;
    }
    debugLine(longToString(missing) + " class objects are not listed");
    if (missing == 0) {
        return;
    }
    TagEnvironment search;
    ZVector<jobject> found;
    search.findInstances(classClass, found);
    announceLocalReferences(env, found.getSize());
    for (int i = 0; i < found.getSize(); i++) {
        jlong tag = 0;
        CHECK_JVMTI(ourJVMTI->GetTag(found[i], &tag));
        if (tag != 0 && classOf(tag) == nullptr) {
            debugLine(ZString("  i=") + longToString(i) + " tag=" + longToString(tag));
            addClass(static_cast<jclass>(found[i]));
        }
        env->DeleteLocalRef(found[i]);
    }
    for (int i = 0; i < classObjectTags.getSize(); i++) {
        if (classOf(classObjectTags[i]) == nullptr) {
            noteOdd(ODD_CLASS_OBJECT, ZString("warning: GetObjectsWithTags for ") +
                                          longToString(classObjectTags[i]) + " count = 0");
        }
    }
}

void HeapWalk::allocateTables() {
    objectCount = -counter - 1;
    infoOrLength = new uintptr_t[static_cast<size_t>(objectCount) + 1]();
    recorded = new uint64_t[static_cast<size_t>(objectCount) / 64 + 1]();
    progress.updateProgress(PROGRESS_CLASSES);
}
