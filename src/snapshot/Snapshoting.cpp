#include "snapshot/Snapshoting.h"

#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/jvm/AgentThread.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/NativeEntry.h"
#include "db/Progress.h"
#include "platform/Platform.h"
#include "profiling/LiveTables.h"
#include "profiling/TelemetryHelper.h"
#include "profiling/memory/InstanceCounting.h"
#include "snapshot/HeapWalk.h"
#include "snapshot/SnapshotFile.h"
#include "snapshot/SuspendedThreads.h"

#include <sys/stat.h>

namespace {

const int PROGRESS_TABLES_START = 10;
const int PROGRESS_HEAP_TABLES_START = 65;
const int PROGRESS_TABLES_END = 90;
const int PROGRESS_HEADER = 5;
const int PROGRESS_END = 99;
const jlong DETECTOR_PERIOD_MS = 3000;
const long DETECTED_DUMP_FLAGS = SNAPSHOT_WITH_HEAP | SNAPSHOT_HPROF | SNAPSHOT_CAUSE_ON_EVENT;

// Empty or the first error. The application runs again, and the disk may take its time.
ZString finishFile(HeldSnapshotWriter& writer, SnapshotFile& file) {
    writer.release();
    const ZString error =
        writer.getErrorMessage() == nullptr ? ZString() : ZString(writer.getErrorMessage());
    const ZString closeError = file.close();
    return error.isEmpty() ? closeError : error;
}

// Empty or the error.
ZString capture(JNIEnv* env, const ZString& path, int progressSocket, long flags) {
    Logger::assertNotNULL(ourJVMTI, VDK_HERE);
    SnapshotFile file(path);
    HeldSnapshotWriter writer(file.getDescriptor());
    const bool withHeap = (flags & SNAPSHOT_WITH_HEAP) != 0;
    {
        InstanceCounting counting(env, ourDB, 1 << SLOT_InstanceCounts,
                                  withHeap ? InstanceCounting::ARE_TOLD
                                           : InstanceCounting::WALKS_ITSELF);
        LockHolder lock(ourLock, "Snapshoting:25");
        const int scratch = withHeap && file.isOpen() ? file.openScratch() : -1;
        if (!file.isOpen() || (withHeap && scratch < 0)) {
            // New classes were told by this count and by no other.
            counting.storeNewClasses();
            return "Cannot open file to write snapshot";
        }
        // Asks the JVM about threads, so it comes before they are stopped.
        LiveTables(env, withHeap ? nullptr : &counting).bringUpToDate(ALL_TABLES);
        counting.storeNewClasses();
        captureTables(env, writer, progressSocket, path, flags, withHeap ? &counting : nullptr,
                      scratch);
    }
    const ZString error = finishFile(writer, file);
    if ((flags & SNAPSHOT_WITH_HEAP) != 0) {
        // Some 50 bytes an object, for a moment, of the agent and of the JVM's tags.
        Platform::releaseFreeMemory();
    }
    return error;
}

// Size of a file, -1 if there is none.
long sizeOf(const ZString& path) {
    struct stat status;
    return stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)
               ? -1
               : static_cast<long>(status.st_size);
}

} // namespace

void captureTables(JNIEnv* env, SnapshotWriter& writer, int progressSocket, const ZString& path,
                   long flags, InstanceCounting* counting, int scratch) {
    Progress progress((flags & SNAPSHOT_SUPPRESS_PROGRESS) != 0 ? 0 : progressSocket);
    {
        SuspendedThreads suspended(env);
        writeSnapshotHeader(ourDB->startTime, ourDB->sessionName, writer, flags,
                            SNAPSHOT_FORMAT_VALUE);
        writeUserTableDescriptions(ourDB, writer);
        progress.updateProgress(PROGRESS_HEADER);
        if ((flags & SNAPSHOT_WITH_HEAP) != 0) {
            HeapWalk walk(env, writer, scratch, progress, counting);
            walk.write(path);
            if (counting != nullptr) {
                counting->updateDatabase();
            }
            writeAllTables(ourDB, writer, PROGRESS_HEAP_TABLES_START, PROGRESS_TABLES_END,
                           &progress, nullptr);
            walk.patchHeader();
        } else {
            writeAllTables(ourDB, writer, PROGRESS_TABLES_START, PROGRESS_TABLES_END, &progress,
                           nullptr);
        }
    }
    // Nobody need stand still for it.
    ourDB->stringPool->collectGarbageStrings();
    progress.updateProgress(PROGRESS_END);
}

jstring captureSnapshotJVMTI(JNIEnv* env, jstring path, int progressSocket, long flags) {
    const ZString error = capture(env, toPath(env, path), progressSocket, flags);
    return error.isEmpty() ? nullptr : toJavaString(env, error);
}

DumpCandidates::DumpCandidates(const ZString& path, int pid) {
    paths[0] = path;
    paths[1] = path + "/java_pid" + longToString(pid) + ".hprof";
    for (int i = 0; i < COUNT; i++) {
        sizes[i] = sizeOf(paths[i]);
    }
}

ZString DumpCandidates::findChanged() const {
    ZString changed;
    for (int i = 0; i < COUNT; i++) {
        const long size = sizeOf(paths[i]);
        if (size != -1 && size != sizes[i]) {
            changed = paths[i];
        }
    }
    return changed;
}

// Waits on a raw monitor that nobody notifies. A thread that sleeps in native code instead holds up
// the end of the JVM, which gives such threads 0.3 s to come back.
static void waitOnMonitor(jrawMonitorID monitor, jlong milliseconds) {
    CHECK_JVMTI(ourJVMTI->RawMonitorEnter(monitor));
    const jvmtiError error = ourJVMTI->RawMonitorWait(monitor, milliseconds);
    CHECK_JVMTI(ourJVMTI->RawMonitorExit(monitor));
    if (error != JVMTI_ERROR_INTERRUPT) {
        CHECK_JVMTI(error);
    }
}

void oome_snapshot_detector(const void* stay) {
    const ZString path = ourOptions->getHeapDumpPath();
    if (path.isEmpty()) {
        return;
    }
    const DumpCandidates candidates(path, Platform::vdk_getpid());
    jrawMonitorID monitor = nullptr;
    CHECK_JVMTI(ourJVMTI->CreateRawMonitor("vdk_oome_detector_lock", &monitor));
    while (!isStayOver(stay)) {
        waitOnMonitor(monitor, DETECTOR_PERIOD_MS);
        const ZString changed = candidates.findChanged();
        if (!changed.isEmpty()) {
            addSnapshotInfo(changed, DETECTED_DUMP_FLAGS);
            break;
        }
    }
    CHECK_JVMTI(ourJVMTI->DestroyRawMonitor(monitor));
}

jstring JNICALL VDK_CALLBACK_NATIVE(captureSnapshot)(JNIEnv* env, jclass, jstring path,
                                                     jint progressSocket, jlong flags) {
    jstring result = nullptr;
    runNative(env, VDK_HERE,
              [&] { result = captureSnapshotJVMTI(env, path, progressSocket, flags); });
    return result;
}
