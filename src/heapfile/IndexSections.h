#pragma once

#include "offline/LazySection.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// DESCRIPTION
//   An index file opened for reading: its head, and its sections, whole or as they are asked for.
//   The lengths of all sections are compared with the file when it is opened; a block's checksum is
//   compared when the block is read.
// IMPLEMENTATION
//   The head, the sections one behind the other, then for each block of LazySection::BLOCK_BYTES
//   its checksum, for head and sections their length, and a checksum of those two tables. Blocks
//   are read by pread: a file that is cut while it is open gives a short read, where a mapping
//   would give a signal.
class IndexSections {
public:
    // Null if path can't be opened.
    static std::shared_ptr<IndexSections> open(const std::string& path);
    ~IndexSections();
    IndexSections(const IndexSections&) = delete;
    IndexSections& operator=(const IndexSections&) = delete;

    // Up to `count` bytes from the start of the file, unchecked.
    std::vector<uint8_t> start(size_t count) const;
    // Reads the tables at the end. Throws HeapReadError unless they are of a head of headLength
    // bytes and of sectionCount sections that fill the file.
    void readTables(uint64_t headLength, size_t sectionCount);

    // After readTables. Section 0 is the head.
    uint64_t length(size_t section) const { return sections[section].length; }
    uint64_t startOf(size_t section) const { return sections[section].start; }
    std::vector<uint8_t> whole(size_t section);
    // Reads a block and compares its checksum.
    void readBlock(size_t section, uint64_t block, uint8_t* to, uint64_t count) const;
    [[noreturn]] void fail(const std::string& what, uint64_t offset) const;

    // Taken while a block comes.
    std::mutex& loading() { return lock; }
    // Set by fuzzers only: any checksum will do, so that inputs get to the checks behind it.
    static bool ourTakesAnyChecksum;

private:
    struct Section {
        uint64_t start;
        uint64_t length;
        uint64_t firstBlock; // index of its first checksum
    };

    IndexSections(const std::string& path, int descriptor, uint64_t bytes)
        : name(path), fd(descriptor), size(bytes) {}
    void readAt(uint64_t offset, void* to, uint64_t count) const;

    std::string name;
    int fd;
    uint64_t size;
    std::vector<Section> sections;
    std::vector<uint64_t> checksums;
    std::mutex lock;
};

// A section that is read as it is asked for. The elements of each block are checked when it comes.
class IndexSection final : public LazySection {
public:
    enum class Check {
        Nothing,
        Rows,       // numbers of rows, 0 included
        Dominators, // the same, none that of its own row
        Positions,  // 32-bit numbers up to `most`, ascending
    };

    // what: for messages. most: the highest row or position.
    IndexSection(std::shared_ptr<IndexSections> file, size_t section, const char* what, Check check,
                 uint64_t most)
        : LazySection(file->length(section)), file(std::move(file)), section(section), what(what),
          check(check), most(most) {}

    [[noreturn]] void fail(const char* how) const override;

protected:
    void load(unsigned long block) const override;

private:
    void checkBlock(unsigned long block) const;

    std::shared_ptr<IndexSections> file;
    size_t section;
    const char* what;
    Check check;
    uint64_t most;
};
