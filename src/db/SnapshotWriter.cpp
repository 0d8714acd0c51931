#include "db/SnapshotWriter.h"

#include "core/ground/Logger.h"
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
    : AbstractWriter(BUFFER_SIZE, true, file), bufferStart(0), errorMessage(nullptr) {}

SnapshotWriter::~SnapshotWriter() {
    flush();
    free(errorMessage);
}

void SnapshotWriter::flush() {
    const int length = used;
    used = 0;
    bufferStart += length;
    writeOut(buffer, length);
}

void SnapshotWriter::patch(long position, unsigned long bits, int bytes) {
    Logger::assertTrue(position >= 0 && position <= getPosition() - bytes, VDK_HERE);
    for (int i = 0; i < bytes; i++, position++) {
        const unsigned char value = static_cast<unsigned char>(bits >> (8 * i));
        if (position >= bufferStart) {
            buffer[position - bufferStart] = value;
        } else {
            patchFlushed(position, value);
        }
    }
}

void SnapshotWriter::patchFlushed(long position, unsigned char value) {
    ssize_t written = -1;
    do {
        errno = 0;
        written = pwrite(fileDescriptor, &value, 1, position);
    } while (written < 0 && errno == EINTR);
    if (written != 1) {
        noteError(errno);
    }
    errno = 0;
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

void SnapshotWriter::takeErrorOf(const SnapshotWriter& other) {
    if (errorMessage == nullptr && other.errorMessage != nullptr) {
        errorMessage = strdup(other.errorMessage);
    }
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
    bufferStart += used;
    used = 0;
    return true;
}

void HeldSnapshotWriter::patchFlushed(long position, unsigned char value) {
    long start = 0;
    for (int i = 0; i < count; i++) {
        if (position < start + pieces[i].length) {
            pieces[i].bytes[position - start] = value;
            return;
        }
        start += pieces[i].length;
    }
    SnapshotWriter::patchFlushed(position, value);
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

void HeldSnapshotWriter::moveTo(SnapshotWriter& to) {
    if (isReleased) {
        SnapshotWriter::flush();
        readBackTo(to);
    } else {
        for (int i = 0; i < count; i++) {
            to.writeBytes(pieces[i].bytes, pieces[i].length);
            delete[] pieces[i].bytes;
        }
        count = 0;
        to.writeBytes(buffer, used);
        used = 0;
    }
    to.takeErrorOf(*this);
}

// The buffer is empty. What an error kept from the file ends it early.
void HeldSnapshotWriter::readBackTo(SnapshotWriter& to) {
    for (long from = 0; from < bufferStart;) {
        const ssize_t got = pread(fileDescriptor, buffer, BUFFER_SIZE, from);
        if (got > 0) {
            to.writeBytes(buffer, got);
            from += got;
        } else if (got == 0 || errno != EINTR) {
            noteError(got == 0 ? EIO : errno);
            break;
        }
    }
    errno = 0;
}
