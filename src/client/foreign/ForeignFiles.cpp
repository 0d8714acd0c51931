#include "client/foreign/ForeignFiles.h"

#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <array>
#include <fstream>
#include <sstream>
#include <zlib.h>

namespace vdk {

namespace {

const size_t MostBytes = size_t(2) << 30; // of an inflated profile

bool endsWithAny(const std::string& path, std::initializer_list<const char*> endings) {
    for (const char* ending : endings) {
        if (endsWith(path, ending)) {
            return true;
        }
    }
    return false;
}

// The contents of a file, inflated where it is in gzip form.
std::string inflated(const std::string& path) {
    gzFile file = gzopen(path.c_str(), "rb");
    std::string content;
    std::array<char, 1 << 16> buffer;
    int count = 0;
    while (file && content.size() <= MostBytes &&
           (count = gzread(file, buffer.data(), unsigned(buffer.size()))) > 0) {
        content.append(buffer.data(), size_t(count));
    }
    const bool isWhole = file && gzclose(file) == Z_OK && count == 0;
    if (!isWhole) {
        throw ClientError(ExitCode::BadInput, "foreign.data",
                          path + (content.size() > MostBytes ? " inflates to more than 2 GB"
                                                             : " is damaged or cut"));
    }
    return content;
}

} // namespace

std::string headOf(const std::string& path) {
    std::string head(16, 0);
    gzFile file = gzopen(path.c_str(), "rb");
    const int count = file ? gzread(file, head.data(), unsigned(head.size())) : 0;
    if (file) {
        gzclose(file);
    }
    head.resize(size_t(std::max(count, 0)));
    return head;
}

std::unique_ptr<DB> readForeignFile(const std::string& path) {
    if (endsWithAny(path, {".collapsed", ".folded"})) {
        std::ifstream in(path);
        return readCollapsed(path, in);
    }
    if (endsWithAny(path, {".collapsed.gz", ".folded.gz"})) {
        std::istringstream in(inflated(path));
        return readCollapsed(path, in);
    }
    char first[4] = {};
    std::ifstream(path, std::ios::binary).read(first, sizeof(first));
    const std::string magic(first, sizeof(first));
    if (magic == std::string("FLR\0", 4)) {
        return readFlightRecording(path);
    }
    const bool isPacked = startsWith(magic, "\x1f\x8b");
    if (endsWithAny(path, {".pb", ".pprof", ".pb.gz"}) ||
        (isPacked && !startsWith(headOf(path), "JAVA PROFILE"))) {
        return readPprof(path, inflated(path));
    }
    return nullptr;
}

} // namespace vdk
