#include "profiling/cpu/SampledTimes.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "db/DB.h"
#include "platform/Platform.h"
#include "profiling/cpu/Sampling.h"
#include "profiling/threads/ThreadInfo.h"

namespace {

const char DESCRIPTION[] = "Sampled CPU\n3\nthread\n0\ncpu_ns\n1\ncharged_ns\n1\n";
const int THREAD_COLUMN = 0;
const int CPU_COLUMN = 1;
const int CHARGED_COLUMN = 2;

// Slot of the table: 0 before it was made, negative when it could not be.
int ourTable = 0;
// Rows of ended threads, in the order of their ends.
ZVector<int>& ourEndedRows = *new ZVector<int>();

UserTable* getTable() {
    if (ourTable == 0) {
        ourTable = ourDB->createUserTableByDescription(DESCRIPTION);
    }
    return ourTable < 0 ? nullptr : ourDB->getUserTable(ourTable);
}

void addLong(UserTable* table, int* row, int column, long ns) {
    table->setLongColumn(row, column, table->getLongColumn(row, column) + ns);
}

void addToRow(UserTable* table, ThreadInfo* info, long cpuNs, long chargedNs) {
    if (info->sampled.timesRow == SampleMemory::NO_ROW) {
        info->sampled.timesRow = table->nextIndex();
        table->setIntColumn(table->getRecord(info->sampled.timesRow, true), THREAD_COLUMN,
                            info->trn);
    }
    int* row = table->getRecord(info->sampled.timesRow, true);
    addLong(table, row, CPU_COLUMN, cpuNs);
    addLong(table, row, CHARGED_COLUMN, chargedNs);
    row[0] = ourDB->currentStamp;
}

void mergeOldest(UserTable* table) {
    const int oldest = ourEndedRows[0];
    ourEndedRows.removeRange(0, 1);
    const int* row = table->getRecord(oldest, true);
    addToRow(table, ourOldestFinishedThreads, table->getLongColumn(row, CPU_COLUMN),
             table->getLongColumn(row, CHARGED_COLUMN));
    table->deleteRow(oldest, ourDB->currentStamp);
}

} // namespace

void SampledTimes::add(ThreadInfo* info, long cpuNs, bool charged) {
    UserTable* const table = isSampledTime(cpuNs) ? getTable() : nullptr;
    if (table != nullptr) {
        addToRow(table, info, cpuNs, charged ? cpuNs : 0);
    }
}

void SampledTimes::threadStarts(ThreadInfo* info) {
    if (isSamplingOn() && !info->agentThread) {
        const long now = Platform::currentThreadCPUTimeNs();
        info->sampled.lastCpuTimeNs = now < 1 ? 1 : now;
    }
}

void SampledTimes::threadEnds(ThreadInfo* info) {
    if (isSamplingOn() && info->sampled.lastCpuTimeNs != 0) {
        add(info, Platform::currentThreadCPUTimeNs() - info->sampled.lastCpuTimeNs, false);
    }
    if (info->sampled.timesRow == SampleMemory::NO_ROW) {
        return;
    }
    ourEndedRows.push(info->sampled.timesRow);
    if (ourEndedRows.getSize() > ourOptions->deadThreadLimit) {
        mergeOldest(ourDB->getUserTable(ourTable));
    }
}

void SampledTimes::clear() {
    eachThreadInfo([](ThreadInfo* info) { info->sampled.timesRow = SampleMemory::NO_ROW; });
    ourOldestFinishedThreads->sampled.timesRow = SampleMemory::NO_ROW;
    ourEndedRows.clear();
    UserTable* const table = ourTable > 0 ? ourDB->getUserTable(ourTable) : nullptr;
    if (table != nullptr) {
        table->deleteLiveRows(ourDB->currentStamp);
    }
}

void SampledTimes::reset() {
    ourTable = 0;
    ourEndedRows.clear();
}
