#include "profiling/FinishedThreads.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/ground/ZVector.h"
#include "db/DB.h"
#include "profiling/ThreadInfo.h"

namespace {

// So that a merge, which walks whole tables, does not run at every end of a thread.
const int MERGE_MARGIN = 10;
const int MERGE_SET_CAPACITY = 100;
const int ENDS_PER_STRING_COLLECTION = 100;
const int ZERO_INDEX_LINE = 182;

ZVector<int>& ourFinishedThreadTRNs = *new ZVector<int>();
// Position of the first thread that ended while nothing was recorded; 0 while something is.
int ourFinishedMarker = 0;
int ourThreadEndCount = 0;

void updateMarker() {
    if (ourStatus.load(std::memory_order_relaxed) != 0) {
        ourFinishedMarker = 0;
    } else if (ourFinishedMarker == 0) {
        ourFinishedMarker = ourFinishedThreadTRNs.getSize();
    }
}

void mergeThreads(ZSet<int>* trns) {
    ourDB->j2eeIndex->mergeJ2EEIndex(trns);
    ourDB->threadTable->eachRecord([&](int, ThreadRecord& record) {
        if (record.trn == 0 || !trns->contains(record.trn)) {
            return;
        }
        Logger::assertTrue(record.tfiThreadIndex != 0, "ThreadInfo", ZERO_INDEX_LINE);
        ourDB->threadFrameIndex->changeThread(record.tfiThreadIndex);
        ThreadInfo::ourIndexForTFIPool.releaseIndex(record.tfiThreadIndex);
        // The row stays, for the name in older data.
        record.tfiThreadIndex = 0;
        record.stamp = ourDB->currentStamp;
    });
}

void mergeOldest() {
    const int end = ourFinishedThreadTRNs.getSize() - ourOptions->deadThreadLimit;
    if (ourFinishedMarker >= end) {
        return;
    }
    ZSet<int> trns(MERGE_SET_CAPACITY);
    for (int i = ourFinishedMarker; i < end; i++) {
        trns.add(ourFinishedThreadTRNs[i]);
    }
    mergeThreads(&trns);
    ourFinishedThreadTRNs.removeRange(ourFinishedMarker, end);
}

} // namespace

void FinishedThreads::add(int trn) {
    updateMarker();
    ourFinishedThreadTRNs.push(trn);
    if (ourFinishedThreadTRNs.getSize() > ourOptions->deadThreadLimit + MERGE_MARGIN) {
        mergeOldest();
    }
    if (ourThreadEndCount++ % ENDS_PER_STRING_COLLECTION == 0) {
        ourDB->stringPool->collectIfEarned(ENDS_PER_STRING_COLLECTION);
    }
}

int FinishedThreads::count() {
    return ourFinishedThreadTRNs.getSize();
}

void FinishedThreads::reset() {
    ourFinishedThreadTRNs.clear();
    ourFinishedMarker = 0;
    ourThreadEndCount = 0;
}
