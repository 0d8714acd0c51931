#include "profiling/events/MonitorRows.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/events/RowsByThread.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

const int INITIAL_CAPACITY = 1024;
// Where stacks are not walked.
const int FRAME_WITHOUT_STACK = 1;

ZMap<MonitorKey, int>& ourRows = *new ZMap<MonitorKey, int>(INITIAL_CAPACITY);
ClassNameTags& ourTags = *new ClassNameTags(ourJVMTI5);
int ourEpoch = 0;

bool ourEmptyCallbackTest = false;
bool ourLockOnlyTest = false;
bool ourNoStack = false;

MonitorRecord* getRecord(int row) {
    return ourDB->monitorTable->getRecord(row, true);
}

} // namespace

ClassNameTags& MonitorRows::names() {
    return ourTags;
}

bool MonitorRows::isRecording() {
    return (ourStatus & MONITORS_BIT) != 0;
}

void MonitorRows::readDebugOptions() {
    ourEmptyCallbackTest = Options::isDebug("monitors0");
    ourLockOnlyTest = Options::isDebug("monitors1");
    ourNoStack = Options::isDebug("monitors2");
}

bool MonitorRows::isTestOnly() {
    if (ourEmptyCallbackTest) {
        return true;
    }
    if (ourLockOnlyTest) {
        LockHolder lock(ourLock);
    }
    return ourLockOnlyTest;
}

int MonitorRows::getCurrentFrame(JNIEnv* env) {
    return ourNoStack ? FRAME_WITHOUT_STACK : ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
}

int MonitorRows::getRow(const MonitorKey& key) {
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

void MonitorRows::add(const MonitorKey& key, long timeNs) {
    MonitorRecord* record = getRecord(getRow(key));
    record->timeNs += timeNs;
    record->count++;
    record->stamp = ourDB->currentStamp;
}

int MonitorRows::getEpoch() {
    return ourEpoch;
}

void MonitorRows::beginEpoch() {
    ourEpoch++;
}

bool MonitorRows::isKnownThread(jthread thread) {
    return thread != nullptr && getStoredThreadInfo(thread) != nullptr;
}

int MonitorRows::getTRN(jthread thread) {
    const ThreadInfo* info = getStoredThreadInfo(thread);
    return info == nullptr ? 0 : info->trn;
}

void MonitorRows::clear() {
    beginEpoch();
    ourRows.clear();
    ourTags.clear();
    ourDB->clearTableAndTellReaders(SLOT_Monitor);
}

void MonitorRows::reset() {
    beginEpoch();
    ourRows.clear();
    ourTags.reset();
}

void MonitorRows::merge(ZSet<int>* trns) {
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
