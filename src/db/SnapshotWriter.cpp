#include "db/SnapshotWriter.h"

#include <cerrno>
#include <cstdlib>

#include <locale.h>
#include <unistd.h>

namespace {
// Text of errno whatever the application's locale is; null if there is none.
const char* getEnglishErrorMessage(int error) {
    static const locale_t english = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return error == 0 || english == nullptr ? nullptr : strerror_l(error, english);
}
} // namespace

SnapshotWriter::SnapshotWriter(int file)
    : AbstractWriter(BUFFER_SIZE, true, file), errorMessage(nullptr) {}

SnapshotWriter::~SnapshotWriter() {
    flush();
    free(errorMessage);
}

void SnapshotWriter::flush() {
    const unsigned char* from = buffer;
    int left = used;
    used = 0;
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
    const char* text = getEnglishErrorMessage(error);
    if (text == nullptr && error != 0) {
        text = strerror(error);
    }
    errorMessage = strdup(text == nullptr ? "Write error" : text);
}
