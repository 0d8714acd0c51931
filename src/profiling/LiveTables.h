#pragma once

#include "db/SnapshotCommon.h"

#include <jni.h>

class InstanceCounting;

// LiveTables brings ourDB up to date ahead of a fetch or a snapshot: names of threads, instance
// counts, unloaded classes, corrected wall times. Caller holds ourLock.
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
