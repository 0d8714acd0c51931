#pragma once

#include "core/ground/ZString.h"

// SnapshotFile: a file of a snapshot under way. It is never reached through a link in its last
// place, never inherited by a child process, and opening it never blocks.
class SnapshotFile {
public:
    // Creates the file, or empties the one that stands there.
    explicit SnapshotFile(const ZString& path);
    ~SnapshotFile() { close(); }
    SnapshotFile(const SnapshotFile&) = delete;
    SnapshotFile& operator=(const SnapshotFile&) = delete;

    bool isOpen() const { return descriptor >= 0; }
    int getDescriptor() const { return descriptor; }
    // Closes the file. Empty, or the text of an error that the system had held back until now.
    ZString close();

private:
    int descriptor;
};
