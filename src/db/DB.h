#pragma once

#include "core/ground/ZString.h"
#include "db/DBTable.h"
#include "db/J2EEIndex.h"
#include "db/Records.h"
#include "db/StringPool.h"
#include "db/ThreadFrameIndex.h"
#include "db/ThreadKeys.h"
#include "db/UserTable.h"

// DB: the profiling database: 19 core tables, up to 96 user tables, the string pool and two
// indexes. A profiled process has one, ourDB; readers of snapshots and streams have others. Nothing
// in it is persistent. Everything in ourDB is read and written under ourLock; any other database is
// one thread's at a time.
//
// currentStamp is the database's clock: every write stores it, and it rises after every fetch of
// rows by a client, so what is written next is newer than what that client saw.
class DB {
public:
    // telemetryLimit: rows of tele to keep, -1 for all. probeTableLengthLimit: rows of a user
    // table.
    DB(int telemetryLimit, int probeTableLengthLimit);
    ~DB();
    DB(const DB&) = delete;
    DB& operator=(const DB&) = delete;

    // Makes ourDB, with the session name of the options and the rows of properties that telemetry
    // writes. createStandInThreads makes the threads that stand for finished and early ones; it
    // runs before those rows are made, and may be null.
    static void createAndInitializeDB(int telemetryLimit, int probeTableLengthLimit,
                                      void (*createStandInThreads)());

    // Report over all tables, for people.
    ZString getStatistics();

    // Stores a property, stamped even if unchanged; gives the row of string of its name.
    int setProperty(const char* name, int value);
    // Sets and stamps the value of a row of properties, only if it differs.
    void setPropertyByRecordIndex(int recordIndex, int value);
    // First row of properties with that name, or -1.
    int findPropertyRecordIndex(int nameStrID);

    // Single fields by number (FieldID); the row is made if it is absent. A setter stores no stamp.
    // An int access to a long field reaches its low word; a long access to an int field, and
    // setting a text, is an internal error.
    int getIntField(int fieldID, int recordIndex);
    void setIntField(int fieldID, int recordIndex, int value);
    long getLongField(int fieldID, int recordIndex);
    void setLongField(int fieldID, int recordIndex, long value);

    // Makes a user table in the next slot and gives the slot: -1 if all are taken, -2 for a
    // malformed description.
    int createUserTableByDescription(const ZString& description);
    // Makes the user table that another process has in this slot, in place of any there. False for
    // a slot that is none of user tables, or a malformed description.
    bool createUserTableInSlot(int slot, const ZString& description);
    // The user table of a slot; null for any other slot.
    UserTable* getUserTable(int slot);

    // The table in a slot, null if there is none or no such slot.
    AbstractTable* getTable(int slot) {
        return slot >= 0 && slot < MAX_TABLE_COUNT ? tables[slot] : nullptr;
    }
    // Empties a core table and, with it, the index over it, and stores the current stamp in
    // tablegeneration, from which readers learn of it.
    void clearTableAndTellReaders(int slot);

    // Appends a row to snapshot, and tells whether there is one with that path.
    void addSnapshotRow(const ZString& path, long value);
    bool hasSnapshotRow(const ZString& path);

    AbstractTable* tables[MAX_TABLE_COUNT];
    int telemetryLimit;
    int probeTableLengthLimit;
    int nextUserTableIndex;
    int currentStamp;
    long startTime; // seconds since 1970; also the database's session id
    ZString sessionName;
#define VDK_TABLE_POINTER(slot, base, member, tableName, firstIndex, capacity, size)               \
    DBTable<base##Record>* member;
    VDK_TABLES(VDK_TABLE_POINTER)
#undef VDK_TABLE_POINTER
    ThreadFrameIndex* threadFrameIndex;
    J2EEIndex* j2eeIndex;
    StringPool* stringPool;
    // Keys of the thread that collects the data of threads merged away. Null in a database that was
    // read: nothing is merged there. Not owned.
    ThreadKeys* oldestFinishedThreads;

private:
    template <typename T>
    DBTable<T>* createTable();
};

// The database of this process; written once, before the agent's threads start.
extern DB* ourDB;
