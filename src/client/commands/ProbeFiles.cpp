#include "client/commands/ProbeFiles.h"

#include "client/console/Errors.h"
#include "client/console/InputFile.h"
#include "client/console/Text.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <minizip/unzip.h>
#include <system_error>

namespace vdk {

namespace {

namespace fs = std::filesystem;

constexpr uint64_t MostBytes = 64 << 20; // of one class

[[noreturn]] void failJar(const std::string& path, const std::string& what) {
    throw ClientError(ExitCode::BadInput, "probe.jar", path + ": " + what);
}

class Jar {
public:
    explicit Jar(const std::string& path) : path(path), file(unzOpen64(path.c_str())) {
        if (!file) {
            failJar(path, "it is no jar");
        }
    }
    ~Jar() { unzClose(file); }
    Jar(const Jar&) = delete;
    Jar& operator=(const Jar&) = delete;

    std::map<std::string, std::string> classes() {
        std::map<std::string, std::string> found;
        int outcome = unzGoToFirstFile(file);
        for (; outcome == UNZ_OK; outcome = unzGoToNextFile(file)) {
            char name[0x10000];
            unz_file_info64 info;
            if (unzGetCurrentFileInfo64(file, &info, name, sizeof name, nullptr, 0, nullptr, 0) !=
                UNZ_OK) {
                failJar(path, "its directory is damaged");
            }
            if (endsWith(name, ".class") && !endsWith(name, "module-info.class") &&
                !startsWith(name, "META-INF/")) {
                found[name] = readEntry(name, info.uncompressed_size);
            }
        }
        if (outcome != UNZ_END_OF_LIST_OF_FILE) {
            failJar(path, "its directory is damaged");
        }
        return found;
    }

private:
    std::string readEntry(const std::string& name, uint64_t size) {
        if (size > MostBytes || unzOpenCurrentFile(file) != UNZ_OK) {
            failJar(path, "cannot unpack " + printable(name));
        }
        std::string bytes(size_t(size), '\0');
        const int count = unzReadCurrentFile(file, bytes.data(), unsigned(bytes.size()));
        if (unzCloseCurrentFile(file) != UNZ_OK || count != int(bytes.size())) {
            failJar(path, "cannot unpack " + printable(name));
        }
        return bytes;
    }

    const std::string path;
    unzFile file;
};

std::map<std::string, std::string> classesOfFolder(const std::string& path) {
    std::map<std::string, std::string> found;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path)) {
        const std::string name = entry.path().string();
        if (entry.is_regular_file() && endsWith(name, ".class")) {
            found[name] = readWholeFile(name);
        }
    }
    return found;
}

} // namespace

bool namesProbeFile(const std::string& name) {
    std::error_code unknown;
    return name.find('/') != std::string::npos || endsWith(name, ".class") ||
           endsWith(name, ".jar") || fs::exists(name, unknown);
}

std::vector<std::string> readProbeFile(const std::string& path) {
    std::map<std::string, std::string> found;
    try {
        if (fs::is_directory(path)) {
            found = classesOfFolder(path);
        } else if (endsWith(path, ".class") || !fs::exists(path)) {
            found[path] = readWholeFile(path);
        } else {
            found = Jar(path).classes();
        }
    } catch (const fs::filesystem_error& e) {
        throw ClientError(ExitCode::Usage, "input.open", "cannot read " + path + ": " + e.what());
    }
    if (found.empty()) {
        failJar(path, "no class is in it");
    }
    std::vector<std::string> classes;
    for (auto& entry : found) {
        classes.push_back(std::move(entry.second));
    }
    return classes;
}

} // namespace vdk
