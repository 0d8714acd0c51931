#include "profiling/events/Exceptions.h"

#include "core/ground/Globals.h"
#include "core/ground/ZMap.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/cpu/J2EEHelper.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/events/ClassNameTags.h"
#include "profiling/events/ExceptionCounts.h"
#include "profiling/events/RowsByThread.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

const int INITIAL_CAPACITY = 1024;
const int THREAD_SHIFT = 32;
const char UNKNOWN_CLASS[] = "<unknown>";
// The tag of an object that is counted by its class, and by no row.
const jlong COUNTED_BY_CLASS = -1;
// Set where exceptions are counted by inserted calls, from the first time on.
const char ROAD_PROPERTY[] = "vdk.exceptions.counted.by.calls";

// Serialises the switching.
ZLock& ourSwitchLock = *new ZLock("ExceptionSwitchLock");

// Thrown, and expected to be caught.
struct ExceptionData {
    int classNameStrID = 0;
    int throwFrame = 0;
};

ZMap<ExceptionKey, int>& ourRows = *new ZMap<ExceptionKey, int>(INITIAL_CAPACITY);
ZMap<int, ExceptionData>& ourPending = *new ZMap<int, ExceptionData>(INITIAL_CAPACITY);
ClassNameTags& ourTags = *new ClassNameTags(ourJVMTI7);

ExceptionRecord* getRecord(int row) {
    return ourDB->exceptionTable->getRecord(row, true);
}

int getRow(const ExceptionKey& key) {
    const int known = ourRows.get(key);
    if (known != 0) {
        return known;
    }
    const int row = ourDB->exceptionTable->nextIndex();
    ourRows.put(key, row);
    ExceptionRecord* record = getRecord(row);
    record->trn = key.a;
    record->throwFrame = key.b;
    record->catchFrame = key.c;
    record->classNameStrID = key.d;
    record->stamp = ourDB->currentStamp;
    return row;
}

int getExceptionClassNameStrID(JNIEnv* env, jobject exception) {
    return exception == nullptr ? ourTags.getNameStrID(UNKNOWN_CLASS)
                                : ourTags.getClassNameStrID(env, exception);
}

bool isRecording() {
    return getJVMTIPhase() == JVMTI_PHASE_LIVE && !ourVMDeathCalled;
}

// The row that counts this object, null if none does. The thread that threw it, in the upper half
// of the tag, tells whether the row, the lower half, is still what it was: it may have been
// released when that thread was merged, and serve another one by now. Threads' numbers do not come
// again.
ExceptionRecord* getCountingRow(jobject exception, int classNameStrID) {
    const jlong tag = ourTags.getTag(exception);
    const int row = static_cast<int>(tag);
    ExceptionRecord* record = row <= 0 ? nullptr : ourDB->exceptionTable->getRecord(row, false);
    const bool isSame = record != nullptr && record->stamp > 0 && record->count > 0 &&
                        record->trn == static_cast<int>(tag >> THREAD_SHIFT) &&
                        record->classNameStrID == classNameStrID;
    return isSame ? record : nullptr;
}

void updateRecord(const ThreadInfo* info, int throwFrame, int catchFrame, int classNameStrID,
                  jobject exception) {
    if (exception != nullptr) {
        ExceptionRecord* earlier = getCountingRow(exception, classNameStrID);
        if (earlier != nullptr) {
            earlier->count--;
            earlier->stamp = ourDB->currentStamp;
            throwFrame = earlier->throwFrame;
        }
    }
    const int row = getRow({info->trn, throwFrame, catchFrame, classNameStrID});
    if (exception != nullptr) {
        ourTags.setTag(exception, static_cast<jlong>(info->trn) << THREAD_SHIFT | row);
    }
    ExceptionRecord* record = getRecord(row);
    record->count++;
    record->stamp = ourDB->currentStamp;
}

bool comesByEvents() {
    return (ourCapabilities & CAPABILITY_EXCEPTION_EVENTS_NOT_AVAILABLE) == 0;
}

bool canCome() {
    return comesByEvents() || ourTracingSwitch.switchExceptionCalls != nullptr;
}

void setStatus(bool isOn) {
    LockHolder lock(ourLock);
    if (isOn) {
        ourStatus |= EXCEPTION_TELEMETRY;
    } else {
        ourStatus &= ~EXCEPTION_TELEMETRY;
        // Their handlers are not heard of any more.
        ourPending.clear();
    }
}

bool areRowsOn() {
    return (ourStatus & EXCEPTION_TELEMETRY) != 0;
}

// Events or inserted calls in step with what is wanted. The calls are in the classes only
// meanwhile; who catches matters to rows alone. Caller holds ourSwitchLock.
void bringSourcesInStep(JNIEnv* env) {
    if (comesByEvents()) {
        updateExceptionEvents();
    } else {
        ourTracingSwitch.switchExceptionCalls(env, areRowsOn() || ourCountsExceptionsByClass,
                                              areRowsOn());
    }
}

// The current thread if its exceptions are recorded.
ThreadInfo* getThrower() {
    if (!areRowsOn()) {
        return nullptr;
    }
    ThreadInfo* info = getThreadInfo();
    return info == nullptr || info->agentThread ? nullptr : info;
}

// Inserted calls stand in all code: nothing is counted of what the agent itself is doing on the
// thread, nor of what a carrier does between two virtual threads, where nothing may be waited for.
bool isOutside(const ThreadInfo* info) {
    return (info != nullptr && info->carrierThread) || ourLock.isHeldByCurrentThread();
}

ThreadInfo* getCallingThread() {
    ThreadInfo* info = getThrower();
    return isOutside(info) ? nullptr : info;
}

bool isCounting() {
    return isRecording() && areRowsOn();
}

// Virtual threads have no ThreadInfo.
bool isCountedByClass(const ThreadInfo* info) {
    return ourCountsExceptionsByClass && isRecording() && (info == nullptr || !info->agentThread);
}

// The end of a constructor of Throwable, of which an object runs one.
void onCreatedByClass(JNIEnv* env, jobject exception) {
    if (!ourCountsExceptionsByClass) {
        return;
    }
    const ThreadInfo* info = getThreadInfo();
    if (isCountedByClass(info) && !isOutside(info)) {
        ExceptionCounts::count(env, exception);
    }
}

// An object that is thrown on comes again by an event; its tag tells.
void onThrownByClass(JNIEnv* env, jobject exception) {
    if (!ourCountsExceptionsByClass || exception == nullptr || !isCountedByClass(getThreadInfo())) {
        return;
    }
    {
        LockHolder lock(ourLock);
        if (ourTags.getTag(exception) != 0) {
            return;
        }
        ourTags.setTag(exception, COUNTED_BY_CLASS);
    }
    ExceptionCounts::count(env, exception);
}

// The same with a row.
void onCreated(JNIEnv* env, jobject exception) {
    const ThreadInfo* info = getCallingThread();
    if (info == nullptr) {
        return;
    }
    LockHolder lock(ourLock);
    if (isCounting()) {
        const int frame = ourFrameStorage.fillCreatorsFrame(env, exception);
        updateRecord(info, frame, 0, getExceptionClassNameStrID(env, exception), exception);
    }
}

// The head of a `catch`. What was not seen when it was created is not counted.
void onCaught(JNIEnv* env, jobject exception) {
    const ThreadInfo* info = getCallingThread();
    if (info == nullptr || ourTags.getTag(exception) == 0) {
        return;
    }
    LockHolder lock(ourLock);
    const int name = isCounting() ? getExceptionClassNameStrID(env, exception) : 0;
    if (name != 0 && getCountingRow(exception, name) != nullptr) {
        const int frame = ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
        updateRecord(info, 0, frame, name, exception);
    }
}

void JNICALL exception_handler(jvmtiEnv*, JNIEnv* env, jthread, jmethodID, jlocation,
                               jobject exception, jmethodID catchMethod, jlocation) {
    handleEvent(env, VDK_HERE, [&] {
        onThrownByClass(env, exception);
        const ThreadInfo* info = getThrower();
        if (info != nullptr) {
            LockHolder lock(ourLock, "JVMTI_Agent:390");
            Exceptions::handleException(env, info, exception, catchMethod != nullptr);
        }
    });
}

} // namespace

void Exceptions::install() {
    ourConsumedEvents.exception = exception_handler;
}

void Exceptions::reset() {
    ourRows.clear();
    ourPending.clear();
    ourTags.reset();
    ourCountsExceptionsByClass = false;
    ExceptionCounts::take();
}

void Exceptions::enable(JNIEnv* env, bool isOn) {
    LockHolder lock(ourSwitchLock);
    if (!canCome() || (isOn && ourIsAway)) {
        return;
    }
    if (!comesByEvents() && isOn) {
        LockHolder data(ourLock);
        ourDB->setProperty(ROAD_PROPERTY, 1);
    }
    setStatus(isOn);
    bringSourcesInStep(env);
}

void Exceptions::countByClass(JNIEnv* env, bool isOn) {
    LockHolder lock(ourSwitchLock);
    if (isOn == ourCountsExceptionsByClass || !canCome() || (isOn && ourIsAway)) {
        return;
    }
    ourCountsExceptionsByClass = isOn;
    ExceptionCounts::take();
    bringSourcesInStep(env);
}

void Exceptions::onCatch(JNIEnv* env, jobject exception) {
    const ThreadInfo* info = getThrower();
    if (info != nullptr) {
        LockHolder lock(ourLock, "JVMTI_Agent:428");
        handleExceptionCatch(env, info, exception);
    }
}

void Exceptions::handleException(JNIEnv* env, const ThreadInfo* info, jobject exception,
                                 bool willBeCaught) {
    if (!isRecording()) {
        return;
    }
    const int frame = ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
    const int name = getExceptionClassNameStrID(env, exception);
    if (willBeCaught) {
        ourPending.put(info->trn, {name, frame});
    } else {
        updateRecord(info, frame, 0, name, exception);
    }
}

void Exceptions::handleExceptionCatch(JNIEnv* env, const ThreadInfo* info, jobject exception) {
    const ExceptionData* found = isRecording() ? ourPending.getPtr(info->trn) : nullptr;
    if (found == nullptr || found->classNameStrID == 0) {
        return;
    }
    const ExceptionData thrown = *found;
    const int catchFrame = ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
    updateRecord(info, thrown.throwFrame, catchFrame, thrown.classNameStrID, exception);
    // Overwritten, as this thread will throw again: removed slots would have to be swept.
    ourPending.put(info->trn, ExceptionData());
}

void Exceptions::threadEnds(int trn) {
    ourPending.remove(trn);
    ourPending.compact();
}

void Exceptions::mergeExceptionUsage(ZSet<int>* trns) {
    takeRowsOfThreads(ourRows, trns, [](const ExceptionKey& key, int row) {
        ExceptionRecord* to =
            getRecord(getRow({ourOldestFinishedThreads->trn, key.b, key.c, key.d}));
        ExceptionRecord* from = getRecord(row);
        to->count += from->count;
        to->stamp = ourDB->currentStamp;
        from->count = 0;
        from->stamp = -ourDB->currentStamp;
        ourDB->exceptionTable->releaseIndex(row);
    });
}

void Exceptions::clearExceptions() {
    ourRows.clear();
    ourPending.clear();
    ourTags.clear();
    ourDB->clearTableAndTellReaders(SLOT_Exception);
}

void JNICALL VDK_CALLBACK_NATIVE(vdkExceptionCreated0)(JNIEnv* env, jclass, jobject exception) {
    runGuarded(VDK_HERE, [&] {
        onCreatedByClass(env, exception);
        onCreated(env, exception);
    });
}

void JNICALL VDK_CALLBACK_NATIVE(vdkExceptionCaught0)(JNIEnv* env, jclass, jobject exception) {
    runGuarded(VDK_HERE, [&] {
        J2EEHelper::unwind(env);
        onCaught(env, exception);
    });
}
