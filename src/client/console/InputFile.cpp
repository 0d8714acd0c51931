#include "client/console/InputFile.h"

#include "client/console/Descriptor.h"
#include "client/console/Errors.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace vdk {

std::string readWholeFile(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string bytes;
    char buffer[1 << 16];
    ssize_t count = file ? 1 : -1;
    while (count > 0) {
        count = read(file.get(), buffer, sizeof buffer);
        bytes.append(buffer, size_t(count > 0 ? count : 0));
    }
    if (count < 0) {
        throw ClientError(ExitCode::Usage, "input.open",
                          "cannot read " + path + ": " + strerror(errno));
    }
    return bytes;
}

} // namespace vdk
