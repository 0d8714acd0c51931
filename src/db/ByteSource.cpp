#include "db/ByteSource.h"

#include <cerrno>
#include <cstring>
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

DescriptorSource::DescriptorSource(int descriptor)
    : file(descriptor), total(-1), buffer(new unsigned char[BUFFER_SIZE]) {
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
        const ssize_t taken = read(file, buffer, BUFFER_SIZE);
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
