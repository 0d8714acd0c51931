#include "snapshot/SnapshotFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

const mode_t FILE_MODE = 0644;

int openFileForWrite(const ZString& path) {
    return open(path.c_str(),
                O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                FILE_MODE);
}

} // namespace

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
