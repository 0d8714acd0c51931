#pragma once

#include <cstdint>
#include <string>

// Inflates a gzip file of one or many members. JVMs write a dump as a run of members of about
// 1 MiB of contents each, so that several threads can deflate.
class GzipInflater {
public:
    // True if the bytes begin as a gzip member does (RFC 1952).
    static bool isGzip(const uint8_t* bytes, uint64_t length);

    // Appends the contents of all members to the file of descriptor and returns their size. A
    // damaged or cut file is inflated up to the damage, which is told in problem. Throws
    // HeapReadError if the contents can't be written.
    static uint64_t inflateToFile(const uint8_t* bytes, uint64_t length, int descriptor,
                                  std::string& problem);
};
