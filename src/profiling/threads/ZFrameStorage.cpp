#include "profiling/threads/ZFrameStorage.h"

#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/OldActivations.h"

ZFrameStorage& ourFrameStorage = *new ZFrameStorage();

namespace {

constexpr jint MAX_CURRENT_FRAMES = 1024;

// Stack of the current thread, and a deeper one; only the holder of ourLock touches them.
jvmtiFrameInfo _frames[MAX_CURRENT_FRAMES];
ZVector<jvmtiFrameInfo>& ourDeepFrames = *new ZVector<jvmtiFrameInfo>(1);

// The start phase gives no stacks, and a thread at its very beginning or end has none.
bool isWithoutStack(jvmtiError error) {
    return error == JVMTI_ERROR_WRONG_PHASE || error == JVMTI_ERROR_THREAD_NOT_ALIVE;
}

// The innermost frames of the current thread's stack, at most so many, innermost first.
const jvmtiFrameInfo* readStack(jint most, jint* count) {
    jvmtiFrameInfo* frames = _frames;
    jint room = MAX_CURRENT_FRAMES;
    for (;;) {
        const jvmtiError error = ourJVMTI->GetStackTrace(nullptr, 0, room, frames, count);
        if (isWithoutStack(error)) {
            *count = 0;
            return frames;
        }
        CHECK_JVMTI(error);
        if (*count < room || room >= most) {
            return frames;
        }
        room = most / 8 > room ? room * 8 : most;
        ourDeepFrames.clear();
        frames = ourDeepFrames.extend(room);
    }
}

// A constructor that works on objects of this class, or the agent's own call in one.
bool isConstruction(JNIEnv* env, jmethodID id, jclass type) {
    const MethodRecord* const row = ourDB->methodTable->getRecord(getMethodByID(env, id), true);
    if ((row->flags & METHOD_HIDDEN) != 0) {
        return true;
    }
    const char* const name = ourDB->stringPool->getText(row->methodNameStrID);
    jclass owner = nullptr;
    if (name == nullptr || strcmp(name, "<init>") != 0 ||
        ourJVMTI->GetMethodDeclaringClass(id, &owner) != JVMTI_ERROR_NONE) {
        return false;
    }
    const bool isSuper = env->IsAssignableFrom(type, owner) == JNI_TRUE;
    env->DeleteLocalRef(owner);
    return isSuper;
}

} // namespace

int getMethodFlags(int method) {
    const MethodRecord* row = ourDB->methodTable->getRecordUnlocked(method);
    return row == nullptr ? 0 : __atomic_load_n(&row->flags, __ATOMIC_RELAXED);
}

namespace {

// The frame that an inserted call stands in, if one of them is what runs; -1 if none. It carries
// calls, whatever the rows say: its class may have lost them since it was entered.
jint findCallerOfAgent(JNIEnv* env, const jvmtiFrameInfo* frames, jint count) {
    jint hidden = 0;
    while (hidden < count &&
           (getMethodFlags(getMethodByID(env, frames[hidden].method)) & METHOD_HIDDEN) != 0) {
        hidden++;
    }
    return hidden > 0 && hidden < count && ourOptions->onDemand ? hidden : -1;
}

} // namespace

bool readTracedCalls(JNIEnv* env, int most, ZVector<OpenCall>& calls) {
    calls.clear();
    jint count = 0;
    const jvmtiFrameInfo* const frames = readStack(most, &count);
    const jint caller = findCallerOfAgent(env, frames, count);
    for (jint i = count - 1; i >= 0; i--) {
        const int method = getMethodByID(env, frames[i].method);
        const int flags = getMethodFlags(method);
        if ((flags & METHOD_HIDDEN) != 0) {
            continue;
        }
        if (i == caller ||
            ((flags & METHOD_INSTRUMENTED) != 0 && carriesCalls(frames[i].method, method))) {
            calls.push({method, (flags & METHOD_FILTERED) != 0, (flags & METHOD_WALL_TIME) != 0,
                        OpenCall::UNKNOWN_PLACE});
        }
    }
    return count < most;
}

int ZFrameStorage::createFrame(int parent, int method) {
    const int frame = ourDB->frameTable->nextIndex();
    FrameRecord* row = record(frame);
    row->parent = parent;
    row->method = method;
    row->stamp = ourDB->currentStamp;
    record(parent)->stamp = ourDB->currentStamp;
    return frame;
}

int ZFrameStorage::appendChild(int frame, int last, int method) {
    const int created = createFrame(frame, method);
    FrameRecord* sibling = record(last);
    sibling->nextSibling = created;
    sibling->stamp = ourDB->currentStamp;
    return created;
}

int ZFrameStorage::getChild(int frame, int method) {
    FrameRecord* parent = record(frame);
    if (parent->firstChild == -1) {
        const int created = createFrame(frame, method);
        parent->firstChild = created;
        parent->stamp = ourDB->currentStamp;
        return created;
    }
    int child = parent->firstChild;
    for (int walked = 0; walked < LONGEST_WALK; walked++) {
        const FrameRecord* row = record(child);
        if (row->method == method) {
            return child;
        }
        if (row->nextSibling == -1) {
            return appendChild(frame, child, method);
        }
        child = row->nextSibling;
    }
    return getChildOfMany(frame, child, method);
}

int ZFrameStorage::getChildOfMany(int frame, int from, int method) {
    int last = lastOfMany.get(frame);
    if (last == 0) {
        childOfMany.put(keyOf(frame, getMethodIndex(from)), from);
        last = from;
    }
    // What was appended since.
    while (getNextSibling(last) != -1) {
        last = getNextSibling(last);
        childOfMany.put(keyOf(frame, getMethodIndex(last)), last);
    }
    lastOfMany.put(frame, last);
    const int known = childOfMany.get(keyOf(frame, method));
    return known != 0 ? known : appendChild(frame, last, method);
}

int ZFrameStorage::fillCurrentFrameJVMTI(JNIEnv* env, ZVector<OpenCall>* markers, bool* cut) {
    int frame = 0;
    if (markers != nullptr) {
        *cut = !readTracedCalls(env, MAX_CURRENT_FRAMES, *markers);
        for (int i = 0; i < markers->getSize(); i++) {
            const OpenCall& call = (*markers)[i];
            const bool collapses = call.filtered && i > 0 && (*markers)[i - 1].filtered;
            frame = collapses ? frame : getChild(frame, call.method);
        }
        return frame;
    }
    jint count = 0;
    const jvmtiFrameInfo* const frames = readStack(MAX_CURRENT_FRAMES, &count);
    return fillFrames(env, frames, 0, count);
}

int ZFrameStorage::fillFrames(JNIEnv* env, const jvmtiFrameInfo* frames, jint from, jint count) {
    int frame = 0;
    for (jint i = count - 1; i >= from; i--) {
        const int method = getMethodByID(env, frames[i].method);
        if ((getMethodFlags(method) & METHOD_HIDDEN) == 0) {
            frame = getChild(frame, method);
        }
    }
    return frame;
}

int ZFrameStorage::fillCreatorsFrame(JNIEnv* env, jobject object) {
    jint count = 0;
    const jvmtiFrameInfo* const frames = readStack(MAX_CURRENT_FRAMES, &count);
    jclass type = env->GetObjectClass(object);
    jint from = 0;
    while (from < count && isConstruction(env, frames[from].method, type)) {
        from++;
    }
    env->DeleteLocalRef(type);
    return fillFrames(env, frames, from, count);
}

int ZFrameStorage::fillCurrentFrameJVMTIFromStackInfo(JNIEnv* env, const jvmtiStackInfo& stackInfo,
                                                      StackMemory* memory) {
    const jvmtiFrameInfo* innermost = stackInfo.frame_buffer;
    jint left = stackInfo.frame_count;
    int frame = 0;
    if (memory != nullptr) {
        const int common = memory->commonDepth(innermost, left);
        memory->truncate(common);
        left -= common;
        frame = common == 0 ? 0 : memory->frames.peek();
    }
    for (jint i = left - 1; i >= 0; i--) {
        frame = getChild(frame, getMethodByID(env, innermost[i].method));
        if (memory != nullptr) {
            memory->methods.push(innermost[i].method);
            memory->frames.push(frame);
        }
    }
    return frame;
}

int ZFrameStorage::getVMStartFrame() {
    if (vmStartFrame == -1) {
        vmStartFrame =
            getChild(0, ZMethod::getByName("", "<Objects allocated during JVM startup>", "()"));
    }
    return vmStartFrame;
}

int ZFrameStorage::skipHidden(int frame) {
    while (frame > 0 && (getMethodFlags(getMethodIndex(frame)) & METHOD_HIDDEN) != 0) {
        frame = getParent(frame);
    }
    return frame < 0 ? 0 : frame;
}

int findInstrumentedMethod(int frame) {
    if (frame < 1) {
        return 0;
    }
    const auto isCallback = [](int at) {
        return (getMethodFlags(ourFrameStorage.getMethodIndex(at)) & METHOD_PROBE_CALLBACK) != 0;
    };
    int at = frame;
    while (at > 0 && !isCallback(at)) {
        at = ourFrameStorage.getParent(at);
    }
    if (at <= 0) {
        at = ourFrameStorage.getParent(frame);
    }
    while (at > 0 && isCallback(at)) {
        at = ourFrameStorage.getParent(at);
    }
    return at < 0 ? 0 : at;
}
