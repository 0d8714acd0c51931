#pragma once

#include "core/ground/ZString.h"

// SnapshotFile: a file of a snapshot under way, for this user alone. It is made anew beside its
// place and gets its name when it is whole, so a process that is killed leaves no part under that
// name. Never reached through a link, never inherited by a child process.
class SnapshotFile {
public:
    // Creates the file, and removes those that ended processes have left in the directory.
    explicit SnapshotFile(const ZString& path);
    // What was not closed is not wanted.
    ~SnapshotFile();
    SnapshotFile(const SnapshotFile&) = delete;
    SnapshotFile& operator=(const SnapshotFile&) = delete;

    bool isOpen() const { return descriptor >= 0; }
    int getDescriptor() const { return descriptor; }
    // A second file beside it, to write to and to read back, that has no name and goes with this
    // object; -1 if there can be none.
    int openScratch();
    // Closes the file and gives it its name, also when it could not be written to the end. Empty,
    // or the text of an error.
    ZString close();

private:
    ZString target;
    ZString temporary;
    int descriptor;
    int scratch;
};
