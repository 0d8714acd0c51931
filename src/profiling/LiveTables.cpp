#include "profiling/LiveTables.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/ClassLoadingProbe.h"
#include "profiling/UserTableRows.h"
#include "profiling/cpu/TracedStack.h"
#include "profiling/cpu/WallTimeCorrector.h"
#include "profiling/events/Monitors.h"
#include "profiling/memory/InstanceCounting.h"
#include "profiling/memory/LiveAllocations.h"
#include "profiling/threads/ThreadInfo.h"

namespace {

// An error leaves the names as they are.
void refreshThreadNames(JNIEnv* env) {
    jint count = 0;
    JvmtiMemory<jthread> threads;
    if (ourJVMTI->GetAllThreads(&count, threads.receive()) != JVMTI_ERROR_NONE) {
        return;
    }
    announceLocalReferences(env, count);
    for (jint i = 0; i < count; i++) {
        ThreadInfo* info = getStoredThreadInfo(threads.get()[i]);
        if (info != nullptr) {
            info->ensureThreadHasName(env, threads.get()[i]);
        }
        env->DeleteLocalRef(threads.get()[i]);
    }
}

void correctAllWallTimes() {
    WallTimeCorrector corrector;
    eachThreadInfo([&](ThreadInfo* info) { corrector.scheduleForCorrection(info); });
    corrector.scheduleEndedThreads();
    corrector.scheduleForCorrection(ourOldestFinishedThreads);
    corrector.correctWallTimes();
}

} // namespace

void LiveTables::bringUpToDate(const TableSet& set) {
    if (env != nullptr && !ourIsJRockit && set.contains(*ourDB, SLOT_Thread)) {
        refreshThreadNames(env);
    }
    if (counting != nullptr) {
        counting->updateDatabase();
    }
    ClassLoadingProbe::flushUnloadedClassesToDB();
    if (set.contains(*ourDB, SLOT_CPUProfiling)) {
        // Open calls count with the time that they have taken so far.
        resetStackTraceForAllThreads();
        restoreStackTraceForAllThreads();
        correctAllWallTimes();
    }
    // A pass over all recorded objects: only for who asks for both.
    if (set.contains(*ourDB, SLOT_AllocInfo) && LiveAllocations::getTable() > 0 &&
        set.contains(*ourDB, LiveAllocations::getTable())) {
        LiveAllocations::bringUpToDate();
    }
    if (set.contains(*ourDB, SLOT_Property)) {
        storeRefusedUserTableRows();
    }
    if (set.contains(*ourDB, SLOT_Monitor)) {
        Monitors::storeDuration();
    }
}
