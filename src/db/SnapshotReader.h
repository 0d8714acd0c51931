#pragma once

#include "db/ByteReader.h"
#include "db/SnapshotCommon.h"
#include "db/TableStreamReader.h"

// What stands in the header of a snapshot file.
struct SnapshotHeader {
    ZString creator;
    long startTime = 0; // of the database, seconds since 1970
    int snapshotNumber = 0;
    int formatValue = 0;
    long reserved = 0;
    long flags = 0;         // SnapshotFlag
    long captureTimeMs = 0; // milliseconds since 1970
    ZString sessionName;

    bool hasHeap() const { return (flags & SNAPSHOT_WITH_HEAP) != 0; }
    bool hasCounts() const { return (flags & SNAPSHOT_WITH_COUNTS) != 0; }
};

// Reads the parts of a snapshot that this layer does not know. Failures go through input.fail().
class HeapSectionReader {
public:
    virtual ~HeapSectionReader() = default;
    // The input stands at the byte 25 of the heap header. Must take all records up to, not
    // including, the byte 42 of the first table (or the end).
    virtual void readHeapSections(ByteReader& input, const SnapshotHeader& header) = 0;
    // The input stands at the byte 44 behind the tables. May read as much as it likes.
    virtual void readClosingSections(ByteReader& input, const SnapshotHeader& header) = 0;
};

// SnapshotReader fills a DB from a snapshot file: header, user tables, heap sections if there are
// any, tables, closing sections if there is a reader for them. Failures throw a BadInputException,
// see TableStreamReader.
class SnapshotReader {
public:
    // All stay the caller's; the heap reader may be null: the heap is passed over then.
    SnapshotReader(DB* database, ByteSource& source, HeapSectionReader* heapReader = nullptr);

    // The header alone. To be called once, before read().
    const SnapshotHeader& readHeader();
    // Everything behind the header, which is read first if it was not yet.
    const SnapshotHeader& read();

    const SnapshotHeader& getHeader() const { return header; }
    ByteReader& getInput() { return input; }

private:
    void readUserTables();
    void skipHeapSections();

    DB* db;
    ByteReader input;
    HeapSectionReader* heap;
    TableStreamReader tables;
    SnapshotHeader header;
    bool headerRead;
};
