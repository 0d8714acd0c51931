#pragma once

#include "core/ground/ZString.h"
#include "db/DB.h"
#include "db/SnapshotCommon.h"
#include "db/SnapshotWriter.h"

#include <jni.h>

class InstanceCounting;

// Capture of snapshots, from the request to the closed file, and the watcher of heap dumps that the
// JVM makes by itself. Naming and permissions of files are the Java side's.

// Captures a snapshot to the file: null, or why there is none, as a Java string. The application
// stands still while tables are written, and runs again on every way out; a file that could not be
// written whole stays as far as it came. Takes ourLock. progressSocket 0 means no client.
jstring captureSnapshotJVMTI(JNIEnv* env, jstring path, int progressSocket, long flags);

// Writes header, user tables, the heap if the flags want it, and all tables of ourDB to the writer
// while the application stands still, and collects unused strings when it runs again. Caller holds
// ourLock, and has brought ourDB up to date. The path is what the generation that begins with a
// heap is called after; the counting is told of the heap's objects and brings its table up to date.
// The scratch file is for the heap, see HeapWalk.
void captureTables(JNIEnv* env, SnapshotWriter& writer, int progressSocket, const ZString& path,
                   long flags, InstanceCounting* counting = nullptr, int scratch = -1);

// Watches for the heap dump that the JVM writes when memory runs out, and notes it as a snapshot of
// this process. Ends after the first one: only the first dump of a process counts; and with the
// stay (AgentThread.h).
void oome_snapshot_detector(const void* stay);

// One round of the watcher: compares the candidates' sizes with those noted before. The changed
// path, the later candidate if both have changed; empty if none has.
class DumpCandidates {
public:
    // A path as the JVM was given it: of the dump itself or of its directory.
    DumpCandidates(const ZString& path, int pid);
    ZString findChanged() const;

private:
    static const int COUNT = 2;
    ZString paths[COUNT];
    long sizes[COUNT]; // -1 for a file that is not there
};
