#pragma once

class AbstractWriter;
class DB;
class ObjectStorage;
class Progress;
class SnapshotWriter;

// First byte and version of the closing sections of a memory snapshot that was written from a
// storage. DO NOT CHANGE: readers compare them.
constexpr int HEAP_INDEX_VERSION = 13;

// Writes a memory snapshot from a database and the storage of an opened heap, computed results
// included: header, user tables, a heap header without records, all tables, and the closing
// sections with the storage's paged arrays. progress must not be null. Write errors are the
// writer's to keep; flushing and closing the file is the caller's. Sets ourIndexFileFullLength
// while the closing sections are being written.
void writeHeapSnapshot(DB& db, ObjectStorage& storage, SnapshotWriter& writer, Progress* progress,
                       long flags);

// The closing sections alone: the byte 44 and what follows it.
void writeHeapIndex(ObjectStorage& storage, AbstractWriter& writer);

// Bytes that writeHeapIndex produces.
long getHeapIndexSize(ObjectStorage& storage);
