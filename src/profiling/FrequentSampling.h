#pragma once

// Frequent sampling: a lasting event is a row of a user table that a probe opened with a threshold.
// While one has lasted longer than its threshold, telemetry runs at its finest step. Caller holds
// ourLock in the first two; the question takes it.

// A row was opened. A negative threshold means that the event never asks for frequent telemetry.
void frequentSamplingRowCreated(int tableIndex, int rowIndex, int thresholdMs);
// The row was closed.
void frequentSamplingRowClosed(int tableIndex, int rowIndex);
// Some lasting event is overdue.
bool isFrequentSampling();
