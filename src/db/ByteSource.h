#pragma once

#include "core/ground/ZString.h"

// ByteSource: where a reader's bytes come from. Input arrives in pieces, each valid until the next
// is asked for.
class ByteSource {
public:
    virtual ~ByteSource() = default;
    // The next piece, of at least one byte. False at the end, and after an error, which
    // getErrorMessage then tells.
    virtual bool nextPiece(const unsigned char** bytes, long* count) = 0;
    // Bytes of the whole input, -1 if that is not known.
    virtual long getTotalSize() const = 0;
    // Why there is no more input; empty at a regular end.
    virtual const ZString& getErrorMessage() const = 0;
};

// Bytes in memory, in pieces of at most pieceSize. They stay the caller's.
class MemorySource : public ByteSource {
public:
    MemorySource(const void* bytes, long count, long pieceSize = 0x7fffffffffffffff)
        : next(static_cast<const unsigned char*>(bytes)), left(count), total(count),
          piece(pieceSize) {}
    bool nextPiece(const unsigned char** bytes, long* count) override;
    long getTotalSize() const override { return total; }
    const ZString& getErrorMessage() const override { return error; }

private:
    const unsigned char* next;
    long left;
    long total;
    long piece;
    ZString error;
};

// A descriptor read from its current position: a file, a pipe or a socket. The descriptor stays the
// caller's. A regular file has a known size.
class DescriptorSource : public ByteSource {
public:
    explicit DescriptorSource(int descriptor);
    ~DescriptorSource() override;
    DescriptorSource(const DescriptorSource&) = delete;
    DescriptorSource& operator=(const DescriptorSource&) = delete;
    bool nextPiece(const unsigned char** bytes, long* count) override;
    long getTotalSize() const override { return total; }
    const ZString& getErrorMessage() const override { return error; }

private:
    static constexpr int BUFFER_SIZE = 1 << 18;

    int file;
    long total;
    unsigned char* buffer;
    ZString error;
};
