#pragma once

#include "db/SnapshotCommon.h"

#include <jni.h>

class InstanceCounting;

// LiveTables brings ourDB up to date ahead of a fetch or a snapshot: names of threads, instance
// counts, unloaded classes, corrected wall times.
//
// The caller holds ourLock, from before this until the tables are encoded: nothing may come in
// between. Under it this is the one place that closes and opens the traced calls of other threads
// (all at once, so their owners see no difference: they look at them under the lock alone) and that
// gives other threads' ThreadInfo new names.
class LiveTables : public TableRefresh {
public:
    // counting may be null. env may be null in a database test without a JVM; then names stay as
    // they are.
    LiveTables(JNIEnv* jniEnv, InstanceCounting* instanceCounting)
        : env(jniEnv), counting(instanceCounting) {}
    void bringUpToDate(const TableSet& set) override;

private:
    JNIEnv* env;
    InstanceCounting* counting;
};
