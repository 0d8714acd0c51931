#include "client/record/RecordedTime.h"

#include "db/DB.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace vdk {

namespace {

const char Property[] = "vdk.recorded.ms";

// The row behind the last: a database that was read does not know which are free.
template <typename T>
int rowBehind(DBTable<T>* table) {
    int last = 0;
    table->eachRecord([&](int index, const T&) { last = std::max(last, index); });
    return last + 1;
}

} // namespace

void noteRecordedTime(DB& db, int64_t milliseconds) {
    const int name = rowBehind(db.stringTable);
    db.stringPool->loadRow(name, db.currentStamp, strdup(Property));
    PropertyRecord* record = db.propertyTable->getRecord(rowBehind(db.propertyTable), true);
    record->nameStrID = name;
    record->value = int(std::min<int64_t>(milliseconds, INT_MAX));
    record->stamp = db.currentStamp;
}

int64_t recordedTimeMs(DB& db) {
    int64_t found = 0;
    db.propertyTable->eachRecord([&](int, const PropertyRecord& record) {
        const char* name = record.stamp > 0 ? db.stringPool->getText(record.nameStrID) : nullptr;
        if (name && strcmp(name, Property) == 0) {
            found = record.value;
        }
    });
    return found;
}

} // namespace vdk
