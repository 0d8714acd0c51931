#include "profiling/UserTableRows.h"

#include "core/ground/UptimeProvider.h"
#include "profiling/FrequentSampling.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

#include <climits>

namespace {

constexpr long NS_PER_MS = 1000000;
// In "spent_cpu_ns" of a row that another thread closed than made it.
constexpr long UNKNOWN_CPU_TIME = -1;

// Stores a value in a predefined int column, if the table has it.
void setPredefined(UserTable* table, int* row, PredefinedColumn which, int value) {
    const int column = table->getPredefinedColumn(which);
    if (column >= 0) {
        table->setIntColumn(row, column, value);
    }
}

// Stores thread and stack, if the table has columns for them and they are known. The stack is
// walked only then.
void setOrigin(JNIEnv* env, UserTable* table, int* row, PredefinedColumn threadColumn,
               PredefinedColumn stackColumn, RowOrigin origin) {
    if (env == nullptr) {
        return;
    }
    const ThreadInfo* info = getThreadInfo();
    if (info != nullptr) {
        setPredefined(table, row, threadColumn, info->trn);
    }
    const int column = table->getPredefinedColumn(stackColumn);
    if (column >= 0 && origin == RowOrigin::THREAD_AND_STACK) {
        table->setIntColumn(row, column, ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr));
    }
}

void clearFields(UserTable* table, int* record) {
    for (int word = 1; word < table->getRowLength(); word++) {
        record[word] = 0;
    }
}

void deleteRow(UserTable* table, int* record, int row) {
    clearFields(table, record);
    record[0] = -ourDB->currentStamp;
    table->releaseIndex(row);
}

// An open row may have a negative stamp too, but has its time; only rows with a time are deleted.
bool isDeleted(UserTable* table, const int* record) {
    const int start = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS);
    return record[0] < 0 && start >= 0 && table->getLongColumn(record, start) == 0;
}

// Clocks belong to threads, and to none that the agent knows while a virtual thread runs: the
// difference of two threads' clocks means nothing.
bool isMadeByCurrentThread(JNIEnv* env, UserTable* table, const int* record) {
    const int thread = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_THREAD);
    if (thread < 0) {
        return true;
    }
    const ThreadInfo* info = env == nullptr ? nullptr : getThreadInfo();
    return info != nullptr && table->getIntColumn(record, thread) == info->trn;
}

// Turns the clock's value at the row's creation into the time since.
void setSpentTime(JNIEnv* env, UserTable* table, int* record) {
    const int cpu = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS);
    if (cpu < 0) {
        return;
    }
    const long spent = isMadeByCurrentThread(env, table, record)
                           ? getCurrentThreadCPUTimeNs() - table->getLongColumn(record, cpu)
                           : UNKNOWN_CPU_TIME;
    table->setLongColumn(record, cpu, spent < 0 ? UNKNOWN_CPU_TIME : spent);
}

} // namespace

int createUserTableRow(JNIEnv* env, int tableIndex, int frequentThresholdMs, int minimumMs,
                       RowOrigin origin) {
    UserTable* table = ourDB->getUserTable(tableIndex);
    if (table == nullptr) {
        return NO_USER_TABLE_ROW;
    }
    if (env != nullptr) {
        const ThreadInfo* info = getThreadInfo();
        if (info != nullptr && info->agentThread && !info->temporaryEnabled) {
            return NO_USER_TABLE_ROW;
        }
    }
    const int row = table->nextIndex();
    if (ourDB->probeTableLengthLimit != -1 && row >= ourDB->probeTableLengthLimit) {
        table->releaseIndex(row);
        table->countRefusedRow();
        return NO_USER_TABLE_ROW;
    }
    int* record = table->getRecord(row, true);
    clearFields(table, record);
    frequentSamplingRowCreated(tableIndex, row, frequentThresholdMs);
    const int uptime = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS);
    if (uptime >= 0) {
        table->setLongColumn(record, uptime, ourUptimeProvider.getUptimeNs());
    }
    const int cpu = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_SPENT_CPU_TIME_NS);
    if (cpu >= 0) {
        table->setLongColumn(record, cpu, getCurrentThreadCPUTimeNs());
    }
    setOrigin(env, table, record, USER_TABLE_PREDEFINED_COLUMN_THREAD,
              USER_TABLE_PREDEFINED_COLUMN_STACKTRACE, origin);
    record[0] = minimumMs > 0 ? -ourDB->currentStamp : ourDB->currentStamp;
    return row;
}

bool closeUserTableRow(JNIEnv* env, int tableIndex, int row, int minimumMs) {
    UserTable* table = ourDB->getUserTable(tableIndex);
    if (row == NO_USER_TABLE_ROW || row < 0 || table == nullptr) {
        return false;
    }
    int* record = table->getRecord(row, false);
    if (record == nullptr || isDeleted(table, record)) {
        return false;
    }
    frequentSamplingRowClosed(tableIndex, row);
    const int end = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS_END);
    if (end >= 0) {
        if (table->getLongColumn(record, end) != 0) {
            // Closed before: it isn't measured again.
            return true;
        }
        table->setLongColumn(record, end, ourUptimeProvider.getUptimeNs());
    }
    const int start = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS);
    if (minimumMs > 0 && start >= 0 &&
        ourUptimeProvider.getUptimeNs() - table->getLongColumn(record, start) <
            minimumMs * NS_PER_MS) {
        deleteRow(table, record, row);
        return false;
    }
    setSpentTime(env, table, record);
    setOrigin(env, table, record, USER_TABLE_PREDEFINED_COLUMN_THREAD_END,
              USER_TABLE_PREDEFINED_COLUMN_STACKTRACE_END, RowOrigin::THREAD_AND_STACK);
    record[0] = ourDB->currentStamp;
    return true;
}

void storeRefusedUserTableRows() {
    for (int slot = FIRST_USER_TABLE; slot < MAX_TABLE_COUNT; slot++) {
        const UserTable* table = ourDB->getUserTable(slot);
        if (table != nullptr && table->getRefusedRows() > 0) {
            const long count = table->getRefusedRows();
            ourDB->setProperty((ZString(REFUSED_ROWS_PROPERTY) + longToString(slot)).c_str(),
                               static_cast<int>(count < INT_MAX ? count : INT_MAX));
        }
    }
}

bool isUserTableRowClosed(int tableIndex, int row) {
    UserTable* table = ourDB->getUserTable(tableIndex);
    if (row == NO_USER_TABLE_ROW || row < 0 || table == nullptr) {
        return false;
    }
    const int end = table->getPredefinedColumn(USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS_END);
    const int* record = table->getRecord(row, false);
    return end >= 0 && record != nullptr && table->getLongColumn(record, end) != 0;
}
