#include "runtime/RuntimeArchive.h"

#include "runtime/RuntimeArchiveParts.h"

#include <cstring>

extern "C" const unsigned char ourRuntimeArchive[];

#define PART_POINTER(offset, size) ourRuntimeArchive + (offset),
#define PART_SIZE(offset, size) (size),

const unsigned char* const ourCallbackJarParts[] = {VDK_RUNTIME_ARCHIVE_PARTS(PART_POINTER)};
const int ourCallbackJarPartSizes[] = {VDK_RUNTIME_ARCHIVE_PARTS(PART_SIZE)};
const int ourCallbackJarPartCount = sizeof ourCallbackJarPartSizes / sizeof(int);

// ZIP local file header | signature 4, version 2, flags 2, method 2, time 2, date 2, crc 4,
//                       | compressed size 4, size 4, name length 2, extra length 2, name, extra
static const unsigned LOCAL_HEADER_SIGNATURE = 0x04034b50;
static const unsigned CENTRAL_DIRECTORY_SIGNATURE = 0x02014b50;
static const int LOCAL_HEADER_SIZE = 30;
static const int FLAGS_OFFSET = 6;
static const int METHOD_OFFSET = 8;
static const int COMPRESSED_SIZE_OFFSET = 18;
static const int SIZE_OFFSET = 22;
static const int NAME_LENGTH_OFFSET = 26;
static const int EXTRA_LENGTH_OFFSET = 28;
// Flag: the sizes are not in the header but behind the content.
static const unsigned SIZES_FOLLOW = 8;

static const char CLASS_EXTENSION[] = ".class";
static const int CLASS_EXTENSION_LENGTH = sizeof CLASS_EXTENSION - 1;

RuntimeArchiveIterator::RuntimeArchiveIterator()
    : RuntimeArchiveIterator(ourRuntimeArchive, VDK_RUNTIME_ARCHIVE_SIZE) {}

RuntimeArchiveIterator::RuntimeArchiveIterator(const unsigned char* archiveBytes, int length)
    : archive(archiveBytes), archiveLength(length) {
    currentName[0] = 0;
}

bool RuntimeArchiveIterator::next() {
    while (nextEntry()) {
        if (currentName[0] != 0) {
            return true;
        }
    }
    return false;
}

// An entry that is no class leaves the name empty.
bool RuntimeArchiveIterator::nextEntry() {
    currentName[0] = 0;
    if (broken || archiveLength - position < 4) {
        return fail();
    }
    unsigned signature = readInt(position);
    if (signature == CENTRAL_DIRECTORY_SIGNATURE) {
        return false;
    }
    if (signature != LOCAL_HEADER_SIGNATURE || archiveLength - position < LOCAL_HEADER_SIZE) {
        return fail();
    }
    unsigned size = readInt(position + SIZE_OFFSET);
    int nameStart = position + LOCAL_HEADER_SIZE;
    int nameLength = static_cast<int>(readShort(position + NAME_LENGTH_OFFSET));
    int headLength = LOCAL_HEADER_SIZE + nameLength +
                     static_cast<int>(readShort(position + EXTRA_LENGTH_OFFSET));
    bool stored = readShort(position + METHOD_OFFSET) == 0 &&
                  (readShort(position + FLAGS_OFFSET) & SIZES_FOLLOW) == 0 &&
                  readInt(position + COMPRESSED_SIZE_OFFSET) == size;
    if (!stored || archiveLength - position < headLength || nameLength > MAX_NAME_LENGTH) {
        return fail();
    }
    contentStart = position + headLength;
    if (size > static_cast<unsigned>(archiveLength - contentStart)) {
        return fail();
    }
    contentLength = static_cast<int>(size);
    position = contentStart + contentLength;
    if (isClassName(nameStart, nameLength)) {
        int length = nameLength - CLASS_EXTENSION_LENGTH;
        memcpy(currentName, archive + nameStart, length);
        currentName[length] = 0;
    }
    return true;
}

bool RuntimeArchiveIterator::isClassName(int nameStart, int nameLength) const {
    return nameLength > CLASS_EXTENSION_LENGTH &&
           memcmp(archive + nameStart + nameLength - CLASS_EXTENSION_LENGTH, CLASS_EXTENSION,
                  CLASS_EXTENSION_LENGTH) == 0;
}

bool RuntimeArchiveIterator::fail() {
    broken = true;
    contentLength = 0;
    return false;
}

unsigned RuntimeArchiveIterator::readShort(int offset) const {
    return archive[offset] | archive[offset + 1] << 8;
}

unsigned RuntimeArchiveIterator::readInt(int offset) const {
    return readShort(offset) | readShort(offset + 2) << 16;
}
