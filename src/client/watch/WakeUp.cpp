#include "client/watch/WakeUp.h"

#include "client/console/Errors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace vdk {

WakeUp::WakeUp() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw ClientError(ExitCode::CannotRun, "internal",
                          std::string("no pipe can be made: ") + strerror(errno));
    }
    readEnd = Descriptor(ends[0]);
    writeEnd = Descriptor(ends[1]);
}

void WakeUp::wake() {
    // A full pipe wakes as well.
    while (write(writeEnd.get(), "", 1) < 0 && errno == EINTR) {
    }
}

bool WakeUp::wait(std::chrono::milliseconds longest) {
    pollfd entry = {readEnd.get(), POLLIN, 0};
    return poll(&entry, 1, int(std::max<int64_t>(longest.count(), 0))) == 1;
}

void WakeUp::reset() {
    char bytes[64];
    while (read(readEnd.get(), bytes, sizeof(bytes)) > 0) {
    }
}

} // namespace vdk
