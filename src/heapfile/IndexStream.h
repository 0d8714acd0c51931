#pragma once

#include "heapfile/HeapReadError.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// Checksum over bytes of an index file. Not against forgery: what was read is checked for itself.
class IndexChecksum {
public:
    void add(const void* bytes, size_t count) {
        const auto* p = static_cast<const uint8_t*>(bytes);
        // Four sums side by side, as each multiplication waits for the one before.
        for (; count >= sizeof(sums); count -= sizeof(sums), p += sizeof(sums)) {
            uint64_t words[4];
            memcpy(words, p, sizeof(words));
            for (int i = 0; i < 4; i++) {
                mix(sums[i], words[i]);
            }
        }
        for (; count > 0; count--, p++) {
            mix(sums[0], 0x100u + *p);
        }
    }
    uint64_t value() const { return (sums[0] ^ sums[1] * 3) + (sums[2] ^ sums[3] * 5); }

private:
    static void mix(uint64_t& sum, uint64_t v) {
        sum = (sum ^ v) * 0x9e3779b97f4a7c15ULL + (sum >> 47);
    }
    uint64_t sums[4] = {1, 2, 3, 4};
};

// Output of an index file: a head, sections, and at the end their checksums and lengths. The first
// failure throws HeapReadError.
class IndexOutput {
public:
    explicit IndexOutput(const std::string& path);
    ~IndexOutput();
    IndexOutput(const IndexOutput&) = delete;
    IndexOutput& operator=(const IndexOutput&) = delete;

    void bytes(const void* from, size_t count) {
        if (count > block.size() - used) {
            pass(static_cast<const uint8_t*>(from), count);
            return;
        }
        if (count > 0) { // nothing may come from nowhere
            memcpy(&block[used], from, count);
        }
        used += count;
    }
    // A number in the byte order of this machine.
    template <typename T>
    void number(T v) {
        bytes(&v, sizeof(v));
    }
    void u32(uint32_t v);
    void u64(uint64_t v);
    void text(const std::string& v);
    // Ends the head, or a section.
    void endSection();
    // Appends checksums and lengths, syncs, closes, and gives the file its name.
    void commit();

private:
    void pass(const uint8_t* from, size_t count);
    void flushBlock();
    [[noreturn]] void fail(const char* what);

    std::string finalPath;
    std::string temporaryPath;
    FILE* file;
    std::vector<uint8_t> block; // of the section, not written yet
    size_t used = 0;
    uint64_t sectionBytes = 0; // written of it
    std::vector<uint64_t> lengths;
    std::vector<uint64_t> checksums; // by block
};

// Reads numbers and texts out of bytes of an index. What doesn't fit throws HeapReadError with the
// offset.
class IndexInput {
public:
    // startInFile: where the bytes lie in the file, for messages.
    IndexInput(std::string fileName, const std::vector<uint8_t>& bytes, uint64_t startInFile)
        : name(std::move(fileName)), from(bytes.data()), size(bytes.size()), start(startInFile) {}

    uint64_t left() const { return size - position; }
    void bytes(void* to, size_t count);
    uint32_t u32();
    uint64_t u64();
    // A number that must be at most `most`; `what` names it.
    uint32_t u32AtMost(uint64_t most, const char* what);
    std::string text();
    // Fails unless `count` items of at least `itemSize` bytes can follow.
    void expect(uint64_t count, uint64_t itemSize, const char* what);
    [[noreturn]] void fail(const std::string& what) const;

private:
    std::string name;
    const uint8_t* from;
    uint64_t size;
    uint64_t start;
    uint64_t position = 0;
};
