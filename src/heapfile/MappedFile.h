#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

// Read-only view of a file's bytes, mapped into memory. A file in gzip form (also of many members,
// as JVMs write it) is inflated into a nameless temporary file, which is mapped instead, when its
// contents are asked for first: what an index answers needs none of them. Any thread may ask.
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

    // The contents. Of a compressed file the first call throws HeapReadError if it can't be
    // inflated.
    const uint8_t* data() const {
        needContents();
        return bytes;
    }
    uint64_t size() const {
        needContents();
        return length;
    }
    const Identity& identity() const { return fileIdentity; }
    const std::string& path() const { return filePath; }
    bool isCompressed() const { return compressed; }
    // Why inflating ended early, empty if it did not. data() then holds what could be inflated.
    const std::string& inflateProblem() const {
        needContents();
        return problem;
    }

    // Lets the pages of a stretch go from this process; they come back from the file when touched.
    void release(uint64_t from, uint64_t to) const;

private:
    void needContents() const {
        if (__builtin_expect(isPacked.load(std::memory_order_acquire), 0)) {
            inflate();
        }
    }
    void inflate() const;
    void map(int descriptor, uint64_t size) const;
    void unmap() const;

    std::string filePath;
    std::string inflateDir;
    Identity fileIdentity;
    bool compressed = false;
    // The mapping: that of the file, and of the temporary file once it was inflated.
    mutable const uint8_t* bytes = nullptr;
    mutable uint64_t length = 0;
    mutable std::atomic<bool> isPacked{false};
    mutable std::mutex inflating;
    mutable std::string problem;
};
