#include "probes/ZipArchive.h"

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const int CHUNK_BYTES = 1024;
const int MAX_NAME_BYTES = 0xffff;
// Of class files and of all names together; more is a mistake or an attack.
const long MAX_CONTENT_BYTES = 64L * 1024 * 1024;
const int MAX_NAMES_BYTES = 256 * 1024 * 1024;

// What minizip calls for the bytes of an archive. Nothing throws: C code is in between.

voidpf openSource(voidpf opaque, const void*, int) {
    return opaque;
}

// As many of these few bytes as the file has at the position.
long readAhead(ZipSource& source, void* buffer, long wanted) {
    const long end = source.position + wanted;
    if (source.position < source.aheadStart || end > source.aheadStart + source.aheadCount) {
        source.aheadStart = source.position;
        source.aheadCount = pread(source.fd, source.ahead, sizeof source.ahead, source.position);
    }
    const long left = source.aheadStart + source.aheadCount - source.position;
    const long done = wanted < left ? wanted : left;
    if (done > 0) {
        memcpy(buffer, source.ahead + (source.position - source.aheadStart),
               static_cast<size_t>(done));
    }
    return done;
}

uLong readSource(voidpf, voidpf stream, void* buffer, uLong count) {
    auto* const source = static_cast<ZipSource*>(stream);
    const auto left = static_cast<uLong>(source->size - source->position);
    const uLong wanted = count < left ? count : left;
    if (source->memory != nullptr) {
        memcpy(buffer, source->memory + source->position, wanted);
        source->position += static_cast<long>(wanted);
        return wanted;
    }
    const long done = wanted < sizeof source->ahead
                          ? readAhead(*source, buffer, static_cast<long>(wanted))
                          : pread(source->fd, buffer, wanted, source->position);
    if (done <= 0) {
        return 0;
    }
    source->position += done;
    return static_cast<uLong>(done);
}

uLong refuseWrite(voidpf, voidpf, const void*, uLong) {
    return 0;
}

ZPOS64_T tellSource(voidpf, voidpf stream) {
    return static_cast<ZPOS64_T>(static_cast<ZipSource*>(stream)->position);
}

long seekSource(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
    auto* const source = static_cast<ZipSource*>(stream);
    const long base = origin == ZLIB_FILEFUNC_SEEK_END   ? source->size
                      : origin == ZLIB_FILEFUNC_SEEK_CUR ? source->position
                                                         : 0;
    if (offset > static_cast<ZPOS64_T>(source->size - base)) {
        return -1;
    }
    source->position = base + static_cast<long>(offset);
    return 0;
}

int keepSource(voidpf, voidpf) {
    return 0; // closed by the archive, also where it is none
}

int noError(voidpf, voidpf) {
    return 0;
}

} // namespace

ZipArchive::ZipArchive(const ZString& path)
    // Not blocking: a named pipe may stand in the place of the file.
    : source{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY), nullptr, 0, 0},
      archive(nullptr) {
    struct stat status;
    if (source.fd >= 0 && fstat(source.fd, &status) == 0 && S_ISREG(status.st_mode)) {
        source.size = status.st_size;
        open();
    }
}

ZipArchive::ZipArchive(const unsigned char* bytes, long count)
    : source{-1, bytes, count, 0}, archive(nullptr) {
    open();
}

ZipArchive::~ZipArchive() {
    if (archive != nullptr) {
        unzClose(archive);
    }
    if (source.fd >= 0) {
        close(source.fd);
    }
}

void ZipArchive::open() {
    zlib_filefunc64_def functions = {openSource, readSource, refuseWrite, tellSource,
                                     seekSource, keepSource, noError,     &source};
    archive = unzOpen2_64(nullptr, &functions);
    if (archive != nullptr && !readEntries()) {
        entries.clear();
        unzClose(archive);
        archive = nullptr;
    }
}

bool ZipArchive::readEntries() {
    char name[MAX_NAME_BYTES + 1];
    int outcome = unzGoToFirstFile(archive);
    for (; outcome == UNZ_OK; outcome = unzGoToNextFile(archive)) {
        unz_file_info64 info;
        Entry entry;
        if (unzGetCurrentFileInfo64(archive, &info, name, sizeof name, nullptr, 0, nullptr, 0) !=
                UNZ_OK ||
            unzGetFilePos64(archive, &entry.place) != UNZ_OK) {
            return false;
        }
        entry.name = names.getSize();
        entry.nameLength = static_cast<int>(info.size_filename);
        entry.size = static_cast<long>(info.uncompressed_size);
        if (entry.name > MAX_NAMES_BYTES - entry.nameLength) {
            return false;
        }
        memcpy(names.extend(entry.nameLength), name, info.size_filename);
        entries.push(entry);
    }
    return outcome == UNZ_END_OF_LIST_OF_FILE;
}

Utf8View ZipArchive::getName(int entryIndex) const {
    const Entry& entry = entries[entryIndex];
    return Utf8View(names.data() + entry.name, entry.nameLength);
}

// In chunks, and not beyond what the directory tells: the contents may be a bomb.
bool ZipArchive::readTo(const Entry& entry, ZVector<unsigned char>& out) const {
    if (unzGoToFilePos64(archive, &entry.place) != UNZ_OK ||
        unzOpenCurrentFile(archive) != UNZ_OK) {
        return false;
    }
    unsigned char chunk[CHUNK_BYTES];
    long left = entry.size;
    int count = 0;
    while (left >= 0 && (count = unzReadCurrentFile(archive, chunk, CHUNK_BYTES)) > 0) {
        memcpy(out.extend(count), chunk, static_cast<size_t>(count));
        left -= count;
    }
    // Closing compares the checksum.
    return unzCloseCurrentFile(archive) == UNZ_OK && count == 0 && left == 0;
}

bool unzipEntryToVector(const ZipArchive& zip, long expectedSize, int entryIndex,
                        ZVector<unsigned char>& out) {
    const ZipArchive::Entry& entry = zip.entries[entryIndex];
    return entry.size == expectedSize && expectedSize >= 0 && expectedSize <= MAX_CONTENT_BYTES &&
           zip.readTo(entry, out);
}
