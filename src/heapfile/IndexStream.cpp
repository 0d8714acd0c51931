#include "heapfile/IndexStream.h"

#include "offline/LazySection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace {

constexpr uint32_t LONGEST_TEXT = 1 << 20;

} // namespace

IndexOutput::IndexOutput(const std::string& path)
    : finalPath(path), temporaryPath(path + ".XXXXXX"), file(nullptr),
      block(LazySection::BLOCK_BYTES) {
    int fd = mkstemp(&temporaryPath[0]);
    file = fd < 0 ? nullptr : fdopen(fd, "wb");
    if (!file) {
        int error = errno;
        if (fd >= 0) {
            close(fd);
            unlink(temporaryPath.c_str());
        }
        throw HeapReadError("cannot write " + path + ": " + strerror(error));
    }
}

IndexOutput::~IndexOutput() {
    if (file) {
        fclose(file);
        unlink(temporaryPath.c_str());
    }
}

void IndexOutput::fail(const char* what) {
    throw HeapReadError(std::string("cannot ") + what + " " + finalPath + ": " + strerror(errno));
}

void IndexOutput::flushBlock() {
    if (used > 0 && fwrite(block.data(), 1, used, file) != used) {
        fail("write");
    }
    IndexChecksum checksum;
    checksum.add(block.data(), used);
    checksums.push_back(checksum.value());
    sectionBytes += used;
    used = 0;
}

// What goes over the end of a block.
void IndexOutput::pass(const uint8_t* from, size_t count) {
    while (count > 0) {
        if (used == block.size()) {
            flushBlock();
        }
        const size_t part = std::min(count, block.size() - used);
        memcpy(&block[used], from, part);
        used += part;
        from += part;
        count -= part;
    }
}

void IndexOutput::endSection() {
    if (used > 0) {
        flushBlock();
    }
    lengths.push_back(sectionBytes);
    sectionBytes = 0;
}

void IndexOutput::u32(uint32_t v) {
    uint8_t b[4];
    for (int i = 0; i < 4; i++) {
        b[i] = static_cast<uint8_t>(v >> (8 * i));
    }
    bytes(b, sizeof(b));
}

void IndexOutput::u64(uint64_t v) {
    u32(static_cast<uint32_t>(v));
    u32(static_cast<uint32_t>(v >> 32));
}

void IndexOutput::text(const std::string& v) {
    std::string cut = v.substr(0, LONGEST_TEXT);
    u32(static_cast<uint32_t>(cut.size()));
    bytes(cut.data(), cut.size());
}

void IndexOutput::commit() {
    std::vector<uint64_t> tail(checksums);
    tail.insert(tail.end(), lengths.begin(), lengths.end());
    IndexChecksum checksum;
    checksum.add(tail.data(), tail.size() * sizeof(tail[0]));
    tail.push_back(checksum.value());
    if (fwrite(tail.data(), sizeof(tail[0]), tail.size(), file) != tail.size()) {
        fail("write");
    }
    if (fflush(file) != 0 || fsync(fileno(file)) != 0) {
        fail("write");
    }
    if (fclose(file) != 0) {
        file = nullptr;
        unlink(temporaryPath.c_str());
        fail("write");
    }
    file = nullptr;
    if (rename(temporaryPath.c_str(), finalPath.c_str()) != 0) {
        unlink(temporaryPath.c_str());
        fail("rename to");
    }
}

void IndexInput::fail(const std::string& what) const {
    throw HeapIndexError("damaged index " + name + ": " + what, start + position);
}

void IndexInput::bytes(void* to, size_t count) {
    if (count > left()) {
        fail("ends early");
    }
    if (count > 0) {
        memcpy(to, from + position, count);
    }
    position += count;
}

uint32_t IndexInput::u32() {
    uint8_t b[4];
    bytes(b, sizeof(b));
    return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 |
           static_cast<uint32_t>(b[2]) << 16 | static_cast<uint32_t>(b[3]) << 24;
}

uint64_t IndexInput::u64() {
    uint64_t low = u32();
    return low | static_cast<uint64_t>(u32()) << 32;
}

uint32_t IndexInput::u32AtMost(uint64_t most, const char* what) {
    uint32_t v = u32();
    if (v > most) {
        fail(std::string(what) + " is " + std::to_string(v) + ", at most " + std::to_string(most) +
             " can be");
    }
    return v;
}

std::string IndexInput::text() {
    uint32_t length = u32AtMost(std::min<uint64_t>(LONGEST_TEXT, left()), "length of a text");
    std::string result(length, '\0');
    bytes(&result[0], length);
    return result;
}

void IndexInput::expect(uint64_t count, uint64_t itemSize, const char* what) {
    if (count > left() / itemSize) {
        fail(std::to_string(count) + " " + what + " can't follow in the " + std::to_string(left()) +
             " bytes left");
    }
}
