#include "client/console/OutputFile.h"

#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <streambuf>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace vdk {

// Unformatted buffer over a descriptor that remembers the first error.
class OutputFile::Buffer : public std::streambuf {
public:
    explicit Buffer(int descriptor) : descriptor(descriptor), bytes(1 << 16) {
        setp(bytes.data(), bytes.data() + bytes.size());
    }

    int error = 0;
    long flushed = 0;

    long size() const { return flushed + long(pptr() - pbase()); }

protected:
    int_type overflow(int_type c) override {
        if (sync() != 0) {
            return traits_type::eof();
        }
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            sputc(traits_type::to_char_type(c));
        }
        return traits_type::not_eof(c);
    }

    int sync() override {
        const char* from = pbase();
        while (from < pptr() && error == 0) {
            ssize_t count = ::write(descriptor, from, size_t(pptr() - from));
            if (count > 0) {
                from += count;
                flushed += count;
            }
            if (count <= 0 && errno != EINTR) {
                error = count < 0 ? errno : EIO;
            }
        }
        setp(bytes.data(), bytes.data() + bytes.size());
        return error == 0 ? 0 : -1;
    }

private:
    int descriptor;
    std::vector<char> bytes;
};

enum class Place { Replaced, WrittenInto, StandardOutput, Folder };

// Devices, pipes and links (/dev/stdout is one) are written into: renaming would put a plain file
// in their place. A plain file, or none, is replaced.
static Place placeOf(const std::string& path) {
    struct stat own, target, standard;
    if (path == "-") {
        return Place::StandardOutput;
    }
    if (stat(path.c_str(), &target) != 0) {
        return Place::Replaced;
    }
    if (S_ISDIR(target.st_mode)) {
        return Place::Folder;
    }
    if (lstat(path.c_str(), &own) != 0 || S_ISREG(own.st_mode)) {
        return Place::Replaced;
    }
    bool same = fstat(STDOUT_FILENO, &standard) == 0 && target.st_dev == standard.st_dev &&
                target.st_ino == standard.st_ino;
    return same ? Place::StandardOutput : Place::WrittenInto;
}

OutputFile::OutputFile(const std::string& path) : path(path) {
    switch (placeOf(path)) {
    case Place::StandardOutput:
        this->path = "-";
        descriptor = STDOUT_FILENO;
        break;
    case Place::Folder:
        errno = EISDIR;
        break;
    case Place::WrittenInto:
        descriptor = open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOCTTY);
        break;
    case Place::Replaced:
        temporary = path + "." + std::to_string(getpid()) + "." +
                    std::to_string(std::random_device{}()) + ".tmp";
        descriptor =
            open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    }
    if (descriptor < 0) {
        throw ClientError(ExitCode::CannotWrite, "output.open",
                          "cannot create " + path + ": " + strerror(errno));
    }
    buffer = std::make_unique<Buffer>(descriptor);
    out = std::make_unique<std::ostream>(buffer.get());
}

OutputFile::~OutputFile() {
    if (descriptor != STDOUT_FILENO) {
        close(descriptor);
    }
    if (!temporary.empty()) {
        unlink(temporary.c_str());
    }
}

void OutputFile::fail(const std::string& what, int error) {
    throw ClientError(ExitCode::CannotWrite, error == EPIPE ? "output.closed" : "output.write",
                      "cannot " + what + " " + (path == "-" ? "standard output" : path) + ": " +
                          strerror(error));
}

void OutputFile::write(const void* data, size_t size) {
    out->write(static_cast<const char*>(data), std::streamsize(size));
    if (buffer->error != 0) {
        fail("write", buffer->error);
    }
}

void OutputFile::expectSize(int64_t bytes) {
    struct statvfs space;
    if (temporary.empty() || fstatvfs(descriptor, &space) != 0) {
        return;
    }
    if (uint64_t(bytes) / space.f_frsize > space.f_bavail) {
        throw ClientError(ExitCode::CannotWrite, "output.space",
                          "no room for " + path + ": " + formatBytes(bytes) + " are needed, " +
                              formatBytes(int64_t(space.f_bavail * space.f_frsize)) + " are free");
    }
}

long OutputFile::size() const {
    return buffer->size();
}

void OutputFile::commit() {
    out->flush();
    if (buffer->error != 0) {
        fail("write", buffer->error);
    }
    if (temporary.empty()) {
        return;
    }
    if (fsync(descriptor) != 0 && errno != EINVAL && errno != EROFS) {
        fail("write", errno);
    }
    if (rename(temporary.c_str(), path.c_str()) != 0) {
        fail("rename the temporary file to", errno);
    }
    temporary.clear();
}

} // namespace vdk
