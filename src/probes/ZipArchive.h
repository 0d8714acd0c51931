#pragma once

#include "classfile/Utf8View.h"
#include "core/ground/ZVector.h"

#include <minizip/unzip.h>

// ZipSource: the bytes of an archive, with a position.
struct ZipSource {
    int fd;
    const unsigned char* memory; // null for a file
    long size;
    long position;
    // The directory is read byte by byte: what was read ahead of a file.
    long aheadStart = 0;
    long aheadCount = 0;
    unsigned char ahead[4096] = {};
};

// ZipArchive: the entries of a zip or jar file, read by minizip. The file may be anything, and may
// change while it is read: what contradicts itself is not there.
class ZipArchive {
public:
    explicit ZipArchive(const ZString& path);
    // An archive in memory that stays as it is.
    ZipArchive(const unsigned char* bytes, long count);
    ~ZipArchive();
    ZipArchive(const ZipArchive&) = delete;
    ZipArchive& operator=(const ZipArchive&) = delete;

    // The directory could be read. If not, there are no entries.
    bool isOpen() const { return archive != nullptr; }
    int getEntryCount() const { return entries.getSize(); }
    // Valid as long as the archive.
    Utf8View getName(int entryIndex) const;
    // Of the contents, as the directory tells it.
    long getSize(int entryIndex) const { return entries[entryIndex].size; }

private:
    friend bool unzipEntryToVector(const ZipArchive& zip, long expectedSize, int entryIndex,
                                   ZVector<unsigned char>& out);
    struct Entry {
        int name; // offset in the names
        int nameLength;
        long size;
        unz64_file_pos place;
    };

    void open();
    bool readEntries();
    bool readTo(const Entry& entry, ZVector<unsigned char>& out) const;

    ZipSource source;
    unzFile archive; // null if the file is none
    ZVector<char> names;
    ZVector<Entry> entries;
};

// Appends the contents of an entry. False if they cannot be had whole, or are not of the expected
// size; what was appended by then means nothing.
bool unzipEntryToVector(const ZipArchive& zip, long expectedSize, int entryIndex,
                        ZVector<unsigned char>& out);
