#include "db/ByteSource.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

bool MemorySource::nextPiece(const unsigned char** bytes, long* count) {
    if (left <= 0) {
        return false;
    }
    *bytes = next;
    *count = left < piece ? left : piece;
    next += *count;
    left -= *count;
    return true;
}

DescriptorSource::DescriptorSource(int descriptor, int timeoutMs)
    : file(descriptor), timeout(timeoutMs), total(-1), buffer(new unsigned char[BUFFER_SIZE]) {
    struct stat status;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
        const off_t position = lseek(file, 0, SEEK_CUR);
        total = position < 0 || position > status.st_size ? -1 : status.st_size - position;
    }
}

DescriptorSource::~DescriptorSource() {
    delete[] buffer;
}

bool DescriptorSource::nextPiece(const unsigned char** bytes, long* count) {
    for (;;) {
        pollfd wanted = {};
        wanted.fd = file;
        wanted.events = POLLIN;
        const int ready = timeout < 0 ? 1 : poll(&wanted, 1, timeout);
        if (ready == 0) {
            error = ZString("no data for ") + longToString(timeout) + ZString(" ms");
            return false;
        }
        const ssize_t taken = ready < 0 ? -1 : read(file, buffer, BUFFER_SIZE);
        if (taken > 0) {
            *bytes = buffer;
            *count = taken;
            return true;
        }
        if (taken == 0) {
            return false;
        }
        if (errno != EINTR) {
            error = ZString(strerror(errno));
            return false;
        }
    }
}

MappedFileSource::MappedFileSource(const char* path) : bytes(nullptr), total(0), given(false) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0) {
        error = ZString(strerror(errno));
    } else if (!S_ISREG(status.st_mode)) {
        error = ZString("not a regular file");
    } else if (status.st_size > 0) {
        void* address =
            mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_PRIVATE, file, 0);
        if (address == MAP_FAILED) {
            error = ZString(strerror(errno));
        } else {
            bytes = static_cast<unsigned char*>(address);
            total = status.st_size;
        }
    }
    if (file >= 0) {
        close(file);
    }
}

MappedFileSource::~MappedFileSource() {
    if (bytes != nullptr) {
        munmap(bytes, static_cast<size_t>(total));
    }
}

bool MappedFileSource::nextPiece(const unsigned char** piece, long* count) {
    if (given || bytes == nullptr) {
        return false;
    }
    given = true;
    *piece = bytes;
    *count = total;
    return true;
}
