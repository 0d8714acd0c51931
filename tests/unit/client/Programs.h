// The built programs and the JDKs of this machine.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <glob.h>
#include <string>
#include <sys/wait.h>
#include <vector>

// A file that the build leaves in the build folder, searched from this program's folder upward; ""
// if it was not built.
inline std::string builtFile(const std::string& name) {
    std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (int level = 0; level < 5; level++, folder = folder.parent_path()) {
        if (std::filesystem::exists(folder / name)) {
            return (folder / name).string();
        }
    }
    return "";
}

// Homes of the JDKs of a release.
inline std::vector<std::string> jdks(const std::string& release) {
    std::vector<std::string> homes;
    glob_t found = {};
    std::string pattern = "/usr/lib/jvm/*" + release + "*/bin/java";
    if (glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        for (size_t i = 0; i < found.gl_pathc; i++) {
            std::string home =
                std::filesystem::canonical(found.gl_pathv[i]).parent_path().parent_path();
            if (homes.empty() || homes.back() != home) {
                homes.push_back(home);
            }
        }
    }
    globfree(&found);
    return homes;
}

struct Result {
    int code;
    std::string out;
};

// Runs a shell command; standard error goes along with standard output if the command says so.
inline Result run(const std::string& command) {
    Result result;
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[4096];
    size_t count;
    while ((count = fread(buffer, 1, sizeof(buffer), pipe)) > 0) {
        result.out.append(buffer, count);
    }
    int status = pclose(pipe);
    result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}
