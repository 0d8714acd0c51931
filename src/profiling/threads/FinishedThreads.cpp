#include "profiling/threads/FinishedThreads.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/ground/ZVector.h"
#include "db/DB.h"
#include "db/ThreadReferences.h"
#include "profiling/cpu/SampledLines.h"
#include "profiling/events/Exceptions.h"
#include "profiling/events/Monitors.h"
#include "profiling/memory/ObjectEnumerator.h"
#include "profiling/threads/ThreadInfo.h"

namespace {

// So that a merge does not run at every end of a thread.
const int MERGE_MARGIN = 10;
const int MERGE_SET_CAPACITY = 100;
const int ENDS_PER_STRING_COLLECTION = 100;
const int ZERO_INDEX_LINE = 182;
// A search for the merged threads that nothing names walks whole tables. It waits until so many
// were merged, and until so many rows at the most come to each of them.
const int LEAST_MERGED = 256;
const long ROWS_PER_MERGED = 256;

struct FinishedThread {
    int trn;
    int row; // of thread
};

ZVector<FinishedThread>& ourFinishedThreadTRNs = *new ZVector<FinishedThread>();
// Position of the first thread that ended while nothing was recorded; 0 while something is.
int ourFinishedMarker = 0;
int ourThreadEndCount = 0;
// Merged threads that still have their rows of thread.
ZVector<FinishedThread>& ourMergedThreads = *new ZVector<FinishedThread>();
// Of the last search among them: how many stayed, and how many rows it looked at.
int ourNamedThreads = 0;
long ourRowsOfLastSearch = 0;

void updateMarker() {
    if (ourStatus.load(std::memory_order_relaxed) != 0) {
        ourFinishedMarker = 0;
    } else if (ourFinishedMarker == 0) {
        ourFinishedMarker = ourFinishedThreadTRNs.getSize();
    }
}

void mergeThread(const FinishedThread& thread) {
    ThreadRecord* record = ourDB->threadTable->getRecord(thread.row, true);
    Logger::assertTrue(record->tfiThreadIndex != 0, "ThreadInfo", ZERO_INDEX_LINE);
    ourDB->threadFrameIndex->changeThread(record->tfiThreadIndex);
    ThreadInfo::ourIndexForTFIPool.releaseIndex(record->tfiThreadIndex);
    // The row stays, for the name in older data, until there is none.
    record->tfiThreadIndex = 0;
    record->stamp = ourDB->currentStamp;
    ourMergedThreads.push(thread);
}

void mergeOldest() {
    const int end = ourFinishedThreadTRNs.getSize() - ourOptions->deadThreadLimit;
    if (ourFinishedMarker >= end) {
        return;
    }
    ZSet<int> trns(MERGE_SET_CAPACITY);
    for (int i = ourFinishedMarker; i < end; i++) {
        trns.add(ourFinishedThreadTRNs[i].trn);
    }
    Exceptions::mergeExceptionUsage(&trns);
    Monitors::mergeMonitorUsage(&trns);
    ourDB->j2eeIndex->mergeJ2EEIndex(&trns);
    SampledLines::mergeThreads(trns);
    for (int i = ourFinishedMarker; i < end; i++) {
        mergeThread(ourFinishedThreadTRNs[i]);
    }
    ourFinishedThreadTRNs.removeRange(ourFinishedMarker, end);
}

// Constant time for each merged thread, however many there were.
bool isSearchDue() {
    const int merged = ourMergedThreads.getSize() - ourNamedThreads;
    return merged >= LEAST_MERGED && merged >= ourNamedThreads &&
           merged * ROWS_PER_MERGED >= ourRowsOfLastSearch;
}

void freeRow(int row) {
    ThreadRecord* record = ourDB->threadTable->getRecord(row, true);
    *record = ThreadRecord();
    record->stamp = -ourDB->currentStamp;
    ourDB->threadTable->releaseIndex(row);
}

} // namespace

void FinishedThreads::add(int trn, int row) {
    updateMarker();
    ourFinishedThreadTRNs.push({trn, row});
    if (ourFinishedThreadTRNs.getSize() > ourOptions->deadThreadLimit + MERGE_MARGIN) {
        mergeOldest();
        if (isSearchDue()) {
            freeUnnamedRows();
        }
    }
    if (ourThreadEndCount++ % ENDS_PER_STRING_COLLECTION == 0) {
        ourDB->stringPool->collectIfEarned(ENDS_PER_STRING_COLLECTION);
    }
}

void FinishedThreads::freeUnnamedRows() {
    const int merged = ourMergedThreads.getSize();
    ZSet<int> unnamed(merged + 1);
    for (int i = 0; i < merged; i++) {
        unnamed.add(ourMergedThreads[i].trn);
    }
    {
        // Objects that end change the table allocator under its own lock alone.
        LockHolder objects(ourObjectEnumerator);
        ourRowsOfLastSearch = removeNamedThreads(ourDB, &unnamed);
    }
    ourNamedThreads = 0;
    for (int i = 0; i < merged; i++) {
        const FinishedThread thread = ourMergedThreads[i];
        if (unnamed.contains(thread.trn)) {
            freeRow(thread.row);
        } else {
            ourMergedThreads[ourNamedThreads++] = thread;
        }
    }
    ourMergedThreads.removeRange(ourNamedThreads, merged);
}

int FinishedThreads::count() {
    return ourFinishedThreadTRNs.getSize();
}

void FinishedThreads::reset() {
    ourFinishedThreadTRNs.clear();
    ourFinishedMarker = 0;
    ourThreadEndCount = 0;
    ourMergedThreads.clear();
    ourNamedThreads = 0;
    ourRowsOfLastSearch = 0;
}
