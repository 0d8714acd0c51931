#pragma once

// TelemetryRows: the room that telemetry takes. A row of tele names a run of rows in threadstate
// and one in tele_ext, each in one piece. What is too old goes in whole chunks. New runs go behind
// the last one until the row numbers have become large, and from then on where chunks were freed:
// the numbers of neither table ever run out. Caller holds ourLock.

// From this row number on a run begins in the lowest gap that holds it. Not earlier: clients that
// keep more telemetry than the agent does then tell old rows from new ones for longer.
constexpr int ROWS_BEFORE_REUSE = 1 << 24;
// Rows of threadstate to keep, some 100 MB of them: an hour of 1000 threads at the usual period.
constexpr int MOST_THREAD_STATES = 1 << 22;

// The next `rows` rows of the table follow one another.
void beginThreadStates(int rows);
void beginExtraValues(int rows);

// Frees the chunks of tele that rows from `index` on push beyond the limit, and the runs that only
// they referred to.
void evictTelemetry(int index);
// While there are more than `mostRows` rows of threadstate, takes those of the oldest rows of tele
// away, which then say that stacks were off.
void limitThreadStates(int mostRows);
