#pragma once

#include "core/ground/ZMap.h"
#include "core/ground/ZSet.h"
#include "core/ground/ZVector.h"

class DB;
struct J2EERecord;

// J2EEIndex finds the row of j2ee for a thread, frame, name and kind of event. Derived data:
// fillIndexFromTable rebuilds it. The database's owner locks.
class J2EEIndex {
public:
    explicit J2EEIndex(DB* database) : buckets(INITIAL_CAPACITY), db(database) {}
    ~J2EEIndex() { clear(); }
    J2EEIndex(const J2EEIndex&) = delete;
    J2EEIndex& operator=(const J2EEIndex&) = delete;

    // Row of the quadruple, made if need be.
    int getIndex(int nameStrID, int typeID, int frame, int trn);
    // Deletes all rows of a thread.
    void clearThread(int trn);
    // Adds the rows of these threads to the database's oldestFinishedThreads and deletes them. The
    // set must not be null.
    void mergeJ2EEIndex(ZSet<int>* trns);
    // Rebuilds the index from j2ee, and sets the index pool of that table to its capacity.
    void fillIndexFromTable();
    void clear();

    // Running number in the upper half, a hash of the rest in the lower.
    static long keyOf(int nameStrID, int typeID, int frame, int trn);

private:
    static constexpr int INITIAL_CAPACITY = 1024;

    void deleteRow(int index, J2EERecord* record);
    void removeBuckets(const ZVector<long>& keys);

    ZMap<long, ZVector<int>*> buckets; // rows of j2ee with one key
    DB* db;
};
