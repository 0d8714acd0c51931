#include "client/attach/TargetLibc.h"

#include "client/attach/ForeignFiles.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <cstdio>

namespace vdk {

namespace {

const size_t MaxMapBytes = 64 << 20;
const size_t MaxLibraryBytes = 32 << 20;

// Path of the mapped C library as the process sees it: "/lib64/libc.so.6", "/lib64/libc-2.17.so".
std::string mappedLibc(const ProcFs& processes, int pid) {
    std::string maps = readSmallFile(processes.path(pid, "maps"), MaxMapBytes).value_or("");
    for (const char* name : {"/libc.so.6", "/libc-2."}) {
        size_t found = maps.find(name);
        if (found == std::string::npos) {
            continue;
        }
        size_t line = maps.rfind('\n', found) + 1;
        size_t start = maps.find('/', line);
        return maps.substr(start, maps.find('\n', start) - start);
    }
    return {};
}

std::string shown(const GlibcVersion& version) {
    return std::to_string(version.major) + "." + std::to_string(version.minor);
}

} // namespace

std::optional<GlibcVersion> targetGlibc(const ProcFs& processes, int pid) {
    std::string mapped = mappedLibc(processes, pid);
    if (mapped.empty()) {
        return std::nullopt;
    }
    // The target's user may have put something else there since.
    Descriptor root = openRootOrOwn(processes, pid);
    std::string library = readPlainFile(root, mapped, MaxLibraryBytes).value_or("");
    // "GNU C Library (Debian GLIBC 2.36-9) stable release version 2.36."
    size_t banner = library.find("GNU C Library ");
    size_t number = banner == std::string::npos ? banner : library.find(" version ", banner);
    GlibcVersion version = {0, 0};
    if (number == std::string::npos ||
        sscanf(library.c_str() + number, " version %d.%d", &version.major, &version.minor) != 2) {
        return std::nullopt;
    }
    return version;
}

void checkTargetLibc(const ProcFs& processes, int pid) {
    if (processes.usesMusl(pid)) {
        throw ClientError(ExitCode::AttachRefused, "agent.libc",
                          "the target runs on musl, the agent library needs glibc");
    }
    auto found = targetGlibc(processes, pid);
    const GlibcVersion& floor = AGENT_GLIBC_FLOOR;
    if (!found || found->major > floor.major ||
        (found->major == floor.major && found->minor >= floor.minor)) {
        return;
    }
    throw ClientError(ExitCode::AttachRefused, "agent.glibc",
                      "the target runs on glibc " + shown(*found) + ", the agent library needs " +
                          shown(floor) + " or newer",
                      "run the program on a newer system or in a newer image");
}

} // namespace vdk
