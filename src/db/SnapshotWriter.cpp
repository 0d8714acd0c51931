#include "db/SnapshotWriter.h"

#include "platform/Platform.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <unistd.h>

namespace {
const mode_t FILE_MODE = 0600;
const size_t ERROR_TEXT_SIZE = 256;
} // namespace

int openFileForWrite(const ZString& path) {
    return open(path.c_str(),
                O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK,
                FILE_MODE);
}

SnapshotWriter::SnapshotWriter(int file)
    : AbstractWriter(BUFFER_SIZE, true, file), errorMessage(nullptr) {}

SnapshotWriter::~SnapshotWriter() {
    flush();
    free(errorMessage);
}

void SnapshotWriter::flush() {
    const int length = used;
    used = 0;
    writeOut(buffer, length);
}

void SnapshotWriter::writeOut(const unsigned char* from, int left) {
    // A full disk shows first as a short write; the next one tells the reason.
    while (left > 0) {
        errno = 0;
        const ssize_t written = write(fileDescriptor, from, static_cast<size_t>(left));
        if (written > 0) {
            from += written;
            left -= static_cast<int>(written);
        } else if (errno != EINTR) {
            noteError(errno);
            break;
        }
    }
    errno = 0;
}

void SnapshotWriter::noteError(int error) {
    if (errorMessage != nullptr) {
        return;
    }
    char buffer[ERROR_TEXT_SIZE];
    const char* text = Platform::errorText(error, buffer, sizeof(buffer));
    errorMessage = strdup(text == nullptr ? "Write error" : text);
}

HeldSnapshotWriter::~HeldSnapshotWriter() {
    release();
}

bool HeldSnapshotWriter::keep() {
    if (isReleased || count == MAX_PIECES) {
        return false;
    }
    unsigned char* const next = new (std::nothrow) unsigned char[BUFFER_SIZE];
    if (next == nullptr) {
        return false;
    }
    pieces[count++] = Piece{buffer, used};
    buffer = next;
    used = 0;
    return true;
}

void HeldSnapshotWriter::flush() {
    if (!keep()) {
        release();
    }
}

void HeldSnapshotWriter::release() {
    isReleased = true;
    for (int i = 0; i < count; i++) {
        writeOut(pieces[i].bytes, pieces[i].length);
        delete[] pieces[i].bytes;
    }
    count = 0;
    SnapshotWriter::flush();
}
