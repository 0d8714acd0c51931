#include "heapfile/IndexSections.h"

#include "heapfile/HeapReadError.h"
#include "heapfile/IndexStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

uint64_t blocksOf(uint64_t length) {
    return (length + LazySection::BLOCK_BYTES - 1) / LazySection::BLOCK_BYTES;
}

uint64_t checksumOf(const void* bytes, uint64_t count) {
    IndexChecksum checksum;
    checksum.add(bytes, count);
    return checksum.value();
}

} // namespace

bool IndexSections::ourTakesAnyChecksum = false;

std::shared_ptr<IndexSections> IndexSections::open(const std::string& path) {
    // Without O_NONBLOCK the open of a pipe would wait for a writer.
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return nullptr;
    }
    struct stat info;
    const bool isFile = fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode);
    return std::shared_ptr<IndexSections>(
        new IndexSections(path, descriptor, isFile ? static_cast<uint64_t>(info.st_size) : 0));
}

IndexSections::~IndexSections() {
    close(fd);
}

void IndexSections::fail(const std::string& what, uint64_t offset) const {
    throw HeapIndexError("damaged index " + name + ": " + what, offset);
}

void IndexSections::readAt(uint64_t offset, void* to, uint64_t count) const {
    auto* at = static_cast<uint8_t*>(to);
    while (count > 0) {
        const ssize_t got = pread(fd, at, count, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            fail(got < 0 ? std::string("cannot be read: ") + strerror(errno) : "ends early",
                 offset);
        }
        at += got;
        offset += static_cast<uint64_t>(got);
        count -= static_cast<uint64_t>(got);
    }
}

std::vector<uint8_t> IndexSections::start(size_t count) const {
    std::vector<uint8_t> bytes(static_cast<size_t>(std::min<uint64_t>(count, size)));
    readAt(0, bytes.data(), bytes.size());
    return bytes;
}

void IndexSections::readTables(uint64_t headLength, size_t sectionCount) {
    std::vector<uint64_t> tail(sectionCount + 2);
    const uint64_t tailBytes = tail.size() * sizeof(tail[0]);
    if (size < headLength + tailBytes) {
        fail("ends early", size);
    }
    readAt(size - tailBytes, tail.data(), tailBytes);
    const uint64_t body = size - tailBytes;
    uint64_t start = 0;
    uint64_t blocks = 0;
    for (size_t i = 0; i <= sectionCount; i++) {
        const uint64_t length = tail[i];
        if (length > body - start || (i == 0 && length != headLength)) {
            fail("lengths of sections don't fit the file", size - tailBytes);
        }
        sections.push_back({start, length, blocks});
        start += length;
        blocks += blocksOf(length);
    }
    if (blocks * sizeof(checksums[0]) != body - start) {
        fail("lengths of sections don't fit the file", size - tailBytes);
    }
    checksums.resize(static_cast<size_t>(blocks));
    readAt(start, checksums.data(), blocks * sizeof(checksums[0]));
    IndexChecksum checksum;
    std::vector<uint64_t> tables(checksums);
    tables.insert(tables.end(), tail.begin(), tail.end() - 1);
    checksum.add(tables.data(), tables.size() * sizeof(tables[0]));
    if (checksum.value() != tail.back() && !ourTakesAnyChecksum) {
        fail("wrong checksum", size - sizeof(tail[0]));
    }
    whole(0);
}

void IndexSections::readBlock(size_t section, uint64_t block, uint8_t* to, uint64_t count) const {
    const Section& from = sections[section];
    const uint64_t offset = from.start + block * LazySection::BLOCK_BYTES;
    readAt(offset, to, count);
    if (checksumOf(to, count) != checksums[static_cast<size_t>(from.firstBlock + block)] &&
        !ourTakesAnyChecksum) {
        fail("wrong checksum", offset);
    }
}

std::vector<uint8_t> IndexSections::whole(size_t section) {
    std::vector<uint8_t> bytes(static_cast<size_t>(length(section)));
    for (uint64_t at = 0; at < bytes.size(); at += LazySection::BLOCK_BYTES) {
        readBlock(section, at / LazySection::BLOCK_BYTES, &bytes[static_cast<size_t>(at)],
                  std::min<uint64_t>(LazySection::BLOCK_BYTES, bytes.size() - at));
    }
    return bytes;
}

void IndexSection::fail(const char* how) const {
    file->fail(std::string(what) + " " + how, file->startOf(section));
}

void IndexSection::load(unsigned long block) const {
    const std::lock_guard<std::mutex> one(file->loading());
    if (isPresent(block)) {
        return;
    }
    file->readBlock(section, block, blockStart(block), blockLength(block));
    checkBlock(block);
    setPresent(block);
}

void IndexSection::checkBlock(unsigned long block) const {
    if (check == Check::Nothing) {
        return;
    }
    const auto* numbers = reinterpret_cast<const uint32_t*>(blockStart(block));
    const uint64_t first = block * (BLOCK_BYTES / sizeof(numbers[0]));
    const uint64_t count = blockLength(block) / sizeof(numbers[0]);
    uint32_t highest = 0;
    bool isGood = true;
    for (uint64_t i = 0; i < count; i++) {
        highest = std::max(highest, numbers[i]);
        isGood &= check != Check::Positions || i == 0 || numbers[i - 1] <= numbers[i];
        isGood &= check != Check::Dominators || numbers[i] != first + i || first + i == 0;
    }
    if (!isGood || highest > most) {
        fail(check == Check::Positions ? "are more than there are, or not in order"
             : check == Check::Rows    ? "lead to rows that don't exist"
                                       : "are rows that don't exist, or their own");
    }
}
