#include "client/attach/Hsperf.h"

#include "client/attach/ForeignFiles.h"
#include "client/console/Text.h"

#include <cstdint>
#include <fcntl.h>

namespace vdk {

// HsperfHeader {
//   u4 magic 0xcafec0c0 (always big-endian); u1 byteOrder (0 big, 1 little); u1 major; u1 minor;
//   u1 accessible; u4 used; u4 overflow; u8 modified; u4 entryOffset; u4 entryCount; }
// Entry {
//   u4 length; u4 nameOffset; u4 vectorLength; u1 type; u1 flags; u1 units; u1 variability;
//   u4 dataOffset; name, zero-terminated; data }
// Offsets within an entry count from its start; a vector of type 'B' is a text.
std::optional<std::map<std::string, std::string>> parseHsperf(std::string_view bytes) {
    auto byte = [&](size_t at) { return static_cast<unsigned char>(bytes[at]); };
    if (bytes.size() < 32 || byte(0) != 0xca || byte(1) != 0xfe || byte(2) != 0xc0 ||
        byte(3) != 0xc0 || byte(5) != 2) {
        return std::nullopt;
    }
    bool little = byte(4) == 1;
    auto word = [&](size_t at) {
        uint32_t value = 0;
        for (int i = 0; i < 4; i++) {
            value = value << 8 | byte(little ? at + size_t(3 - i) : at + size_t(i));
        }
        return value;
    };
    std::map<std::string, std::string> values;
    size_t entry = word(24);
    for (uint32_t left = word(28); left > 0 && entry + 20 <= bytes.size(); left--) {
        size_t length = word(entry);
        if (length < 20 || length > bytes.size() - entry) {
            break;
        }
        std::string_view body = bytes.substr(entry, length);
        size_t name = word(entry + 4), vector = word(entry + 8), data = word(entry + 16);
        char type = body[12];
        if (type == 'B' && name < length && data < length && vector <= length - data) {
            std::string_view nameText = body.substr(name);
            std::string_view text = body.substr(data, vector);
            values[std::string(nameText.substr(0, nameText.find('\0')))] =
                text.substr(0, text.find('\0'));
        }
        entry += length;
    }
    return values;
}

static PerformanceData readFolder(const Descriptor& temporary, const std::string& name, uid_t uid,
                                  int pid) {
    Descriptor folder(openat(temporary.get(), name.c_str(),
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (!folder || fstat(folder.get(), &info) != 0 || !belongsTo(info, uid) ||
        (info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return {};
    }
    std::string file = std::to_string(pid);
    auto bytes = readOwnedFile(folder, file, uid);
    auto values = bytes ? parseHsperf(*bytes) : std::nullopt;
    if (!values || fstatat(folder.get(), file.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return {};
    }
    // Folders of containers have numbers of their own, and the same ones.
    return {*values, info.st_ino ^ info.st_dev << 40};
}

PerformanceData readHsperf(const ProcFs& processes, const ProcessStatus& process,
                           const std::string& user) {
    static const std::string prefix = "hsperfdata_";
    Descriptor root = openRoot(processes, process.pid);
    int pid = process.namespacePid;
    if (!root) {
        // The process may not be looked into: if it sees the same files, it has one id only.
        root = Descriptor(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        pid = process.pid;
    }
    Descriptor temporary = openFolder(root, "/tmp");
    if (!temporary) {
        return {};
    }
    PerformanceData data = readFolder(temporary, prefix + user, process.euid, pid);
    eachEntry(temporary, [&](const char* name) {
        struct stat info;
        if (data.file == 0 && startsWith(name, prefix) &&
            fstatat(temporary.get(), name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
            info.st_uid == process.euid) {
            data = readFolder(temporary, name, process.euid, pid);
        }
        return data.file == 0;
    });
    return data;
}

} // namespace vdk
