#pragma once

#include "classfile/Utf8View.h"
#include "core/ground/ZVector.h"

// ZipArchive: a zip or jar file, as far as class files in it need: entries that are stored or
// deflated, found through the directory at its end, also the large one of many entries. The file
// may be anything, and may change while it is read: what contradicts itself is not there.
class ZipArchive {
public:
    explicit ZipArchive(const ZString& path);
    // An archive in memory that stays as it is.
    ZipArchive(const unsigned char* bytes, long count);
    ~ZipArchive();
    ZipArchive(const ZipArchive&) = delete;
    ZipArchive& operator=(const ZipArchive&) = delete;

    // The directory could be read. If not, there are no entries.
    bool isOpen() const { return opened; }
    int getEntryCount() const { return entries.getSize(); }
    // Valid as long as the archive.
    Utf8View getName(int entryIndex) const;
    // Of the contents, as the directory tells it.
    long getSize(int entryIndex) const { return entries[entryIndex].size; }

private:
    friend bool unzipEntryToVector(const ZipArchive& zip, long expectedSize, int entryIndex,
                                   ZVector<unsigned char>& out);
    struct Entry {
        int name; // offset in the directory
        int nameLength;
        int method;
        unsigned checksum;
        long packedSize;
        long size;
        long header; // offset of the local header in the file
    };
    struct Place {
        long start; // of the directory in the file
        long bytes;
        long base; // of the archive: something may stand before it
    };

    void open();
    bool readAt(long offset, void* buffer, int count) const;
    bool findDirectory(Place* place) const;
    bool findLargeDirectory(long endRecord, Place* place) const;
    bool readDirectory(const Place& place);
    bool findData(const Entry& entry, long* offset) const;
    bool copy(const Entry& entry, long offset, ZVector<unsigned char>& out) const;
    bool inflateTo(const Entry& entry, long offset, ZVector<unsigned char>& out) const;

    int fd;
    const unsigned char* memory; // null for a file
    long fileSize;
    bool opened;
    ZVector<unsigned char> directory;
    ZVector<Entry> entries;
};

// Appends the contents of an entry. False if they cannot be had whole, or are not of the expected
// size; what was appended by then means nothing.
bool unzipEntryToVector(const ZipArchive& zip, long expectedSize, int entryIndex,
                        ZVector<unsigned char>& out);
