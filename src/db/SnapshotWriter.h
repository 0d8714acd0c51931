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
    // The other's error, if this one has none.
    void takeErrorOf(const SnapshotWriter& other);

    // Bytes written so far, also where an error kept them from the file: what is written next
    // stands there, for the file was empty at the beginning.
    long getPosition() const { return bufferStart + used; }
    // Replace what was written before at such a position, in the buffer or in the file.
    void patchByte(long position, int value) { patch(position, static_cast<unsigned>(value), 1); }
    void patchInt(long position, int value) { patch(position, static_cast<unsigned>(value), 4); }
    void patchLong(long position, long value) {
        patch(position, static_cast<unsigned long>(value), 8);
    }

protected:
    void writeOut(const unsigned char* bytes, int length);
    // A byte that left the buffer.
    virtual void patchFlushed(long position, unsigned char value);
    void noteError(int error);

    long bufferStart; // position of the first byte in the buffer

private:
    void patch(long position, unsigned long bits, int bytes);

    char* errorMessage;
};

// HeldSnapshotWriter: a SnapshotWriter that keeps the beginning in memory until it is released, so
// that a slow disk does not hold up who waits for the writer's owner meanwhile. What is more than
// the limit goes to the file at once.
class HeldSnapshotWriter : public SnapshotWriter {
public:
    static constexpr int MAX_PIECES = 64;

    explicit HeldSnapshotWriter(int file) : SnapshotWriter(file) {}
    ~HeldSnapshotWriter() override;
    void flush() override;
    // Writes everything to the file; from here on it is an ordinary writer.
    void release();
    // Writes everything, and the error of it if there was one, to another writer, and ends with
    // that. The file must be open for reading as well.
    void moveTo(SnapshotWriter& to);

protected:
    void patchFlushed(long position, unsigned char value) override;

private:
    bool keep();
    void readBackTo(SnapshotWriter& to);

    struct Piece {
        unsigned char* bytes;
        int length;
    };

    Piece pieces[MAX_PIECES];
    int count = 0;
    bool isReleased = false;
};
