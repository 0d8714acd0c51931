#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

#include <jni.h>

// TelemetryHelper: what the Java side stores in the tables of telemetry and snapshots.

// Stores one telemetry record: the six values of properties rows 0 to 5, the values of a tele row,
// and named extra values; takes the thread states that go with it. Evicts the oldest chunks beyond
// the limit. Takes ourLock.
void storeTelemetryRecord(JNIEnv* env, const ZVector<int>& telec, const ZVector<int>& tele,
                          const ZVector<int>& extNames, const ZVector<int>& extValues);

// Notes a snapshot file of this process. Takes ourLock.
void addSnapshotInfo(const ZString& path, long value);
// A snapshot of that path is known. Takes ourLock.
bool findSnapshot(const ZString& path);
