#include "profiling/events/Monitors.h"

#include "core/ground/Globals.h"
#include "core/ground/UptimeProvider.h"
#include "core/ground/ZMap.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/UserMessage.h"
#include "profiling/events/MonitorRows.h"
#include "profiling/events/Parks.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/VirtualThreads.h"

long Monitors::ourMonitorRecordingStartNs = 0;
long Monitors::ourMonitorRecordingLastNs = 0;

namespace {

const int HALF_BITS = 32;
const int INITIAL_CAPACITY = 1024;
const jlong NAME_BITS = 0xFFFFFFFF;

// A wait that has begun; without a start it has ended.
struct OwnerTRNAndTime {
    int ownerTRN = 0;
    long startNs = 0;
};

ZMap<int, OwnerTRNAndTime>& ourOpenWaits = *new ZMap<int, OwnerTRNAndTime>(INITIAL_CAPACITY);
// Of virtual threads, by their own numbers: a wait may end on another carrier.
ZMap<long, OwnerTRNAndTime>& ourVirtualWaits = *new ZMap<long, OwnerTRNAndTime>(INITIAL_CAPACITY);

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

    // Whether a wait for it may be recorded. Not to be asked with ourLock held.
    bool mayBeKnown() const {
        return owner == nullptr ? areVirtualThreadsInUse() : MonitorRows::isKnownThread(owner);
    }
    // The number for a row, with ourLock held; false if the owner has ended meanwhile. The JVM does
    // not name virtual threads: one of them, or nobody, gives 0. Now and then it tells the carrier.
    bool getTRN(int* trn) const {
        const ThreadInfo* info = owner == nullptr ? nullptr : getStoredThreadInfo(owner);
        *trn = info == nullptr || info->carrierThread ? 0 : info->trn;
        return owner == nullptr || info != nullptr;
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

// The current thread, if its waits are recorded. What the event calls the thread is not asked: on a
// virtual thread it might be the carrier.
class Waiter {
public:
    explicit Waiter(JNIEnv* env) : info(nullptr), virtualID(0) {
        if (getJVMTIPhase() != JVMTI_PHASE_LIVE || !MonitorRows::isRecording()) {
            return;
        }
        info = getStoredThreadInfo(nullptr);
        if (info == nullptr) {
            virtualID = getCurrentVirtualThreadID(env);
        }
    }

    bool isRecorded() const { return info == nullptr ? virtualID != 0 : !info->agentThread; }

    // The rest with ourLock held.

    int getTRN() const { return info == nullptr ? getVirtualThreadsInfo()->trn : info->trn; }
    void open(const OwnerTRNAndTime& wait) const {
        if (info == nullptr) {
            ourVirtualWaits.put(virtualID, wait);
        } else {
            ourOpenWaits.put(info->trn, wait);
        }
    }
    OwnerTRNAndTime close() const {
        if (info == nullptr) {
            const OwnerTRNAndTime wait = ourVirtualWaits.remove(virtualID);
            ourVirtualWaits.compact();
            return wait;
        }
        const OwnerTRNAndTime wait = ourOpenWaits.get(info->trn);
        if (wait.startNs != 0) {
            ourOpenWaits.put(info->trn, OwnerTRNAndTime());
        }
        return wait;
    }

private:
    const ThreadInfo* info; // null for a virtual thread
    jlong virtualID;
};

// The name of the monitor's class; 0 while the JVM ends.
int getMonitorClassNameStrID(JNIEnv* env, jobject object) {
    const ClassNameTags& tags = MonitorRows::names();
    int name = static_cast<int>(tags.getTag(object) & NAME_BITS);
    if (name == 0) {
        name = MonitorRows::names().getClassNameStrID(env, object);
        // Its own class may have tagged it just now.
        tags.setTag(object, tags.getTag(object) | name);
    }
    return name;
}

// The key for the stack of the waiter, which is the current thread; no frame in it if none.
MonitorKey getKey(JNIEnv* env, const Waiter& waiter, int ownerTRN, jobject object) {
    MonitorKey key = {0, 0, 0, 0};
    const int frame = MonitorRows::isRecording() ? MonitorRows::getCurrentFrame(env) : 0;
    const int name = frame == 0 ? 0 : getMonitorClassNameStrID(env, object);
    if (name != 0) {
        key = {waiter.getTRN(), ownerTRN, name, frame};
    }
    return key;
}

// All of the wait counts, what the handlers take included: the thread waits meanwhile.
void beginWait(JNIEnv* env, const Waiter& waiter, int ownerTRN, jobject object, long nowNs) {
    const MonitorKey key = getKey(env, waiter, ownerTRN, object);
    if (key.d != 0) {
        MonitorRows::getRow(key);
        waiter.open({ownerTRN, nowNs});
    }
}

void endWait(JNIEnv* env, const Waiter& waiter, jobject object, long nowNs) {
    const OwnerTRNAndTime wait = waiter.close();
    if (wait.startNs == 0) {
        return;
    }
    // The stack of now: another one than at the start gives a row of its own.
    const MonitorKey key = getKey(env, waiter, wait.ownerTRN, object);
    if (key.d != 0) {
        MonitorRows::add(key, nowNs - wait.startNs);
    }
}

void JNICALL monitorContendedEnter(jvmtiEnv*, JNIEnv* env, jthread, jobject object) {
    handleEvent(env, VDK_HERE, [&] {
        const long nowNs = getTimeNs();
        const Waiter waiter(env);
        if (MonitorRows::isTestOnly() || !waiter.isRecorded()) {
            return;
        }
        const MonitorOwner owner(env, object);
        if (!owner.mayBeKnown()) {
            return;
        }
        LockHolder lock(ourLock, "Monitors:179");
        int ownerTRN = 0;
        if (owner.getTRN(&ownerTRN)) {
            beginWait(env, waiter, ownerTRN, object, nowNs);
        }
    });
}

// Who waits owns the monitor until then: the JVM need not be asked.
void JNICALL monitorWait(jvmtiEnv*, JNIEnv* env, jthread, jobject object, jlong) {
    handleEvent(env, VDK_HERE, [&] {
        const long nowNs = getTimeNs();
        const Waiter waiter(env);
        if (!MonitorRows::isTestOnly() && waiter.isRecorded()) {
            LockHolder lock(ourLock, "Monitors:179");
            beginWait(env, waiter, waiter.getTRN(), object, nowNs);
        }
    });
}

void JNICALL monitorContendedEntered(jvmtiEnv*, JNIEnv* env, jthread, jobject object) {
    handleEvent(env, VDK_HERE, [&] {
        const long nowNs = getTimeNs();
        const Waiter waiter(env);
        if (!MonitorRows::isTestOnly() && waiter.isRecorded()) {
            LockHolder lock(ourLock, "Monitors:208");
            endWait(env, waiter, object, nowNs);
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
    MonitorRows::reset();
    ourOpenWaits.clear();
    ourVirtualWaits.clear();
    ourMonitorRecordingStartNs = 0;
    ourMonitorRecordingLastNs = 0;
}

bool Monitors::start(JNIEnv* env) {
    findVirtualThreads(env);
    {
        LockHolder lock(ourLock, "CoreNatives:680");
        if (ourIsAway || (ourStatus & MONITORS_BIT) != 0) {
            return false;
        }
        MonitorRows::readDebugOptions();
        // What began in an earlier recording does not count.
        MonitorRows::beginEpoch();
        ourStatus |= MONITORS_BIT;
        ourMonitorRecordingStartNs = getTimeNs();
    }
    updateMonitorEvents();
    Parks::update(env);
    return true;
}

bool Monitors::stop(JNIEnv* env) {
    {
        LockHolder lock(ourLock, "CoreNatives:717");
        if ((ourStatus & MONITORS_BIT) == 0) {
            return false;
        }
        ourStatus &= ~MONITORS_BIT;
        // Those that never go on would stay.
        ourVirtualWaits.clear();
        ourMonitorRecordingLastNs = getTimeNs();
    }
    updateMonitorEvents();
    Parks::update(env);
    return true;
}

ZString Monitors::startMonitorProfiling(JNIEnv* env) {
    if (start(env)) {
        userMessage(env, "Monitor profiling started");
        return ZString();
    }
    const char failure[] = "Cannot start monitor profiling";
    const char* const reason = ourIsAway ? AWAY_REFUSAL : "Already started";
    userMessage(env, failure, reason);
    return ZString(failure) + ": " + reason;
}

void Monitors::stopMonitorProfiling(JNIEnv* env) {
    if (stop(env)) {
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
    ourOpenWaits.clear();
    ourVirtualWaits.clear();
    MonitorRows::clear();
}

void Monitors::threadEnds(int trn) {
    ourOpenWaits.remove(trn);
    ourOpenWaits.compact();
}

void Monitors::mergeMonitorUsage(ZSet<int>* trns) {
    MonitorRows::merge(trns);
}
