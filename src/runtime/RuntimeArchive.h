#pragma once

// The agent's Java classes, carried as data: an ordinary ZIP of stored entries, in which a class
// comes behind its superclass and interfaces. Callback is the first entry, the manifest the last.

// The archive in parts of 10240 bytes and a last shorter one. The parts lie one behind the other.
extern const unsigned char* const ourCallbackJarParts[];
extern const int ourCallbackJarPartSizes[];
extern const int ourCallbackJarPartCount;

// The class file of com/vandrik/runtime/Callback, equal to its entry in the archive, with a zero
// behind it that the size doesn't count.
extern "C" const unsigned char ourCallbackBytecode[];
extern "C" const int ourCallbackBytecodeSize;

// Goes over the classes of an archive in the order of its entries:
//     RuntimeArchiveIterator classes;
//     while (classes.next()) { define(classes.name(), classes.bytes(), classes.length()); }
// Every offset is checked. An archive that isn't as the build makes it ends the walk early, and
// isBroken() then says so. Copies nothing but the name.
class RuntimeArchiveIterator {
public:
    // The archive of the library.
    RuntimeArchiveIterator();
    // Any other. The caller keeps the bytes alive.
    RuntimeArchiveIterator(const unsigned char* archive, int length);

    // Goes to the next class; false at the end.
    bool next();

    // Binary name without extension, such as com/vandrik/runtime/Core.
    const char* name() const { return currentName; }
    const unsigned char* bytes() const { return archive + contentStart; }
    int length() const { return contentLength; }

    // Meaningful once next() has given false.
    bool isBroken() const { return broken; }

private:
    static const int MAX_NAME_LENGTH = 255;

    bool nextEntry();
    bool isClassName(int nameStart, int nameLength) const;
    bool fail();
    unsigned readShort(int offset) const;
    unsigned readInt(int offset) const;

    const unsigned char* archive;
    int archiveLength;
    int position = 0;
    int contentStart = 0;
    int contentLength = 0;
    bool broken = false;
    char currentName[MAX_NAME_LENGTH + 1];
};
