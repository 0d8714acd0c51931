// The native of com.vandrik.Natives that writes a memory snapshot from a database and a storage.

#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/SnapshotWriter.h"
#include "offline/HeapIndexWriter.h"
#include "offline/NativesBoundary.h"

#include <unistd.h>

namespace {

// Closes the file at the end of the block.
class OpenFile {
public:
    explicit OpenFile(const ZString& path) : descriptor(openFileForWrite(path)) {}
    ~OpenFile() {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    int get() const { return descriptor; }

private:
    int descriptor;
};

// Empty on success, otherwise what went wrong.
ZString writeFile(DB& db, ObjectStorage& storage, const ZString& path, int progressSocket,
                  long flags) {
    OpenFile file(path);
    if (file.get() < 0) {
        return "Cannot open file to write snapshot";
    }
    Progress progress((flags & SNAPSHOT_SUPPRESS_PROGRESS) != 0 ? 0 : progressSocket);
    SnapshotWriter writer(file.get());
    writeHeapSnapshot(db, storage, writer, &progress, flags);
    writer.flush();
    return writer.getErrorMessage() == nullptr ? "" : writer.getErrorMessage();
}

} // namespace

VDK_CLIENT_NATIVE(jstring, dbNwriteSnapshotImpl)
(JNIEnv* env, jclass, jlong dbHandle, jlong storageHandle, jstring path, jint progressSocket,
 jlong flags) {
    return runGuardedNative<jstring>(env, VDK_HERE, nullptr, [&](NativeErrors&) -> jstring {
        DB& db = ourDatabases.get(dbHandle);
        ObjectStorage& storage = ourStorages.get(storageHandle);
        Logger::assertNotNULL(path, VDK_HERE);
        const ZString error = writeFile(db, storage, toPath(env, path), progressSocket, flags);
        return error.isEmpty() ? nullptr : toJavaString(env, error);
    });
}
