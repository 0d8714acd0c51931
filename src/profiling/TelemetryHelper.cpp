#include "profiling/TelemetryHelper.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "db/DB.h"
#include "profiling/ClassLoadingProbe.h"
#include "profiling/TelemetryRows.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/threads/AllStacks.h"
#include "profiling/threads/UnloadedClasses.h"

#include <cstdlib>

namespace {

// Fields of the record that the agent fills behind the Java side's.
constexpr long MS_PER_DECISECOND = 100;

void storeProperties(const ZVector<int>& telec) {
    for (int i = 0; i < telec.getSize(); i++) {
        PropertyRecord* row = ourDB->propertyTable->getRecord(i, true);
        if (row->value != telec[i]) {
            row->value = telec[i];
            row->stamp = ourDB->currentStamp;
        }
    }
}

// Appends the extra values. The first name decides for all: 0 there means that there are none.
int storeExtraValues(const ZVector<int>& names, const ZVector<int>& values) {
    if (names.isEmpty() || names[0] == 0) {
        return 0;
    }
    for (int i = 0; i < names.getSize(); i++) {
        const int index = ourDB->telemetryExtTable->nextIndex();
        TelemetryExtRecord* row = ourDB->telemetryExtTable->getRecord(index, true);
        row->nameStrID = names[i];
        row->value = values[i];
        row->stamp = ourDB->currentStamp;
    }
    return names.getSize();
}

} // namespace

void storeTelemetryRecord(JNIEnv* env, const ZVector<int>& telec, const ZVector<int>& tele,
                          const ZVector<int>& extNames, const ZVector<int>& extValues) {
    AllStacks stacks(env);
    const bool withStacks = (ourStatus & STACK_TELEMETRY) != 0;
    if (withStacks) {
        stacks.take();
    }
    LockHolder lock(ourLock, "CoreNatives:467");
    Logger::assertTrue(telec.getSize() <= TELEC_FIELD_COUNT, "CoreNatives", 470);
    Logger::assertEquals(tele.getSize(), TELE_FIELD_COUNT, "CoreNatives", 500);
    Logger::assertEquals(extNames.getSize(), extValues.getSize(), "CoreNatives", 518);
    ourDB->stringPool->collectIfGrown();
    ClassLoadingProbe::flushUnloadedClassesToDB();
    storeProperties(telec);
    if (telec.getSize() > TELEC_UNLOADED_CLASSES) {
        UnloadedClasses::freeMethodsIfEarned(env, telec[TELEC_UNLOADED_CLASSES]);
    }
    const int index = ourDB->telemetryTable->nextIndex();
    evictTelemetry(index);
    limitThreadStates(MOST_THREAD_STATES);
    TelemetryRecord* row = ourDB->telemetryTable->getRecord(index, true);
    row->stamp = ourDB->currentStamp;
    for (int i = 0; i < TELE_FIELD_COUNT; i++) {
        row->values[i] = tele[i];
    }
    beginThreadStates(withStacks ? stacks.getCount() : 0);
    sampleThreadStatesJVMTI(env, withStacks ? &stacks : nullptr,
                            &row->values[TELE_THREAD_STATE_START_INDEX],
                            &row->values[TELE_THREAD_STATE_COUNT]);
    beginExtraValues(extNames.getSize());
    row->values[TELE_EXT_START_INDEX] = ourDB->telemetryExtTable->peekNextIndex();
    row->values[TELE_EXT_COUNT] = storeExtraValues(extNames, extValues);
    row->values[TELE_UPTIME_DS] =
        static_cast<int>(ourUptimeProvider.getUptimeMs() / MS_PER_DECISECOND);
    if (Options::isDebug("_crashInTelemetry")) {
        Logger::message("forced crash (debug=_crashInTelemetry)");
        abort();
    }
}

void addSnapshotInfo(const ZString& path, long value) {
    LockHolder lock(ourLock);
    ourDB->addSnapshotRow(path, value);
}

bool findSnapshot(const ZString& path) {
    LockHolder lock(ourLock);
    return ourDB->hasSnapshotRow(path);
}
