#include "profiling/cpu/J2EEHelper.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/ZMap.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/PooledStrings.h"
#include "profiling/cpu/TracedStack.h"
#include "profiling/cpu/WallTimeCorrector.h"
#include "profiling/events/ClassNameTags.h"
#include "profiling/threads/CarrierThread.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/VirtualThreads.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

constexpr int INITIAL_CAPACITY = 64;
// Names that tags hold; beyond that all tags are taken away, as their strings would stay for ever.
constexpr int MOST_TAGGED_NAMES = 100000;
// In the place of a carrier's number for an event whose time can't be told.
constexpr int NO_CARRIER = 0;

struct VirtualEvent {
    J2EERecord* record;
    int carrier; // TRN
    long startNs;
};

// Open events of virtual threads, outermost first, by the JVM's number of the thread. ourLock.
ZMap<long, ZVector<VirtualEvent>*>& ourVirtualEvents =
    *new ZMap<long, ZVector<VirtualEvent>*>(INITIAL_CAPACITY);

// Names of objects: the tag is a row of string.
ClassNameTags& ourNameTags = *new ClassNameTags(ourJVMTI3);

bool isOn() {
    return (ourStatus & CPU_J2EE_BIT) != 0;
}

bool isLive() {
    return getJVMTIPhase() == JVMTI_PHASE_LIVE && !ourVMDeathCalled;
}

// -1 if there is none.
int getCurrentFrame(JNIEnv* env) {
    if ((ourStatus & CPU_COUNTS_BIT) == 0) {
        return ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
    }
    static ZVector<OpenCall>& ourMarkers = *new ZVector<OpenCall>(64);
    bool cut = false;
    return ourFrameStorage.fillCurrentFrameJVMTI(env, &ourMarkers, &cut);
}

bool isAtOrAbove(int ancestor, int frame) {
    while (frame > 0 && frame != ancestor) {
        frame = ourFrameStorage.getParent(frame);
    }
    return frame > 0;
}

// What the thread has been charged with in the frame, of which callees have their part.
long readTime(ThreadInfo* info, int frame) {
    foldTracedTime(info, frame);
    if (info->needsWallTimeCorrection) {
        foldTracedTimes(info);
        WallTimeCorrector corrector;
        corrector.scheduleForCorrection(info);
        corrector.correctWallTimes();
    }
    return info->getCPUProfilingRecord(frame, true)->timeNs;
}

// The open events of the current thread.
class OpenEvents {
public:
    virtual ~OpenEvents() = default;
    virtual int getSize() const = 0;
    virtual int frameAt(int i) const = 0;
    virtual void open(int name, int type, int frame) = 0;
    // Takes the innermost event out, and charges it with what the frame's row has grown by.
    virtual void close(int frame) = 0;
    // Takes it out without time.
    virtual void drop() = 0;

    // Drops what an exception has left: everything that isn't of this frame or one above.
    void dropLeft(int frame) {
        while (getSize() > 0 && !isAtOrAbove(frameAt(getSize() - 1), frame)) {
            drop();
        }
    }
    // Drops what lies above the event of this frame, if it has one.
    void dropAbove(int frame) {
        int own = getSize() - 1;
        while (own >= 0 && frameAt(own) != frame) {
            own--;
        }
        while (own >= 0 && getSize() - 1 > own) {
            drop();
        }
    }
};

void count(J2EERecord* record) {
    Logger::assertNotNULL(record, VDK_HERE);
    record->count++;
    record->stamp = ourDB->currentStamp;
}

void addTime(J2EERecord* record, long ns) {
    Logger::assertNotNULL(record, VDK_HERE);
    record->timeNs += ns;
    record->stamp = ourDB->currentStamp;
}

class PlatformEvents : public OpenEvents {
public:
    explicit PlatformEvents(ThreadInfo* threadInfo) : info(threadInfo), stack(threadInfo->j2ee) {
        Logger::assertEquals(stack.j2eeRecords.getSize(), stack.j2eeStartTimes.getSize(), VDK_HERE);
    }
    int getSize() const override { return stack.j2eeRecords.getSize(); }
    int frameAt(int i) const override { return stack.j2eeRecords[i]->frame; }
    void open(int name, int type, int frame) override {
        J2EERecord* const record = info->getJ2EERecord(name, type, frame);
        count(record);
        stack.j2eeStartTimes.push(readTime(info, frame));
        stack.j2eeRecords.push(record);
    }
    void close(int frame) override {
        J2EERecord* const record = stack.j2eeRecords.pop();
        const long start = stack.j2eeStartTimes.pop();
        addTime(record, readTime(info, frame) - start);
    }
    void drop() override {
        stack.j2eeRecords.pop();
        stack.j2eeStartTimes.pop();
    }

private:
    ThreadInfo* const info;
    J2EEStack& stack;
};

class VirtualEvents : public OpenEvents {
public:
    VirtualEvents(jlong id, ThreadInfo* carrierInfo)
        : threadID(id), carrier(carrierInfo), stack(ourVirtualEvents.get(id)) {}
    ~VirtualEvents() override {
        if (stack != nullptr && stack->isEmpty()) {
            ourVirtualEvents.remove(threadID);
            ourVirtualEvents.compact();
            delete stack;
        }
    }
    VirtualEvents(const VirtualEvents&) = delete;
    VirtualEvents& operator=(const VirtualEvents&) = delete;

    int getSize() const override { return stack == nullptr ? 0 : stack->getSize(); }
    int frameAt(int i) const override { return (*stack)[i].record->frame; }
    void open(int name, int type, int frame) override {
        if (stack == nullptr) {
            stack = new ZVector<VirtualEvent>(1);
            ourVirtualEvents.put(threadID, stack);
        }
        J2EERecord* const record = getVirtualThreadsInfo()->getJ2EERecord(name, type, frame);
        count(record);
        stack->push({record, carrier == nullptr ? NO_CARRIER : carrier->trn,
                     carrier == nullptr ? 0 : readTime(carrier, frame)});
    }
    void close(int frame) override {
        const VirtualEvent event = stack->pop();
        const bool isSame = carrier != nullptr && carrier->trn == event.carrier;
        addTime(event.record, isSame ? readTime(carrier, frame) - event.startNs : 0);
    }
    void drop() override { stack->pop(); }

private:
    const jlong threadID;
    ThreadInfo* const carrier;
    ZVector<VirtualEvent>* stack;
};

// Who runs now, found before the lock is taken: the JVM may have to be asked for a carrier.
class EventThread {
public:
    explicit EventThread(JNIEnv* env) : info(getThreadInfo()), virtualID(0), carrier(nullptr) {
        if (info == nullptr && isLive()) {
            virtualID = getCurrentVirtualThreadID(env);
            carrier = virtualID == 0 ? nullptr : getCarrierThreadInfo();
        }
    }
    // Calls work(events) unless the thread is unknown. Caller holds ourLock.
    template <typename Work>
    void with(Work&& work) const {
        if (info != nullptr && !info->carrierThread) {
            PlatformEvents events(info);
            work(events);
        } else if (virtualID != 0) {
            VirtualEvents events(virtualID, carrier);
            work(events);
        }
    }

private:
    ThreadInfo* const info;
    jlong virtualID;
    ThreadInfo* carrier;
};

void enter(JNIEnv* env, const EventThread& thread, int name, int type) {
    thread.with([&](OpenEvents& events) {
        const int frame = getCurrentFrame(env);
        if (frame < 0) {
            return;
        }
        events.dropLeft(frame);
        events.open(name, type, frame);
    });
}

void leave(JNIEnv* env, const EventThread& thread, bool byException) {
    thread.with([&](OpenEvents& events) {
        const int frame = events.getSize() == 0 ? -1 : getCurrentFrame(env);
        if (frame < 0) {
            return;
        }
        events.dropAbove(frame);
        if (byException) {
            events.drop();
        } else {
            events.close(frame);
        }
    });
}

// Runs body(thread) under the lock, if events are recorded and the JVM does not end.
template <typename Body>
void record(JNIEnv* env, const char* file, int line, const char* place, Body&& body) {
    if (!isOn()) {
        return;
    }
    runGuarded(file, line, [&] {
        const EventThread thread(env);
        LockHolder lock(ourLock, place);
        if (isOn() && isLive()) {
            body(thread);
        }
    });
}

// Row of a name, made if need be; of the empty one for what is no string.
int getName(JNIEnv* env, jobject text) {
    static const jclass stringClass =
        static_cast<jclass>(env->NewGlobalRef(env->FindClass("java/lang/String")));
    const bool isText = text != nullptr && env->IsInstanceOf(text, stringClass) == JNI_TRUE;
    return getPooledStrID(env, isText ? static_cast<jstring>(text) : nullptr);
}

int getNameOfObject(jobject key) {
    const int name = key == nullptr ? 0 : static_cast<int>(ourNameTags.getTag(key));
    return name == 0 ? ourDB->stringPool->getDBIndex("", true) : name;
}

void setNameOfObject(JNIEnv* env, jobject key, jobject text) {
    if (ourNameTags.getNameCount() >= MOST_TAGGED_NAMES) {
        ourNameTags.clear();
    }
    const char* const name = ourDB->stringPool->getText(getName(env, text));
    ourNameTags.setTag(key, ourNameTags.getNameStrID(name));
}

// What the application's method answers; null if it has none or throws.
jobject askForURI(JNIEnv* env, jobject request) {
    if (request == nullptr) {
        return nullptr;
    }
    jclass type = env->GetObjectClass(request);
    const jmethodID method = env->GetMethodID(type, "getRequestURI", "()Ljava/lang/String;");
    env->DeleteLocalRef(type);
    jobject uri = method == nullptr ? nullptr : env->CallObjectMethod(request, method);
    if (env->ExceptionCheck() == JNI_TRUE) {
        env->ExceptionClear();
        uri = nullptr;
    }
    return uri;
}

} // namespace

void vdkJ2EEEntryImpl(JNIEnv* env, int nameStrID, int type) {
    enter(env, EventThread(env), nameStrID, type);
}

void vdkJ2EEExitImpl(JNIEnv* env) {
    leave(env, EventThread(env), false);
}

void J2EEHelper::prepare(JNIEnv* env) {
    findVirtualThreads(env);
}

// Handlers run in all code: also in what the agent itself does on the thread, and in what a carrier
// does between two virtual threads, where nothing may be waited for.
void J2EEHelper::unwind(JNIEnv* env) {
    ThreadInfo* const info = isOn() ? getThreadInfo() : nullptr;
    if (info == nullptr || info->carrierThread || info->j2ee.j2eeRecords.isEmpty() ||
        ourLock.isHeldByCurrentThread()) {
        return;
    }
    LockHolder lock(ourLock, "JVMTI_Agent:428");
    if (!isOn() || !isLive()) {
        return;
    }
    PlatformEvents events(info);
    const int frame = getCurrentFrame(env);
    Logger::assertNotEquals(frame, -1, VDK_HERE);
    events.dropLeft(frame);
}

void J2EEHelper::forgetVirtualEvents() {
    for (int slot = 0; slot < ourVirtualEvents.getCapacity(); slot++) {
        if (ourVirtualEvents.isFull(slot)) {
            delete ourVirtualEvents.valueAt(slot);
        }
    }
    ourVirtualEvents.clear();
}

void J2EEHelper::reset() {
    forgetVirtualEvents();
    ourNameTags.reset();
}

void JNICALL VDK_CALLBACK_NATIVE(vdkJ2eeEntry1)(JNIEnv* env, jclass, jobject text, jint type) {
    record(env, VDK_HERE, "J2EEHelper:86", [&](const EventThread& thread) {
        ourDB->stringPool->collectIfGrown();
        enter(env, thread, getName(env, text), type);
    });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkJ2eeEntry2)(JNIEnv* env, jclass, jobject key, jint type) {
    record(env, VDK_HERE, "J2EEHelper:94",
           [&](const EventThread& thread) { enter(env, thread, getNameOfObject(key), type); });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkJ2eeEntry3)(JNIEnv* env, jclass, jobject request, jint type) {
    if (!isOn()) {
        return;
    }
    // Code of the application, which must not run under the lock.
    jobject uri = askForURI(env, request);
    record(env, VDK_HERE, "J2EEHelper:124", [&](const EventThread& thread) {
        ourDB->stringPool->collectIfGrown();
        enter(env, thread, getName(env, uri), type);
    });
    if (uri != nullptr) {
        env->DeleteLocalRef(uri);
    }
}

void JNICALL VDK_CALLBACK_NATIVE(vdkJ2eeExit)(JNIEnv* env, jclass, jobject key, jobject text) {
    record(env, VDK_HERE, "J2EEHelper:137", [&](const EventThread& thread) {
        if (key != nullptr) {
            setNameOfObject(env, key, text);
        }
        leave(env, thread, false);
    });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkJ2eeLeave)(JNIEnv* env, jclass) {
    record(env, VDK_HERE, "J2EEHelper:137",
           [&](const EventThread& thread) { leave(env, thread, true); });
}
