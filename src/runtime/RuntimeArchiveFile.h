#pragma once

#include "core/ground/ZString.h"

// The runtime archive as a file: one copy for every JVM of this build and this user, in the
// temporary directory. The directory is shared with other users, so what lies there is used only if
// nobody else could have made or could change it.

// Outcome of writing the archive.
struct RuntimeArchiveFile {
    ZString path;  // empty: the start is refused, and standard error says why
    bool isUsable; // false with a path: the classes must come from memory, and the log says why
};

// Bytes that somebody else keeps.
struct ArchiveBytes {
    ArchiveBytes(const unsigned char* archive, long count) : data(archive), size(count) {}
    ArchiveBytes(const ZVector<unsigned char>& bytes) : data(bytes.data()), size(bytes.getSize()) {}
    const unsigned char* data;
    long size;
};

// Makes sure that the archive of this library stands in tmpDir (the option; empty means /tmp),
// reusing a file that is equal and safe. Where isRequired, a directory that cannot serve is a
// refusal; no room, no descriptor and an equal file of another user never are.
RuntimeArchiveFile writeCallbackJar(const ZString& tmpDir, bool isRequired);

// The same for any content and path; what writeCallbackJar is made of.
RuntimeArchiveFile writeArchiveFile(const ArchiveBytes& content, const ZString& path,
                                    bool isRequired);
