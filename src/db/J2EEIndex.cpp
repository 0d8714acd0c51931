#include "db/J2EEIndex.h"

#include "core/ground/Logger.h"
#include "db/DB.h"

namespace {
int trnOfKey(long key) {
    return static_cast<int>(key >> 32);
}
constexpr int BUCKET_CAPACITY = 1;         // of a bucket made for a new row
constexpr int FILLED_BUCKET_CAPACITY = 10; // of one made from the table
} // namespace

long J2EEIndex::keyOf(int nameStrID, int typeID, int frame, int trn) {
    const unsigned hash =
        (static_cast<unsigned>(nameStrID) + static_cast<unsigned>(frame) * 29) * 29 +
        static_cast<unsigned>(typeID);
    return static_cast<long>(static_cast<unsigned long>(static_cast<unsigned>(trn)) << 32 | hash);
}

int J2EEIndex::getIndex(int nameStrID, int typeID, int frame, int trn) {
    const long key = keyOf(nameStrID, typeID, frame, trn);
    ZVector<int>* bucket = buckets.get(key);
    for (int i = 0; bucket != nullptr && i < bucket->getSize(); i++) {
        const J2EERecord* record = db->j2eeTable->getRecord(bucket->get(i), true);
        if (record->trn == trn && record->frame == frame && record->nameStrID == nameStrID &&
            record->typeID == typeID) {
            return bucket->get(i);
        }
    }
    if (bucket == nullptr) {
        bucket = new ZVector<int>(BUCKET_CAPACITY);
        buckets.put(key, bucket);
    }
    const int index = db->j2eeTable->nextIndex();
    bucket->push(index);
    J2EERecord* record = db->j2eeTable->getRecord(index, true);
    record->trn = trn;
    record->frame = frame;
    record->nameStrID = nameStrID;
    record->typeID = typeID;
    record->stamp = db->currentStamp;
    return index;
}

void J2EEIndex::deleteRow(int index, J2EERecord* record) {
    record->timeNs = 0;
    record->count = 0;
    record->stamp = -db->currentStamp;
    db->j2eeTable->releaseIndex(index);
}

void J2EEIndex::removeBuckets(const ZVector<long>& keys) {
    for (int i = 0; i < keys.getSize(); i++) {
        delete buckets.remove(keys.get(i));
    }
    buckets.compact();
}

void J2EEIndex::clearThread(int trn) {
    ZVector<long> keys;
    for (int slot = 0; slot < buckets.getCapacity(); slot++) {
        if (!buckets.isFull(slot) || trnOfKey(buckets.keyAt(slot)) != trn) {
            continue;
        }
        const ZVector<int>* bucket = buckets.valueAt(slot);
        for (int i = 0; i < bucket->getSize(); i++) {
            deleteRow(bucket->get(i), db->j2eeTable->getRecord(bucket->get(i), true));
        }
        keys.push(buckets.keyAt(slot));
    }
    removeBuckets(keys);
}

void J2EEIndex::mergeJ2EEIndex(ZSet<int>* trns) {
    Logger::assertNotNULL(trns, VDK_HERE);
    // The rows of the oldest threads are made while the rows are merged, which may rebuild the map:
    // the keys are collected first, the walk then goes by key.
    ZVector<long> keys;
    const int slots = buckets.getSize() == 0 ? 0 : buckets.getCapacity();
    for (int slot = 0; slot < slots; slot++) {
        if (buckets.isFull(slot) && trnOfKey(buckets.keyAt(slot)) != 0 &&
            trns->contains(trnOfKey(buckets.keyAt(slot)))) {
            keys.push(buckets.keyAt(slot));
        }
    }
    if (keys.isEmpty()) {
        return;
    }
    Logger::assertNotNULL(db->oldestFinishedThreads, VDK_HERE);
    const int oldest = db->oldestFinishedThreads->trn;
    for (int k = 0; k < keys.getSize(); k++) {
        const ZVector<int>* bucket = buckets.get(keys.get(k));
        for (int i = 0; i < bucket->getSize(); i++) {
            J2EERecord* from = db->j2eeTable->getRecord(bucket->get(i), true);
            const int merged = getIndex(from->nameStrID, from->typeID, from->frame, oldest);
            J2EERecord* to = db->j2eeTable->getRecord(merged, true);
            to->timeNs += from->timeNs;
            to->count += from->count;
            to->stamp = db->currentStamp;
            deleteRow(bucket->get(i), from);
        }
    }
    removeBuckets(keys);
}

void J2EEIndex::fillIndexFromTable() {
    clear();
    DBTable<J2EERecord>* table = db->j2eeTable;
    table->clearIndexPool();
    for (int i = 0; i < table->getCapacity(); i++) {
        const int index = table->nextIndex();
        // Keys far apart must not make chunks for what lies between.
        const J2EERecord* record = table->getRecordUnlocked(index);
        if (record == nullptr) {
            continue;
        }
        if (record->trn == 0 && record->frame == 0 && record->nameStrID == 0 &&
            record->typeID == 0) {
            continue;
        }
        const long key = keyOf(record->nameStrID, record->typeID, record->frame, record->trn);
        ZVector<int>* bucket = buckets.get(key);
        if (bucket == nullptr) {
            bucket = new ZVector<int>(FILLED_BUCKET_CAPACITY);
            buckets.put(key, bucket);
        }
        bucket->push(index);
    }
}

void J2EEIndex::clear() {
    for (int slot = 0; slot < buckets.getCapacity(); slot++) {
        if (buckets.isFull(slot)) {
            delete buckets.valueAt(slot);
        }
    }
    buckets.clear();
}
