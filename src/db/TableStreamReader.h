#pragma once

#include "core/ground/ZVector.h"
#include "db/ByteReader.h"
#include "db/Records.h"

class AbstractTable;
class DB;
class UserTable;

// TableStreamReader applies table streams to a DB: one stream for a snapshot, one after the other
// for a client that follows a live agent. A row with a positive stamp is stored at its index, new
// or not; one with a negative stamp is stored too, as the deleted row that it is. A newer row of
// tablegeneration drops the rows of its table that are older.
//
// The input is not trusted: see ByteReader. Beside that rows must come in ascending order, slots
// too, references must lead to rows that can exist, frames must form a tree, and the memory that
// rows take must stand in a proportion to their bytes. A failure throws a BadInputException and
// leaves the DB fit for nothing but deletion.
//
// After a stream the caller rebuilds the indexes it wants by fillIndexFromTable.
class TableStreamReader {
public:
    // The DB stays the caller's.
    explicit TableStreamReader(DB* database);

    // Slot and table, again and again, up to the end mark -1: what an agent sends.
    void readSocketStream(ByteReader& input);
    // Byte 42, slot and table, as long as the next byte is 42. Any other byte is left unread.
    void readMarkedTables(ByteReader& input);

    // The newest stamp seen in each slot, MAX_TABLE_COUNT entries: what to ask the agent for next.
    const int* getStamps() const { return stamps; }
    // Rows that the last stream brought, in all and for one slot.
    long getRowCount() const;
    int getRowCount(int slot) const { return rowCounts[slot]; }

private:
    // The largest row number that a field of the stream referred to, and where.
    struct Reference {
        int row;
        int fromRow;
        const char* fromTable;
        const char* fromField;
    };
    struct RowReader;

    void beginStream(ByteReader& input);
    void endStream(ByteReader& input);
    void readTable(ByteReader& input, int slot);
    template <typename T>
    void readRows(ByteReader& input);
    void readUserRows(ByteReader& input, int slot, UserTable* table);
    int readCount(ByteReader& input, long leastRowSize);
    // Reads index and stamp of a row and checks them. Returns the index.
    int readRowHead(ByteReader& input, int slot, int previous, int* stamp);
    void justify(ByteReader& input, const AbstractTable* table, long chunkBytes, bool newChunk,
                 int index);
    template <typename T>
    void store(ByteReader& input, int index, const T& record);
    void noteReference(ByteReader& input, FieldMeaning meaning, int value, int fromRow,
                       const char* fromTable, const char* fromField);
    void checkReferences(ByteReader& input);
    void checkFrames(ByteReader& input);
    void dropOlderRows(ByteReader& input, int slot, int stamp);
    template <typename T>
    void dropOlderRecords(int stamp);

    DB* db;
    int stamps[MAX_TABLE_COUNT];
    int rowCounts[MAX_TABLE_COUNT];
    bool seen[MAX_TABLE_COUNT]; // slots that any stream had rows for
    int lastSlot;
    long bytesRead;      // of all streams before this one
    long streamStart;    // offset of this stream in its input
    long bytesAllocated; // chunks and pointer arrays made for all streams
    long frameRows;      // rows of frame that are present
    Reference references[THREAD_INDEX + 1];
    ZVector<int> changedFrames;
};
