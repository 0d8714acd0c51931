#pragma once

#include <cstdint>
#include <memory>
#include <string>

// Read-only view of a file's bytes, mapped into memory. A file in gzip form (also of many members,
// as JVMs write it) is inflated first into a nameless temporary file, which is mapped instead.
class MappedFile {
public:
    // Identity of the file on disk, to tell whether an index still belongs to it.
    struct Identity {
        uint64_t size = 0;
        uint64_t modifiedNs = 0; // of the last modification, since the epoch
        uint64_t headDigest =
            0; // FNV-1a over the first and last 64 KiB of the file as it is on disk
    };

    // Opens and maps path. temporaryDir is where a compressed file is inflated; empty for TMPDIR or
    // /tmp. Throws HeapReadError if path isn't a readable, regular, non-empty file.
    MappedFile(const std::string& path, const std::string& temporaryDir);
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    const uint8_t* data() const { return bytes; }
    uint64_t size() const { return length; }
    const Identity& identity() const { return fileIdentity; }
    const std::string& path() const { return filePath; }
    bool isCompressed() const { return compressed; }
    // Why inflating ended early, empty if it did not. data() then holds what could be inflated.
    const std::string& inflateProblem() const { return problem; }

    // Lets the pages of a stretch go from this process; they come back from the file when touched.
    void release(uint64_t from, uint64_t to) const;

private:
    void map(int descriptor, uint64_t size);
    void unmap();

    std::string filePath;
    Identity fileIdentity;
    const uint8_t* bytes = nullptr;
    uint64_t length = 0;
    bool compressed = false;
    std::string problem;
};
