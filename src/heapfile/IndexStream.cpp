#include "heapfile/IndexStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t LONGEST_TEXT = 1 << 20;

} // namespace

IndexOutput::IndexOutput(const std::string& path)
    : finalPath(path), temporaryPath(path + ".XXXXXX"), file(nullptr) {
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

void IndexOutput::bytes(const void* from, size_t count) {
    if (count > 0 && fwrite(from, 1, count, file) != count) {
        fail("write");
    }
    checksum.add(from, count);
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

void IndexOutput::ints(const int* values, uint64_t count) {
    bytes(values, count * sizeof(int));
}

void IndexOutput::array(const BigIntArray64& values, uint64_t count) {
    const uint64_t pageSize = BigIntArray64::PAGE_SIZE;
    for (uint64_t page = 0; page * pageSize < count; page++) {
        const int* elements = page < static_cast<uint64_t>(values.getPageCount())
                                  ? values.pagePointers()[page]
                                  : nullptr;
        u32(elements ? 1 : 0);
        if (elements) {
            ints(elements, std::min(pageSize, count - page * pageSize));
        }
    }
}

void IndexOutput::commit() {
    u64(checksum.value());
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

bool IndexInput::ourTakesAnyChecksum = false;

IndexInput::IndexInput(const std::string& path) : name(path), file(fopen(path.c_str(), "rbe")) {
    struct stat info;
    if (file && fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode)) {
        size = static_cast<uint64_t>(info.st_size);
    }
}

IndexInput::~IndexInput() {
    if (file) {
        fclose(file);
    }
}

void IndexInput::fail(const std::string& what) const {
    throw HeapReadError("damaged index " + name + ": " + what, position);
}

void IndexInput::bytes(void* to, size_t count) {
    if (count > left() || fread(to, 1, count, file) != count) {
        fail("ends early");
    }
    position += count;
    checksum.add(to, count);
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

void IndexInput::ints(int* values, uint64_t count) {
    expect(count, sizeof(int), "numbers");
    bytes(values, count * sizeof(int));
}

void IndexInput::array(BigIntArray64& values, uint64_t count) {
    const uint64_t pageSize = BigIntArray64::PAGE_SIZE;
    for (uint64_t page = 0; page * pageSize < count; page++) {
        if (u32AtMost(1, "mark of a page") == 0) {
            continue;
        }
        uint64_t elements = std::min(pageSize, count - page * pageSize);
        expect(elements, 4, "numbers");
        ints(values.getBuffer(static_cast<int>(page * pageSize), true), elements);
    }
}

void IndexInput::finish() {
    uint64_t expected = checksum.value();
    if (u64() != expected && !ourTakesAnyChecksum) {
        fail("wrong checksum");
    }
    if (left() != 0) {
        fail("data behind the end");
    }
}
