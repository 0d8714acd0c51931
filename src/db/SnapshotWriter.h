#pragma once

#include "core/ground/ZString.h"
#include "db/AbstractWriter.h"

// Makes or empties a file and opens it for writing; -1 if that fails. A link in its place is not
// followed, and a pipe that nobody reads holds nobody up.
int openFileForWrite(const ZString& path);

// SnapshotWriter writes to a file. A failing write never stops the caller: the text of the first
// error is kept, and whoever closes the file reports it.
class SnapshotWriter : public AbstractWriter {
public:
    static constexpr int BUFFER_SIZE = 0x100000;

    // The descriptor stays the caller's, to be closed after the writer is gone.
    explicit SnapshotWriter(int file);
    ~SnapshotWriter() override;
    void flush() override;

    // Text of the first write error, null if none; lives as long as the writer.
    const char* getErrorMessage() const { return errorMessage; }

private:
    void noteError(int error);

    char* errorMessage;
};
