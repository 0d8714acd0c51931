#include "core/ground/ConfigFile.h"

#include "platform/Platform.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char CONFIG_DIRECTORY[] = "/.vdk/config/";
const mode_t PRIVATE_MODE = 0700;
const size_t CHUNK_BYTES = 8192;
// A configuration file is text that a person wrote; more than this is a mistake, such as a device.
const int MAX_CONFIG_BYTES = 64 * 1024 * 1024;
const int MAX_PRIVATE_BYTES = 64 * 1024;

} // namespace

ZString getUserHome() {
    char home[PATH_MAX];
    return Platform::userHome(home, sizeof home) ? ZString(home) : ZString("?");
}

void mkdirs(const ZString& path) {
    ZVectorSafe<ZString> pieces;
    path.split("/", pieces);
    ZString prefix(path.startsWith("/") ? "/" : "");
    for (int i = 0; i < pieces.getSize(); i++) {
        prefix.append(pieces[i]);
        mkdir(prefix.c_str(), PRIVATE_MODE);
        prefix.append("/");
    }
}

ZString makePrivateDirectory() {
    const ZString path = ZString("/tmp/vdk-") + longToString(geteuid());
    mkdir(path.c_str(), PRIVATE_MODE);
    struct stat info;
    const bool isOurs = lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) &&
                        info.st_uid == geteuid() && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return isOurs ? path : ZString();
}

bool readFile(const ZString& path, ZString* content) {
    FILE* file = fopen(path.c_str(), "re");
    if (file == nullptr) {
        return false;
    }
    ZString text;
    char chunk[CHUNK_BYTES];
    size_t count = 0;
    while ((count = fread(chunk, 1, sizeof chunk, file)) > 0 &&
           text.getLength() <= MAX_CONFIG_BYTES) {
        text.append(chunk, static_cast<int>(count));
    }
    const bool good = ferror(file) == 0 && text.getLength() <= MAX_CONFIG_BYTES;
    fclose(file);
    if (good) {
        *content = text;
    }
    return good;
}

bool readPrivateFile(const ZString& path, ZString* content) {
    // O_NONBLOCK: a pipe in the place of the file must not stop the start.
    const int descriptor = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return false;
    }
    struct stat info;
    bool good = fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) &&
                (info.st_uid == geteuid() || info.st_uid == 0) && info.st_size <= MAX_PRIVATE_BYTES;
    errno = 0;
    ZString text;
    char chunk[CHUNK_BYTES];
    ssize_t count = 0;
    while (good && (count = read(descriptor, chunk, sizeof chunk)) != 0) {
        good = (count > 0 || errno == EINTR) && text.getLength() <= MAX_PRIVATE_BYTES;
        if (count > 0) {
            text.append(chunk, static_cast<int>(count));
        }
    }
    close(descriptor);
    if (good) {
        *content = text;
    }
    return good;
}

ZString readConfigFromFile(const ZString& path, const char* defaultName, const char* fallback) {
    ZString content;
    const ZString file = path.isEmpty() ? getUserHome() + CONFIG_DIRECTORY + defaultName : path;
    return readFile(file, &content) ? content : ZString(fallback);
}
