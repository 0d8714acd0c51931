#pragma once

#include <jni.h>

// Rows of user tables, opened and closed on the threads of the application inside probe callbacks:
// the agent fills the columns of time, thread and stack itself. Caller holds ourLock in all of it.

// Given back in place of a row that was not made; every operation ignores it.
constexpr int NO_USER_TABLE_ROW = 0x7fffffff;

// Opens a row: NO_USER_TABLE_ROW for a slot without a table, on an agent thread that was not
// enabled, and beyond the limit of rows. A positive minimumMs keeps the row invisible until it is
// closed. Without env the columns of thread and stack stay 0.
enum class RowOrigin { THREAD_AND_STACK, THREAD };
int createUserTableRow(JNIEnv* env, int table, int frequentThresholdMs, int minimumMs,
                       RowOrigin origin = RowOrigin::THREAD_AND_STACK);

// Closes a row. True if it stays; a row shorter than minimumMs is deleted.
bool closeUserTableRow(JNIEnv* env, int table, int row, int minimumMs);

bool isUserTableRowClosed(int table, int row);

// Stores as a property of each table how many rows were refused beyond the limit: the prefix, and
// the table's slot.
void storeRefusedUserTableRows();
