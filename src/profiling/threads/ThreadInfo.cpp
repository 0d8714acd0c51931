#include "profiling/threads/ThreadInfo.h"

#include "core/ground/UptimeProvider.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/ClassLoadingProbe.h"
#include "profiling/cpu/J2EEHelper.h"
#include "profiling/cpu/SampledLines.h"
#include "profiling/cpu/SampledTimes.h"
#include "profiling/cpu/TracedStack.h"
#include "profiling/cpu/WallTimeCorrector.h"
#include "profiling/events/Exceptions.h"
#include "profiling/events/Monitors.h"
#include "profiling/memory/LiveAllocations.h"
#include "profiling/threads/FinishedThreads.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/UnloadedClasses.h"
#include "profiling/threads/VirtualThreads.h"
#include "profiling/threads/ZFrameStorage.h"

#include <cstring>

namespace {

const int FIRST_TFI_INDEX = 1;
const int USUAL_THREAD_COUNT = 100;
const char AGENT_THREAD_PREFIX[] = "VDKAgent-";
const char GC_THREAD_PREFIX[] = "(GC Main Thread)";
const char CALIBRATION_THREAD[] = "VDKAgent-Calibration";

ThreadRecord* recordOf(const ThreadInfo& info) {
    return ourDB->threadTable->getRecord(info.threadRecordIndex, true);
}

} // namespace

IndexPool& ThreadInfo::ourIndexForTFIPool = *new IndexPool(FIRST_TFI_INDEX);
int ThreadInfo::ourRunningNumber = 0;
int ThreadInfo::ourRegistry = 0;

ZSet<ThreadInfo*>& ourAllThreadInfos = *new ZSet<ThreadInfo*>(USUAL_THREAD_COUNT);
ThreadInfo* ourOldestFinishedThreads = nullptr;
ThreadInfo* ourVMStartThread = nullptr;

ThreadInfo::ThreadInfo(const char* name, const char* group, long nativeID, jobject thread)
    : nativeThreadID(nativeID), threadObject(thread),
      threadRecordIndex(ourDB->threadTable->nextIndex()), agentThread(false),
      calibrationThread(false), carrierThread(false), temporaryEnabled(false),
      registry(ourRegistry) {
    tfiThreadIndex = ourIndexForTFIPool.nextIndex();
    trn = ++ourRunningNumber;
    deriveKind(name);
    ThreadRecord* record = recordOf(*this);
    record->nameStrID = ourDB->stringPool->getDBIndex(name, true);
    record->groupStrID = ourDB->stringPool->getDBIndex(group == nullptr ? "" : group, true);
    record->tfiThreadIndex = tfiThreadIndex;
    record->trn = trn;
    record->nativeThreadID = nativeID;
    record->stamp = ourDB->currentStamp;
}

void ThreadInfo::deriveKind(const char* name) {
    agentThread = name != nullptr &&
                  (startsWith(name, AGENT_THREAD_PREFIX) || startsWith(name, GC_THREAD_PREFIX));
    calibrationThread = name != nullptr && strcmp(name, CALIBRATION_THREAD) == 0;
}

const char* ThreadInfo::getThreadName() const {
    const char* name = ourDB->stringPool->getText(recordOf(*this)->nameStrID);
    return name == nullptr ? "<NULL>" : name;
}

bool ThreadInfo::hasName() const {
    return *getThreadName() != 0;
}

void ThreadInfo::setName(const char* name) {
    const int nameStrID = ourDB->stringPool->getDBIndex(name, true);
    ThreadRecord* record = recordOf(*this);
    if (record->nameStrID != nameStrID) {
        record->nameStrID = nameStrID;
        record->stamp = ourDB->currentStamp;
        deriveKind(name);
    }
}

void ThreadInfo::ensureThreadHasName(JNIEnv* env, jthread thread) {
    jvmtiThreadInfo info = {};
    if (ourJVMTI->GetThreadInfo(thread, &info) != JVMTI_ERROR_NONE) {
        return;
    }
    JvmtiMemory<char> name;
    *name.receive() = info.name;
    env->DeleteLocalRef(info.thread_group);
    env->DeleteLocalRef(info.context_class_loader);
    if (info.name != nullptr) {
        setName(info.name);
    }
}

void ThreadInfo::onThreadStart() {
    ourAllThreadInfos.add(this);
}

void ThreadInfo::onThreadEnd() {
    // Calls that it never left, by an exception or because their code was rewritten meanwhile.
    dropStackTrace(this, true);
    KeptCalls::release(traced.kept.exchange(nullptr));
    SampledTimes::threadEnds(this);
    SampledLines::threadEnds(this);
    ourAllThreadInfos.remove(this);
    ourAllThreadInfos.compact();
    WallTimeCorrector::threadEnds(this);
    Exceptions::threadEnds(trn);
    Monitors::threadEnds(trn);
    FinishedThreads::add(trn, threadRecordIndex);
}

long ThreadInfo::readCpuTimeNs() const {
    jlong time = 0;
    if (nativeThreadID != 0) {
        time = getThreadCPUTimeNs(nativeThreadID);
    } else if (threadObject == nullptr ||
               ourJVMTI->GetThreadCpuTime(threadObject, &time) != JVMTI_ERROR_NONE) {
        // At load the JVM is not asked for its own thread clocks, and refuses this.
        return 0;
    }
    return time < 0 ? 0 : time;
}

CPUProfilingRecord* ThreadInfo::getCPUProfilingRecord(int frame, bool create) {
    const int tfi = ourDB->threadFrameIndex->getTFI(tfiThreadIndex, frame, create);
    return tfi < 0 ? nullptr : ourDB->cpuProfilingTable->getRecord(tfi, true);
}

AllocInfoRecord* ThreadInfo::getAllocInfo(int frame) {
    const int tfi = ourDB->threadFrameIndex->getTFI(tfiThreadIndex, frame, true);
    return ourDB->allocInfoTable->getRecord(tfi, true);
}

J2EERecord* ThreadInfo::getJ2EERecord(int nameStrID, int typeID, int frame) {
    return ourDB->j2eeTable->getRecord(ourDB->j2eeIndex->getIndex(nameStrID, typeID, frame, trn),
                                       true);
}

void ThreadInfo::clearCPUAndJ2EEInfo() {
    sampled.forgetLastSample();
    traced.forget();
    j2ee.forget();
    ourDB->j2eeIndex->clearThread(trn);
    needsWallTimeCorrection = false;
}

void createStandInThreads() {
    ThreadInfo::ourRegistry++;
    ThreadInfo::ourIndexForTFIPool.clearIndexPool();
    ThreadInfo::ourRunningNumber = 0;
    KeptCalls::releaseAll();
    ourAllThreadInfos.clear();
    FinishedThreads::reset();
    ClassLoadingProbe::reset();
    SampledTimes::reset();
    SampledLines::reset();
    LiveAllocations::reset();
    Exceptions::reset();
    J2EEHelper::reset();
    Monitors::reset();
    resetVirtualThreads();
    ZMethod::reset();
    UnloadedClasses::reset();
    ourFrameStorage.reset();
    ourOldestFinishedThreads = new ThreadInfo("<Oldest finished threads>", "", 0, nullptr);
    ourDB->oldestFinishedThreads = ourOldestFinishedThreads;
    ourVMStartThread = new ThreadInfo("VM Start", "", 0, nullptr);
}

ThreadInfo* getStoredThreadInfo(jthread thread) {
    void* info = nullptr;
    if (ourJVMTI == nullptr || ourJVMTI->GetThreadLocalStorage(thread, &info) != JVMTI_ERROR_NONE) {
        return nullptr;
    }
    return static_cast<ThreadInfo*>(info);
}

ThreadInfo* getThreadInfoJVMTI(jthread thread) {
    return getJVMTIPhase() == JVMTI_PHASE_START ? ourVMStartThread : getStoredThreadInfo(thread);
}

ThreadInfo* getThreadInfo() {
    switch (getJVMTIPhase()) {
    case JVMTI_PHASE_START:
        return ourVMStartThread;
    case JVMTI_PHASE_LIVE:
        return getStoredThreadInfo(nullptr);
    default:
        return nullptr;
    }
}

void setThreadTemporaryEnabled(bool enabled) {
    ThreadInfo* info = getThreadInfo();
    if (info != nullptr) {
        info->temporaryEnabled = enabled;
    }
}
