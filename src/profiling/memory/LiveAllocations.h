#pragma once

// LiveAllocations: which of the recorded objects are alive, summed up by thread and frame as their
// allocations are in `allocinfo`. A user table "Live Allocations" holds the sums, so that they
// reach clients and snapshots; it is brought up to date when somebody reads it. All functions:
// caller holds ourLock.
namespace LiveAllocations {

// Makes the table; called when recording starts.
void start();
// Slot of the table, 0 or less while there is none.
int getTable();
// Counts the rows of `allocator` anew.
void bringUpToDate();
// Deletes all sums; called with the data that they belong to.
void clear();
// Forgets the table, for a new ourDB.
void reset();

} // namespace LiveAllocations
