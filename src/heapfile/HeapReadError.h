#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

// A heap file can't be read: what is wrong, and where in the file. Thrown by the readers of this
// folder, caught by the commands; never crosses into a JVM.
class HeapReadError : public std::runtime_error {
public:
    // Message without a place: the file can't be opened, mapped or inflated.
    explicit HeapReadError(const std::string& message)
        : std::runtime_error(message), fileOffset(0), known(false) {}
    HeapReadError(const std::string& message, uint64_t offset)
        : std::runtime_error(message + " at offset " + std::to_string(offset)), fileOffset(offset),
          known(true) {}

    // Byte offset in the file, or in the inflated data of a compressed file; valid if hasOffset().
    uint64_t offset() const { return fileOffset; }
    bool hasOffset() const { return known; }

private:
    uint64_t fileOffset;
    bool known;
};

// The file is in order, and there is no heap in it.
class NoHeapError : public HeapReadError {
public:
    using HeapReadError::HeapReadError;
};

// The file may be in order, but a temporary file for it can't be made or filled.
class HeapTemporaryFileError : public HeapReadError {
public:
    using HeapReadError::HeapReadError;
};

// The heap may be in order, but its index is damaged. May come from any question about a heap that
// was opened by an index.
class HeapIndexError : public HeapReadError {
public:
    using HeapReadError::HeapReadError;
};
