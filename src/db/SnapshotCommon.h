#pragma once

#include "core/ground/ZString.h"
#include "db/Records.h"

class AbstractWriter;
class DB;
class Progress;
class SnapshotWriter;

// Flags of a snapshot. Keep in sync with com.vandrik.Constants.
enum SnapshotFlag {
    SNAPSHOT_WITH_HEAP = 1,
    SNAPSHOT_WITH_COUNTS = 8,
    SNAPSHOT_HPROF = 16,
    SNAPSHOT_CAUSE_SHUTDOWN = 32,
    SNAPSHOT_OIDS_ARE_INDICES = 512,
    SNAPSHOT_SUPPRESS_PROGRESS = 2048,
    SNAPSHOT_CAUSE_ON_EVENT = 4096,
    SNAPSHOT_EXTRACTED_PERFORMANCE = 8192
};

// DO NOT CHANGE: the constants of the file format, see docs/format-tables.md.
// The magic ends with the byte 1A and has neither terminator nor length.
constexpr int SNAPSHOT_MAGIC_SIZE = 56;
extern const char SNAPSHOT_MAGIC[SNAPSHOT_MAGIC_SIZE + 1];
constexpr int SNAPSHOT_FORMAT_BYTE = 66;
constexpr int SNAPSHOT_FORMAT_VALUE = 4;
constexpr int SNAPSHOT_USER_TABLE_TAG = 53;
constexpr int SNAPSHOT_HEAP_TAG = 25;
constexpr int SNAPSHOT_TABLE_TAG = 42; // '*', ahead of each table in a file
constexpr int SNAPSHOT_CLOSING_TAG = 44;
constexpr int TABLE_STREAM_END = -1; // on a socket, in place of a slot

// TableSet selects tables: bit s of mask core table s, and all tables from slot CORE_TABLE_COUNT up
// to, not including, limit. Bits of slots above the core tables mean nothing.
struct TableSet {
    int mask;
    int limit;

    // The table is selected and exists.
    bool contains(const DB& db, int slot) const;
    int count(const DB& db) const;
};

// All core tables but allocator, which leaves the process in heap snapshots only.
constexpr int ALL_TABLES_MASK = ((1 << CORE_TABLE_COUNT) - 1) & ~(1 << SLOT_Allocator);
constexpr TableSet ALL_TABLES = {ALL_TABLES_MASK, MAX_TABLE_COUNT};

// Brings ourDB up to date ahead of a fetch: names of threads, instance counts, unloaded classes,
// wall times, properties of monitor profiling. Implemented where the JVM is known.
class TableRefresh {
public:
    virtual ~TableRefresh() = default;
    virtual void bringUpToDate(const TableSet& set) = 0;
};

// Headers written by this process.
extern int ourSnapshotCount;
// The CPU data of this process has call counts: the tracing bit of the last start of profiling.
extern bool ourContainsInvocations;

// Writes the selected tables: for each, in ascending order, the byte 42 if withMarkers, the slot as
// an int and the rows changed after stamps[slot] (all rows if stamps is null, which otherwise has
// MAX_TABLE_COUNT entries). refresh, which may be null, runs first if db is ourDB. progress must
// not be null.
void writeTables(DB* db, AbstractWriter& writer, TableSet set, int progressFrom, int progressTo,
                 Progress* progress, const int* stamps, bool withMarkers, TableRefresh* refresh);

// writeTables with ALL_TABLES, no stamps and markers.
void writeAllTables(DB* db, AbstractWriter& writer, int progressFrom, int progressTo,
                    Progress* progress, TableRefresh* refresh);

// Writes the header of a snapshot file and counts it. startTime in seconds since 1970. The flags
// gain SNAPSHOT_OIDS_ARE_INDICES, and SNAPSHOT_WITH_COUNTS if there are call counts.
void writeSnapshotHeader(long startTime, const ZString& sessionName, SnapshotWriter& writer,
                         long flags, int formatValue);

// Writes the descriptions of all user tables, ahead of the heap sections and tables of a snapshot.
void writeUserTableDescriptions(DB* db, AbstractWriter& writer);
