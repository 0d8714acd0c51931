#include "probes/ZipArchive.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

// The records of the format, little-endian, each behind a signature of four bytes.
namespace {

const unsigned LOCAL_HEADER = 0x04034b50;
const unsigned DIRECTORY_ENTRY = 0x02014b50;
const unsigned END_RECORD = 0x06054b50;
const unsigned LARGE_END_RECORD = 0x06064b50;
const unsigned LARGE_END_LOCATOR = 0x07064b50;
const int LOCAL_HEADER_BYTES = 30;
const int DIRECTORY_ENTRY_BYTES = 46;
const int END_RECORD_BYTES = 22;
const int LARGE_END_RECORD_BYTES = 56;
const int LARGE_END_LOCATOR_BYTES = 20;
const int MAX_COMMENT_BYTES = 0xffff;
const unsigned IN_LARGE_RECORD = 0xffffffff;

const int METHOD_STORED = 0;
const int METHOD_DEFLATED = 8;
const int FLAG_ENCRYPTED = 1;

const int CHUNK_BYTES = 1024;
// Of class files and of directories; more is a mistake or an attack.
const long MAX_CONTENT_BYTES = 64L * 1024 * 1024;
const long MAX_DIRECTORY_BYTES = 256L * 1024 * 1024;

unsigned number2(const unsigned char* at) {
    return at[0] | static_cast<unsigned>(at[1]) << 8;
}

unsigned number4(const unsigned char* at) {
    return number2(at) | number2(at + 2) << 16;
}

// Negative for what no file is as large as.
long number8(const unsigned char* at) {
    return static_cast<long>(number4(at) | static_cast<unsigned long>(number4(at + 4)) << 32);
}

} // namespace

ZipArchive::ZipArchive(const ZString& path)
    // Not blocking: a named pipe may stand in the place of the file.
    : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)), memory(nullptr),
      fileSize(0), opened(false) {
    struct stat status;
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        fileSize = status.st_size;
        open();
    }
}

ZipArchive::ZipArchive(const unsigned char* bytes, long count)
    : fd(-1), memory(bytes), fileSize(count), opened(false) {
    open();
}

void ZipArchive::open() {
    Place place;
    opened = findDirectory(&place) && readDirectory(place);
}

ZipArchive::~ZipArchive() {
    if (fd >= 0) {
        close(fd);
    }
}

Utf8View ZipArchive::getName(int entryIndex) const {
    const Entry& entry = entries[entryIndex];
    return Utf8View(reinterpret_cast<const char*>(directory.data()) + entry.name, entry.nameLength);
}

bool ZipArchive::readAt(long offset, void* buffer, int count) const {
    if (offset < 0 || offset > fileSize - count) {
        return false;
    }
    if (memory != nullptr) {
        memcpy(buffer, memory + offset, static_cast<size_t>(count));
        return true;
    }
    return pread(fd, buffer, static_cast<size_t>(count), offset) == count;
}

// The end record is the last thing of the file, but for a comment of up to 64 KB.
bool ZipArchive::findDirectory(Place* place) const {
    const int length = static_cast<int>(fileSize < END_RECORD_BYTES + MAX_COMMENT_BYTES
                                            ? fileSize
                                            : END_RECORD_BYTES + MAX_COMMENT_BYTES);
    ZVector<unsigned char> tail(length + 1);
    if (!readAt(fileSize - length, tail.extend(length), length)) {
        return false;
    }
    for (int at = length - END_RECORD_BYTES; at >= 0; at--) {
        const unsigned char* const record = tail.data() + at;
        if (number4(record) != END_RECORD ||
            at + END_RECORD_BYTES + static_cast<int>(number2(record + 20)) > length) {
            continue;
        }
        const long endRecord = fileSize - length + at;
        const unsigned bytes = number4(record + 12);
        const unsigned start = number4(record + 16);
        if (bytes == IN_LARGE_RECORD || start == IN_LARGE_RECORD ||
            number2(record + 10) == 0xffff) {
            return findLargeDirectory(endRecord, place);
        }
        place->bytes = bytes;
        place->start = endRecord - place->bytes;
        place->base = place->start - static_cast<long>(start);
        return place->base >= 0;
    }
    return false;
}

bool ZipArchive::findLargeDirectory(long endRecord, Place* place) const {
    unsigned char record[LARGE_END_RECORD_BYTES];
    const long locator = endRecord - LARGE_END_LOCATOR_BYTES;
    if (!readAt(locator, record, LARGE_END_LOCATOR_BYTES) || number4(record) != LARGE_END_LOCATOR) {
        return false;
    }
    const long position = number8(record + 8);
    if (!readAt(position, record, LARGE_END_RECORD_BYTES) || number4(record) != LARGE_END_RECORD) {
        return false;
    }
    place->base = 0;
    place->bytes = number8(record + 40);
    place->start = number8(record + 48);
    return true;
}

bool ZipArchive::readDirectory(const Place& place) {
    if (place.bytes < 0 || place.bytes > MAX_DIRECTORY_BYTES) {
        return false;
    }
    const int length = static_cast<int>(place.bytes);
    if (place.start < 0 || place.start > fileSize - length ||
        !readAt(place.start, directory.extend(length), length)) {
        return false;
    }
    for (int at = 0; at + DIRECTORY_ENTRY_BYTES <= length;) {
        const unsigned char* const record = directory.data() + at;
        if (number4(record) != DIRECTORY_ENTRY) {
            return false;
        }
        Entry entry;
        entry.name = at + DIRECTORY_ENTRY_BYTES;
        entry.nameLength = static_cast<int>(number2(record + 28));
        entry.method = (number2(record + 8) & FLAG_ENCRYPTED) != 0
                           ? -1
                           : static_cast<int>(number2(record + 10));
        entry.checksum = number4(record + 16);
        entry.packedSize = number4(record + 20);
        entry.size = number4(record + 24);
        entry.header = place.base + static_cast<long>(number4(record + 42));
        if (entry.nameLength > length - entry.name) {
            return false;
        }
        entries.push(entry);
        at = entry.name + entry.nameLength + static_cast<int>(number2(record + 30)) +
             static_cast<int>(number2(record + 32));
    }
    return true;
}

// The local header repeats the name and has extra fields of its own.
bool ZipArchive::findData(const Entry& entry, long* offset) const {
    unsigned char header[LOCAL_HEADER_BYTES];
    if (!readAt(entry.header, header, LOCAL_HEADER_BYTES) || number4(header) != LOCAL_HEADER) {
        return false;
    }
    *offset = entry.header + LOCAL_HEADER_BYTES + static_cast<long>(number2(header + 26)) +
              static_cast<long>(number2(header + 28));
    return true;
}

bool ZipArchive::copy(const Entry& entry, long offset, ZVector<unsigned char>& out) const {
    if (entry.packedSize != entry.size) {
        return false;
    }
    unsigned char chunk[CHUNK_BYTES];
    for (long done = 0; done < entry.size;) {
        const int count =
            static_cast<int>(entry.size - done < CHUNK_BYTES ? entry.size - done : CHUNK_BYTES);
        if (!readAt(offset + done, chunk, count)) {
            return false;
        }
        memcpy(out.extend(count), chunk, static_cast<size_t>(count));
        done += count;
    }
    return true;
}

bool ZipArchive::inflateTo(const Entry& entry, long offset, ZVector<unsigned char>& out) const {
    struct Stream : z_stream {
        Stream() : z_stream() { good = inflateInit2(this, -MAX_WBITS) == Z_OK; }
        ~Stream() { inflateEnd(this); }
        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;
        bool good;
    };
    Stream stream;
    unsigned char packed[CHUNK_BYTES];
    unsigned char plain[CHUNK_BYTES];
    const int start = out.getSize();
    long done = 0;
    int outcome = stream.good ? Z_OK : Z_MEM_ERROR;
    while (outcome == Z_OK && out.getSize() - start <= entry.size) {
        const long left = entry.packedSize - done;
        if (stream.avail_in == 0 && left > 0) {
            const int count = static_cast<int>(left < CHUNK_BYTES ? left : CHUNK_BYTES);
            if (!readAt(offset + done, packed, count)) {
                return false;
            }
            done += count;
            stream.next_in = packed;
            stream.avail_in = static_cast<uInt>(count);
        }
        stream.next_out = plain;
        stream.avail_out = CHUNK_BYTES;
        outcome = inflate(&stream, Z_NO_FLUSH);
        const int made = CHUNK_BYTES - static_cast<int>(stream.avail_out);
        memcpy(out.extend(made), plain, static_cast<size_t>(made));
    }
    return outcome == Z_STREAM_END;
}

bool unzipEntryToVector(const ZipArchive& zip, long expectedSize, int entryIndex,
                        ZVector<unsigned char>& out) {
    const ZipArchive::Entry& entry = zip.entries[entryIndex];
    long offset = 0;
    if (entry.size != expectedSize || expectedSize > MAX_CONTENT_BYTES ||
        !zip.findData(entry, &offset)) {
        return false;
    }
    const int start = out.getSize();
    const bool whole = entry.method == METHOD_STORED     ? zip.copy(entry, offset, out)
                       : entry.method == METHOD_DEFLATED ? zip.inflateTo(entry, offset, out)
                                                         : false;
    const int count = out.getSize() - start;
    return whole && count == expectedSize &&
           crc32(0, out.data() + start, static_cast<uInt>(count)) == entry.checksum;
}
