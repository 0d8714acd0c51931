#include "profiling/events/Monitors.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/ground/ZMap.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/UserMessage.h"
#include "profiling/events/ClassNameTags.h"
#include "profiling/events/RowsByThread.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

long Monitors::ourMonitorRecordingStartNs = 0;
long Monitors::ourMonitorRecordingLastNs = 0;

namespace {

const int HALF_BITS = 32;
const int INITIAL_CAPACITY = 1024;
// Where stacks are not walked.
const int FRAME_WITHOUT_STACK = 1;
const jlong NAME_BITS = 0xFFFFFFFF;

// A wait that has begun; without a start it has ended.
struct OwnerTRNAndTime {
    int ownerTRN = 0;
    long startNs = 0;
};

ZMap<MonitorKey, int>& ourRows = *new ZMap<MonitorKey, int>(INITIAL_CAPACITY);
ZMap<int, OwnerTRNAndTime>& ourOpenWaits = *new ZMap<int, OwnerTRNAndTime>(INITIAL_CAPACITY);
ClassNameTags& ourTags = *new ClassNameTags(ourJVMTI5);

// Measurements of what the parts of a handler cost.
bool ourEmptyCallbackTest = false;
bool ourLockOnlyTest = false;
bool ourNoStack = false;

// Who holds a monitor. The JVM may stop all threads for the answer.
class MonitorOwner {
public:
    MonitorOwner(JNIEnv* jniEnv, jobject object) : env(jniEnv), owner(nullptr) {
        jvmtiMonitorUsage usage = {};
        const jvmtiError error = ourJVMTI->GetObjectMonitorUsage(object, &usage);
        if (error == JVMTI_ERROR_WRONG_PHASE) {
            return;
        }
        CHECK_JVMTI(error);
        owner = usage.owner;
        announceLocalReferences(env, usage.waiter_count + usage.notify_waiter_count);
        free(usage.waiters, usage.waiter_count);
        free(usage.notify_waiters, usage.notify_waiter_count);
    }
    ~MonitorOwner() { env->DeleteLocalRef(owner); }
    MonitorOwner(const MonitorOwner&) = delete;
    MonitorOwner& operator=(const MonitorOwner&) = delete;

    // Whether the owner is a thread that has a number. Not to be asked with ourLock held.
    bool isKnown() const { return owner != nullptr && getStoredThreadInfo(owner) != nullptr; }
    // Of a known owner, with ourLock held; 0 if it has ended meanwhile.
    int getTRN() const {
        const ThreadInfo* info = getStoredThreadInfo(owner);
        return info == nullptr ? 0 : info->trn;
    }

private:
    void free(jthread* threads, jint count) {
        for (jint i = 0; i < count; i++) {
            env->DeleteLocalRef(threads[i]);
        }
        deallocateQuietly(threads);
    }

    JNIEnv* env;
    jthread owner;
};

// The current thread if its waits are recorded. What the event calls the thread is not asked: on a
// virtual thread it might be the carrier.
ThreadInfo* getWaiter() {
    if (getJVMTIPhase() != JVMTI_PHASE_LIVE || (ourStatus & MONITORS_BIT) == 0) {
        return nullptr;
    }
    ThreadInfo* info = getStoredThreadInfo(nullptr);
    return info == nullptr || info->agentThread ? nullptr : info;
}

// The name of the monitor's class; 0 while the JVM ends.
int getMonitorClassNameStrID(JNIEnv* env, jobject object) {
    int name = static_cast<int>(ourTags.getTag(object) & NAME_BITS);
    if (name == 0) {
        name = ourTags.getClassNameStrID(env, object);
        // Its own class may have tagged it just now.
        ourTags.setTag(object, ourTags.getTag(object) | name);
    }
    return name;
}

MonitorRecord* getRecord(int row) {
    return ourDB->monitorTable->getRecord(row, true);
}

int getRow(const MonitorKey& key) {
    const int known = ourRows.get(key);
    if (known != 0) {
        return known;
    }
    const int row = ourDB->monitorTable->nextIndex();
    ourRows.put(key, row);
    MonitorRecord* record = getRecord(row);
    record->waiterTRN = key.a;
    record->ownerTRN = key.b;
    record->classNameStrID = key.c;
    record->frame = key.d;
    record->stamp = ourDB->currentStamp;
    return row;
}

// The row for the stack of the waiter, which is the current thread; 0 if none.
int getRecordIndex(JNIEnv* env, const ThreadInfo* waiter, int ownerTRN, jobject object) {
    if ((ourStatus & MONITORS_BIT) == 0) {
        return 0;
    }
    const int frame =
        ourNoStack ? FRAME_WITHOUT_STACK : ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
    if (frame == 0) {
        return 0;
    }
    const int name = getMonitorClassNameStrID(env, object);
    return name == 0 ? 0 : getRow({waiter->trn, ownerTRN, name, frame});
}

void beginWait(JNIEnv* env, const ThreadInfo* waiter, int ownerTRN, jobject object) {
    if (ownerTRN != 0 && getRecordIndex(env, waiter, ownerTRN, object) != 0) {
        ourOpenWaits.put(waiter->trn, {ownerTRN, getTimeNs()});
    }
}

void endWait(JNIEnv* env, const ThreadInfo* waiter, jobject object) {
    const OwnerTRNAndTime wait = ourOpenWaits.get(waiter->trn);
    if (wait.startNs == 0) {
        return;
    }
    ourOpenWaits.put(waiter->trn, OwnerTRNAndTime());
    // The stack of now: another one than at the start gives a row of its own.
    const int row = getRecordIndex(env, waiter, wait.ownerTRN, object);
    if (row == 0) {
        return;
    }
    MonitorRecord* record = getRecord(row);
    record->timeNs += getTimeNs() - wait.startNs;
    record->count++;
    record->stamp = ourDB->currentStamp;
}

// The first thing that every handler does; true if there is nothing more to do.
bool isTestOnly() {
    if (ourEmptyCallbackTest) {
        return true;
    }
    if (ourLockOnlyTest) {
        LockHolder lock(ourLock);
    }
    return ourLockOnlyTest;
}

void JNICALL monitorContendedEnter(jvmtiEnv*, JNIEnv* env, jthread, jobject object) {
    handleEvent(env, VDK_HERE, [&] {
        const ThreadInfo* waiter = isTestOnly() ? nullptr : getWaiter();
        if (waiter == nullptr) {
            return;
        }
        const MonitorOwner owner(env, object);
        if (owner.isKnown()) {
            LockHolder lock(ourLock, "Monitors:179");
            beginWait(env, waiter, owner.getTRN(), object);
        }
    });
}

// Who waits owns the monitor until then: the JVM need not be asked.
void JNICALL monitorWait(jvmtiEnv*, JNIEnv* env, jthread, jobject object, jlong) {
    handleEvent(env, VDK_HERE, [&] {
        const ThreadInfo* waiter = isTestOnly() ? nullptr : getWaiter();
        if (waiter != nullptr) {
            LockHolder lock(ourLock, "Monitors:179");
            beginWait(env, waiter, waiter->trn, object);
        }
    });
}

void JNICALL monitorContendedEntered(jvmtiEnv*, JNIEnv* env, jthread, jobject object) {
    handleEvent(env, VDK_HERE, [&] {
        const ThreadInfo* waiter = isTestOnly() ? nullptr : getWaiter();
        if (waiter != nullptr) {
            LockHolder lock(ourLock, "Monitors:208");
            endWait(env, waiter, object);
        }
    });
}

void JNICALL monitorWaited(jvmtiEnv* environment, JNIEnv* env, jthread thread, jobject object,
                           jboolean) {
    monitorContendedEntered(environment, env, thread, object);
}

} // namespace

void Monitors::install() {
    ourConsumedEvents.monitorWait = monitorWait;
    ourConsumedEvents.monitorWaited = monitorWaited;
    ourConsumedEvents.monitorContendedEnter = monitorContendedEnter;
    ourConsumedEvents.monitorContendedEntered = monitorContendedEntered;
}

void Monitors::reset() {
    ourRows.clear();
    ourOpenWaits.clear();
    ourTags.reset();
    ourMonitorRecordingStartNs = 0;
    ourMonitorRecordingLastNs = 0;
}

bool Monitors::start() {
    {
        LockHolder lock(ourLock, "CoreNatives:680");
        if ((ourStatus & MONITORS_BIT) != 0) {
            return false;
        }
        ourEmptyCallbackTest = Options::isDebug("monitors0");
        ourLockOnlyTest = Options::isDebug("monitors1");
        ourNoStack = Options::isDebug("monitors2");
        ourStatus |= MONITORS_BIT;
        ourMonitorRecordingStartNs = getTimeNs();
    }
    updateMonitorEvents();
    return true;
}

bool Monitors::stop() {
    {
        LockHolder lock(ourLock, "CoreNatives:717");
        if ((ourStatus & MONITORS_BIT) == 0) {
            return false;
        }
        ourStatus &= ~MONITORS_BIT;
        ourMonitorRecordingLastNs = getTimeNs();
    }
    updateMonitorEvents();
    return true;
}

ZString Monitors::startMonitorProfiling(JNIEnv* env) {
    if (start()) {
        userMessage(env, "Monitor profiling started");
        return ZString();
    }
    const char failure[] = "Cannot start monitor profiling";
    const char reason[] = "Already started";
    userMessage(env, failure, reason);
    return ZString(failure) + ": " + reason;
}

void Monitors::stopMonitorProfiling(JNIEnv* env) {
    if (stop()) {
        userMessage(env, "Monitor profiling stopped");
    }
}

void Monitors::storeDuration() {
    if (ourMonitorRecordingStartNs == 0) {
        return;
    }
    const long end = (ourStatus & MONITORS_BIT) != 0 ? getTimeNs() : ourMonitorRecordingLastNs;
    const long duration = end - ourMonitorRecordingStartNs;
    ourDB->setProperty("vdk.monitor.profiling.duration.ns.low", static_cast<int>(duration));
    ourDB->setProperty("vdk.monitor.profiling.duration.ns.high",
                       static_cast<int>(duration >> HALF_BITS));
}

void Monitors::clearMonitorData() {
    ourRows.clear();
    ourOpenWaits.clear();
    ourTags.clear();
    ourDB->clearTableAndTellReaders(SLOT_Monitor);
}

void Monitors::threadEnds(int trn) {
    ourOpenWaits.remove(trn);
    ourOpenWaits.compact();
}

void Monitors::mergeMonitorUsage(ZSet<int>* trns) {
    takeRowsOfThreads(ourRows, trns, [](const MonitorKey& key, int row) {
        // An owner that is gone stays what it was.
        MonitorRecord* to = getRecord(getRow({ourOldestFinishedThreads->trn, key.b, key.c, key.d}));
        MonitorRecord* from = getRecord(row);
        to->timeNs += from->timeNs;
        to->count += from->count;
        to->stamp = ourDB->currentStamp;
        from->timeNs = 0;
        from->count = 0;
        from->stamp = -ourDB->currentStamp;
        ourDB->monitorTable->releaseIndex(row);
    });
}
