#include "profiling/TelemetryRows.h"

#include "db/DB.h"

#include <climits>

namespace {

// Eviction is looked at once in so many records.
constexpr int EVICTION_INTERVAL = 20;
constexpr int CHUNK_SHIFT = ZIntChunkMap<TelemetryRecord>::CHUNK_SHIFT;
constexpr int CHUNK_SIZE = ZIntChunkMap<TelemetryRecord>::CHUNK_SIZE;
// More thread states than the limit go than must, so that it is not looked for them at each record.
constexpr int LIMIT_SLACK = 16;

int chunkOf(int row) {
    return row >> CHUNK_SHIFT;
}

// The chunk that row `next` lies in may be in use by the run before it; those behind must be free.
template <typename T>
bool isFree(DBTable<T>* table, int next, int rows) {
    const ZIntChunkMap<T>& records = table->getRecords();
    for (int chunk = chunkOf(next + CHUNK_SIZE - 1); chunk <= chunkOf(next + rows - 1); chunk++) {
        if (chunk < records.getChunkCount() && records.chunkAt(chunk) != nullptr) {
            return false;
        }
    }
    return true;
}

template <typename T>
void beginRun(DBTable<T>* table, int rows) {
    const int next = table->peekNextIndex();
    if (rows < 1 || rows > ROWS_BEFORE_REUSE) {
        return;
    }
    const bool fits = next <= INT_MAX - rows - CHUNK_SIZE && isFree(table, next, rows);
    if (fits && next + rows <= ROWS_BEFORE_REUSE) {
        return;
    }
    const int gap = table->getRecords().findGap(chunkOf(rows - 1) + 1);
    if (!fits || gap < chunkOf(next)) {
        table->getIndexPool().continueAt(gap << CHUNK_SHIFT);
    }
}

// Two fields of a row of tele: a run of rows of another table.
struct RunFields {
    int start;
    int count;
};
constexpr RunFields THREAD_STATES = {TELE_THREAD_STATE_START_INDEX, TELE_THREAD_STATE_COUNT};
constexpr RunFields EXTRA_VALUES = {TELE_EXT_START_INDEX, TELE_EXT_COUNT};

// Row of tele from `from` on, below the next one, that has a run; -1 if there is none.
int findRun(RunFields fields, int from) {
    for (int row = from; row < ourDB->telemetryTable->peekNextIndex(); row++) {
        const TelemetryRecord* record = ourDB->telemetryTable->getRecord(row, false);
        if (record != nullptr && record->values[fields.count] > 0) {
            return row;
        }
    }
    return -1;
}

// Frees the runs of the rows of tele below `end`. `visit` is told of each such row.
template <typename T, typename Visitor>
void freeRuns(DBTable<T>* table, RunFields fields, int from, int end, Visitor&& visit) {
    int row = findRun(fields, from);
    while (row >= 0 && row < end) {
        const int following = findRun(fields, row + 1);
        TelemetryRecord* record = ourDB->telemetryTable->getRecord(row, true);
        const int start = record->values[fields.start];
        // Runs lie in one piece in their order, so the last chunk may be the next one's as well.
        const int shared =
            following < 0
                ? chunkOf(table->peekNextIndex())
                : chunkOf(ourDB->telemetryTable->getRecord(following, true)->values[fields.start]);
        for (int chunk = chunkOf(start); chunk <= chunkOf(start + record->values[fields.count] - 1);
             chunk++) {
            if (chunk != shared) {
                table->getRecords().freeChunk(chunk);
            }
        }
        if (!visit(record)) {
            return;
        }
        row = following;
    }
}

int oldestRow() {
    const int row = ourDB->telemetryTable->getMinIndex();
    return row < 0 ? 0 : row;
}

} // namespace

void beginThreadStates(int rows) {
    beginRun(ourDB->threadStateTable, rows);
}

void beginExtraValues(int rows) {
    beginRun(ourDB->telemetryExtTable, rows);
}

void evictTelemetry(int index) {
    const int limit = ourDB->telemetryLimit;
    if (limit == -1 || index <= limit || index % EVICTION_INTERVAL != 0) {
        return;
    }
    const int chunks = chunkOf(index - limit);
    const int oldest = oldestRow();
    if (chunks < 1 || chunkOf(oldest) >= chunks) {
        return;
    }
    const int end = chunks << CHUNK_SHIFT;
    const auto goOn = [](const TelemetryRecord*) { return true; };
    freeRuns(ourDB->threadStateTable, THREAD_STATES, oldest, end, goOn);
    freeRuns(ourDB->telemetryExtTable, EXTRA_VALUES, oldest, end, goOn);
    for (int chunk = chunkOf(oldest); chunk < chunks; chunk++) {
        ourDB->telemetryTable->getRecords().freeChunk(chunk);
    }
}

void limitThreadStates(int mostRows) {
    const ZIntChunkMap<ThreadStateRecord>& states = ourDB->threadStateTable->getRecords();
    const int mostChunks = chunkOf(mostRows);
    if (ourDB->telemetryLimit == -1 || states.getUsedChunks() <= mostChunks) {
        return;
    }
    // The newest row stays whole, be its run ever so long.
    freeRuns(ourDB->threadStateTable, THREAD_STATES, oldestRow(),
             ourDB->telemetryTable->peekNextIndex() - 1, [&](TelemetryRecord* record) {
                 record->values[TELE_THREAD_STATE_COUNT] = -1;
                 record->stamp = ourDB->currentStamp;
                 return states.getUsedChunks() > mostChunks - mostChunks / LIMIT_SLACK;
             });
}
