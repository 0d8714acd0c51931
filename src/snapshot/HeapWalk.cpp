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
#include "profiling/memory/InstanceCounting.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"
#include "snapshot/TagEnvironment.h"

namespace {

constexpr jint MAX_FRAMES = 10000;
constexpr int MOST_ODD_LINES = 10;
constexpr int PROGRESS_HEAP_HEADER = 7;
constexpr int PROGRESS_TAGGED = 10;
constexpr int PROGRESS_THREADS = 15;
constexpr int COUNT_BYTES = 4;
constexpr int FIRST_OTHER_CLASS = 2; // behind java.lang.Class

void debugLine(const ZString& text) {
    if (Options::isDebug("memsnapshot")) {
        Logger::message(ZString("memsnapshot: ") + text);
    }
}

} // namespace

HeapWalk::HeapWalk(JNIEnv* jniEnv, SnapshotWriter& snapshotWriter, int scratch,
                   Progress& progressOfCapture, InstanceCounting* countingOfObjects)
    : env(jniEnv), writer(snapshotWriter), progress(progressOfCapture), counting(countingOfObjects),
      oddCounts(), headerPosition(0), allocatorCount(0), counter(-1),
      classClass(jniEnv->GetObjectClass(ourClassCallbackGlobalRef)), classClassTag(-1),
      classObjects(1024), listedClasses(0), hasLocals(true), threads(16), locals(512),
      lastThreadTag(0), lastDepth(0), lastFrame(0), ownThreadTag(0), objectCount(0),
      primitives(scratch), fieldOwner(0), ownerIsClass(false), ownerInfo(nullptr) {}

HeapWalk::~HeapWalk() {
    for (int slot = 0; slot < locals.getCapacity(); slot++) {
        if (locals.isFull(slot)) {
            delete locals.valueAt(slot);
        }
    }
    releaseClassObjects();
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
    collectClasses();
    writeObjects();
    collectThreads();
    writeClasses();
    writeReferences();
    if (hasPrimitives()) {
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
    jthread current = nullptr;
    CHECK_JVMTI(ourJVMTI->GetCurrentThread(&current));
    CHECK_JVMTI(ourJVMTI->GetTag(current, &ownThreadTag));
    env->DeleteLocalRef(current);
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
    info->countedAs = counting == nullptr ? 0 : InstanceCounting::numberOf(type);
    if (!classes.add(ObjectTags::indexOf(info->tag), info)) {
        noteOdd(ODD_CLASS, ZString("warning: skipping class with tag ") + longToString(info->tag));
        delete info;
    }
}

void HeapWalk::collectClasses() {
    findClassObjects();
    tagClassObjects();
    classes.begin(FIRST_OTHER_CLASS);
    for (int i = 0; i < classObjects.getSize(); i++) {
        addClass(static_cast<jclass>(classObjects[i]));
    }
    classes.complete();
}

// The heap holds class objects that GetLoadedClasses does not give: those of primitive types, of
// archived classes that are not loaded.
void HeapWalk::findClassObjects() {
    TagEnvironment search;
    ZVector<jobject> found;
    search.findInstances(classClass, found);
    announceLocalReferences(env, 2 * found.getSize());
    search.take(classClass);
    classObjects.push(env->NewLocalRef(classClass));
    jint count = 0;
    JvmtiMemory<jclass> loaded;
    CHECK_JVMTI(ourJVMTI->GetLoadedClasses(&count, loaded.receive()));
    for (jint i = 0; i < count; i++) {
        if (env->IsSameObject(loaded.get()[i], classClass)) {
            env->DeleteLocalRef(loaded.get()[i]);
        } else {
            search.take(loaded.get()[i]);
            classObjects.push(loaded.get()[i]);
        }
    }
    listedClasses = classObjects.getSize();
    for (int i = 0; i < found.getSize(); i++) {
        if (search.take(found[i])) {
            classObjects.push(found[i]);
        } else {
            env->DeleteLocalRef(found[i]);
        }
    }
    debugLine(longToString(classObjects.getSize() - listedClasses) +
              " class objects are not listed");
}

// They get the first indices, java.lang.Class the very first; the same ones if it is done again.
void HeapWalk::tagClassObjects() {
    ourHasTaggedObjects = true;
    int classCounter = -1;
    for (int i = 0; i < classObjects.getSize(); i++) {
        jlong tag = 0;
        CHECK_JVMTI(ourJVMTI->GetTag(classObjects[i], &tag));
        tag = ObjectTags::updateTag(tag, &classCounter);
        CHECK_JVMTI(ourJVMTI->SetTag(classObjects[i], tag));
        if (i == 0 && !ourIsOldIBM) {
            classClassTag = tag;
        }
        if (i >= listedClasses) {
            debugLine(ZString("  i=") + longToString(i) + " tag=" + longToString(tag));
        }
    }
    counter = classCounter < counter ? classCounter : counter;
}

void HeapWalk::releaseClassObjects() {
    while (!classObjects.isEmpty()) {
        env->DeleteLocalRef(classObjects.pop());
    }
}
