#include "heapfile/MappedFile.h"

#include "heapfile/GzipInflater.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/MappedRanges.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint64_t DIGEST_STRETCH = 64 * 1024;

// Closes a descriptor at the end of a scope.
struct Descriptor {
    int fd;
    ~Descriptor() {
        if (fd >= 0) {
            close(fd);
        }
    }
};

uint64_t fnv1a(const uint8_t* from, uint64_t count, uint64_t hash) {
    for (uint64_t i = 0; i < count; i++) {
        hash = (hash ^ from[i]) * 0x100000001b3ULL;
    }
    return hash;
}

uint64_t digestOfEnds(const uint8_t* bytes, uint64_t length) {
    uint64_t head = length < DIGEST_STRETCH ? length : DIGEST_STRETCH;
    uint64_t hash = fnv1a(bytes, head, 0xcbf29ce484222325ULL);
    return fnv1a(bytes + (length - head), head, hash);
}

int makeTemporaryFile(const std::string& wanted) {
    const char* fromEnvironment = getenv("TMPDIR");
    std::string dir = !wanted.empty() ? wanted : (fromEnvironment ? fromEnvironment : "/tmp");
    std::string name = dir + "/vdk-heap-XXXXXX";
    int fd = mkstemp(&name[0]);
    if (fd < 0) {
        throw HeapTemporaryFileError("cannot create a temporary file in " + dir + ": " +
                                     strerror(errno));
    }
    unlink(name.c_str());
    return fd;
}

} // namespace

MappedFile::MappedFile(const std::string& path, const std::string& temporaryDir)
    : filePath(path), inflateDir(temporaryDir) {
    // Without O_NONBLOCK the open of a pipe would wait for a writer.
    Descriptor file{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    if (file.fd < 0) {
        throw HeapReadError("cannot open " + path + ": " + strerror(errno));
    }
    struct stat info;
    if (fstat(file.fd, &info) != 0) {
        throw HeapReadError("cannot read the attributes of " + path + ": " + strerror(errno));
    }
    if (S_ISDIR(info.st_mode)) {
        throw HeapReadError(path + " is a directory");
    }
    if (!S_ISREG(info.st_mode)) {
        throw HeapReadError(path + " is not a regular file");
    }
    if (info.st_size == 0) {
        throw HeapReadError(path + " is empty");
    }
    map(file.fd, static_cast<uint64_t>(info.st_size));
    fileIdentity.size = length;
    fileIdentity.modifiedNs = static_cast<uint64_t>(info.st_mtim.tv_sec) * 1000000000ULL +
                              static_cast<uint64_t>(info.st_mtim.tv_nsec);
    fileIdentity.headDigest = digestOfEnds(bytes, length);
    compressed = GzipInflater::isGzip(bytes, length);
    isPacked = compressed;
}

void MappedFile::inflate() const {
    const std::lock_guard<std::mutex> one(inflating);
    if (!isPacked) {
        return;
    }
    Descriptor inflated{makeTemporaryFile(inflateDir)};
    problem.clear();
    const uint64_t inflatedSize = GzipInflater::inflateToFile(bytes, length, inflated.fd, problem);
    if (inflatedSize == 0) {
        throw HeapReadError(filePath + " holds no inflatable data" +
                            (problem.empty() ? "" : ": " + problem));
    }
    const uint8_t* const packed = bytes;
    const uint64_t packedLength = length;
    map(inflated.fd, inflatedSize);
    forgetMapping(packed);
    munmap(const_cast<uint8_t*>(packed), packedLength);
    isPacked.store(false, std::memory_order_release);
}

MappedFile::~MappedFile() {
    unmap();
}

void MappedFile::map(int descriptor, uint64_t size) const {
    void* address = mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0);
    if (address == MAP_FAILED) {
        throw HeapReadError("cannot map " + filePath + ": " + strerror(errno));
    }
    bytes = static_cast<const uint8_t*>(address);
    length = size;
    noteMapping(address, size, filePath.c_str());
}

void MappedFile::unmap() const {
    if (bytes) {
        forgetMapping(bytes);
        munmap(const_cast<uint8_t*>(bytes), length);
        bytes = nullptr;
        length = 0;
    }
}

void MappedFile::release(uint64_t from, uint64_t to) const {
    const uint64_t page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    from = (from + page - 1) / page * page;
    to = (to < length ? to : length) / page * page;
    if (from < to) {
        // Clean pages of a shared file mapping: dropping them loses nothing.
        madvise(const_cast<uint8_t*>(bytes) + from, to - from, MADV_DONTNEED);
    }
}
