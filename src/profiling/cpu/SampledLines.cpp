#include "profiling/cpu/SampledLines.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

namespace {

const char DESCRIPTION[] = "Sampled Lines\n4\nthread\n0\nframe\n0\nline\n0\ntime_ns\n1\n";
const int THREAD_COLUMN = 0;
const int FRAME_COLUMN = 1;
const int LINE_COLUMN = 2;
const int TIME_COLUMN = 3;

// 14 MB with their index. What more there is counts as refused, and its lines stay unknown.
const int MOST_ROWS = 1 << 18;
// Only hidden calls of the agent's own lie above a frame.
const int MOST_HIDDEN = 32;

// Slot of the table: 0 before it was made, negative when it could not be.
int ourTable = 0;
int ourRowCount = 0;
// Of ended threads by their numbers.
ZMap<int, LineRows*>& ourEndedRows = *new ZMap<int, LineRows*>(10);

UserTable* getTable() {
    if (ourTable == 0) {
        ourTable = ourDB->createUserTableByDescription(DESCRIPTION);
    }
    return ourTable < 0 ? nullptr : ourDB->getUserTable(ourTable);
}

// The row of a frame and line; negative if there is no room for one.
int rowOf(UserTable* table, ThreadInfo* info, int frame, int line) {
    if (info->sampled.lineRows == nullptr) {
        info->sampled.lineRows = new LineRows();
    }
    LineRows& rows = *info->sampled.lineRows;
    const long key = static_cast<long>(frame) << 32 | line;
    const int* const known = rows.indexes.getPtr(key);
    if (known != nullptr) {
        return *known;
    }
    if (ourRowCount >= MOST_ROWS) {
        table->countRefusedRow();
        return -1;
    }
    const int index = table->nextIndex();
    int* const row = table->getRecord(index, true);
    table->setIntColumn(row, THREAD_COLUMN, info->trn);
    table->setIntColumn(row, FRAME_COLUMN, frame);
    table->setIntColumn(row, LINE_COLUMN, line);
    rows.indexes.put(key, index);
    rows.list.push(index);
    ourRowCount++;
    return index;
}

void addTo(UserTable* table, ThreadInfo* info, int frame, int line, long timeNs) {
    const int index = rowOf(table, info, frame, line);
    if (index >= 0) {
        int* const row = table->getRecord(index, true);
        table->setLongColumn(row, TIME_COLUMN, table->getLongColumn(row, TIME_COLUMN) + timeNs);
        row[0] = ourDB->currentStamp;
    }
}

void mergeThread(UserTable* table, const LineRows& rows) {
    for (int i = 0; i < rows.list.getSize(); i++) {
        const int* const row = table->getRecord(rows.list[i], true);
        const int frame = table->getIntColumn(row, FRAME_COLUMN);
        const int line = table->getIntColumn(row, LINE_COLUMN);
        const long timeNs = table->getLongColumn(row, TIME_COLUMN);
        table->deleteRow(rows.list[i], ourDB->currentStamp);
        ourRowCount--;
        addTo(table, ourOldestFinishedThreads, frame, line, timeNs);
    }
}

// Of the entries that begin at or before the place the one that begins last: compilers leave them
// in any order.
int lineAt(jmethodID method, jlocation place) {
    JvmtiMemory<jvmtiLineNumberEntry> entries;
    jint count = 0;
    if (place < 0 ||
        ourJVMTI->GetLineNumberTable(method, &count, entries.receive()) != JVMTI_ERROR_NONE) {
        return 0;
    }
    jlocation begin = -1;
    int line = 0;
    for (jint i = 0; i < count; i++) {
        const jvmtiLineNumberEntry& entry = entries.get()[i];
        if (entry.start_location <= place && entry.start_location > begin) {
            begin = entry.start_location;
            line = entry.line_number;
        }
    }
    return line;
}

void forgetEnded() {
    for (int slot = 0; slot < ourEndedRows.getCapacity(); slot++) {
        if (ourEndedRows.isFull(slot)) {
            delete ourEndedRows.valueAt(slot);
        }
    }
    ourEndedRows.clear();
}

void forget(ThreadInfo* info) {
    delete info->sampled.lineRows;
    info->sampled.lineRows = nullptr;
}

} // namespace

int SampledLines::lineOf(JNIEnv* env, int frame, const jvmtiFrameInfo* stack, int depth) {
    if (!ourOptions->sampleLines || frame <= 0) {
        return 0;
    }
    const int method = ourFrameStorage.getMethodIndex(frame);
    for (int i = 0; i < depth && i < MOST_HIDDEN; i++) {
        if (getMethodByID(env, stack[i].method) == method) {
            return lineAt(stack[i].method, stack[i].location);
        }
    }
    return 0;
}

void SampledLines::add(ThreadInfo* info, int frame, int line, long timeNs) {
    UserTable* const table = line <= 0 || timeNs <= 0 ? nullptr : getTable();
    if (table != nullptr) {
        addTo(table, info, frame, line, timeNs);
    }
}

void SampledLines::threadEnds(ThreadInfo* info) {
    if (info->sampled.lineRows != nullptr) {
        ourEndedRows.put(info->trn, info->sampled.lineRows);
        info->sampled.lineRows = nullptr;
    }
}

void SampledLines::mergeThreads(const ZSet<int>& trns) {
    for (int slot = 0; slot < trns.getCapacity(); slot++) {
        LineRows* const rows = trns.isFull(slot) ? ourEndedRows.remove(trns.keyAt(slot)) : nullptr;
        if (rows != nullptr) {
            mergeThread(ourDB->getUserTable(ourTable), *rows);
            delete rows;
        }
    }
    ourEndedRows.compact();
}

void SampledLines::clear() {
    eachThreadInfo(forget);
    forget(ourOldestFinishedThreads);
    forgetEnded();
    UserTable* const table = ourTable > 0 ? ourDB->getUserTable(ourTable) : nullptr;
    if (table != nullptr) {
        table->deleteLiveRows(ourDB->currentStamp);
        ourRowCount = 0;
    }
}

void SampledLines::reset() {
    ourTable = 0;
    ourRowCount = 0;
    forgetEnded();
}
