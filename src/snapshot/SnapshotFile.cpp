#include "snapshot/SnapshotFile.h"

#include "db/SnapshotWriter.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

SnapshotFile::SnapshotFile(const ZString& path) : descriptor(openFileForWrite(path)) {}

ZString SnapshotFile::close() {
    if (descriptor < 0) {
        return ZString();
    }
    const int closing = descriptor;
    descriptor = -1;
    // After EINTR the descriptor is gone as well.
    if (::close(closing) == 0 || errno == EINTR) {
        return ZString();
    }
    return ZString(strerror(errno));
}
