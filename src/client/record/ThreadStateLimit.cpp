#include "client/record/ThreadStateLimit.h"

#include "db/DB.h"

#include <algorithm>

namespace vdk {

namespace {

// A file may name any rows.
void dropStates(DB& db, int start, int count) {
    const int capacity = db.threadStateTable->getCapacity();
    const int end = int(std::min<int64_t>(int64_t(start) + count, capacity));
    for (int i = std::max(start, 0); i < end; i++) {
        if (ThreadStateRecord* state = db.threadStateTable->getRecord(i, false)) {
            state->stamp = 0;
        }
    }
}

} // namespace

void limitThreadStates(DB& db, int most) {
    int64_t kept = 0;
    for (int row = db.telemetryTable->getCapacity() - 1; row >= 0; row--) {
        TelemetryRecord* record = db.telemetryTable->getRecord(row, false);
        if (!record || record->stamp <= 0 || record->values[TELE_THREAD_STATE_COUNT] <= 0) {
            continue;
        }
        const int count = record->values[TELE_THREAD_STATE_COUNT];
        if (kept == 0 || kept + count <= most) {
            kept += count;
            continue;
        }
        dropStates(db, record->values[TELE_THREAD_STATE_START_INDEX], count);
        record->values[TELE_THREAD_STATE_COUNT] = -1;
        kept = std::max<int64_t>(kept, most); // none that is older stays
    }
}

} // namespace vdk
