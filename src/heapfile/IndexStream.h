#pragma once

#include "heapfile/HeapReadError.h"
#include "offline/BigIntArray64.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

// Checksum over all bytes of an index file, in the order in which they pass. Not against forgery:
// what was read is checked for itself.
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

// Output of an index file. The first failure throws HeapReadError.
class IndexOutput {
public:
    explicit IndexOutput(const std::string& path);
    ~IndexOutput();
    IndexOutput(const IndexOutput&) = delete;
    IndexOutput& operator=(const IndexOutput&) = delete;

    void bytes(const void* from, size_t count);
    void u32(uint32_t v);
    void u64(uint64_t v);
    void text(const std::string& v);
    // The first `count` elements, pages without values as such.
    void array(const BigIntArray64& values, uint64_t count);
    // `count` ints, in the byte order of this machine.
    void ints(const int* values, uint64_t count);
    // Appends the checksum, syncs, closes, and gives the file its name.
    void commit();

private:
    [[noreturn]] void fail(const char* what);

    std::string finalPath;
    std::string temporaryPath;
    FILE* file;
    IndexChecksum checksum;
};

// Input of an index file. What doesn't fit throws HeapReadError with the offset.
class IndexInput {
public:
    // Null file if path can't be opened.
    explicit IndexInput(const std::string& path);
    ~IndexInput();
    IndexInput(const IndexInput&) = delete;
    IndexInput& operator=(const IndexInput&) = delete;

    bool isOpen() const { return file != nullptr; }
    uint64_t left() const { return size - position; }
    void bytes(void* to, size_t count);
    uint32_t u32();
    uint64_t u64();
    // A number that must be at most `most`; `what` names it.
    uint32_t u32AtMost(uint64_t most, const char* what);
    std::string text();
    void array(BigIntArray64& values, uint64_t count);
    void ints(int* values, uint64_t count);
    // Fails unless `count` items of at least `itemSize` bytes can follow.
    void expect(uint64_t count, uint64_t itemSize, const char* what);
    // Fails unless the checksum and the end of the file follow.
    void finish();
    // Set by fuzzers only: any checksum will do, so that inputs get to the checks behind it.
    static bool ourTakesAnyChecksum;
    [[noreturn]] void fail(const std::string& what) const;

private:
    std::string name;
    FILE* file;
    uint64_t size = 0;
    uint64_t position = 0;
    IndexChecksum checksum;
};
