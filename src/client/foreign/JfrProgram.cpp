#include "client/foreign/JfrProgram.h"

#include "client/console/Errors.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace vdk {

namespace {

// 17 of JAVA_VERSION="17.0.21"; 0 if the folder has no JDK with the program.
int releaseOf(const std::string& home) {
    if (access((home + "/bin/jfr").c_str(), X_OK) != 0) {
        return 0;
    }
    const char Key[] = "JAVA_VERSION=\"";
    std::ifstream in(home + "/release");
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, strlen(Key), Key) == 0) {
            return std::max(1, atoi(line.c_str() + strlen(Key)));
        }
    }
    return 1;
}

// The latest one reads the recordings of all before it.
std::string findProgram() {
    std::vector<std::string> homes;
    if (const char* home = getenv("JAVA_HOME")) {
        homes.emplace_back(home);
    }
    const std::string folder = "/usr/lib/jvm/";
    if (DIR* const listing = opendir(folder.c_str())) {
        while (const dirent* const entry = readdir(listing)) {
            if (entry->d_name[0] != '.') {
                homes.push_back(folder + entry->d_name);
            }
        }
        closedir(listing);
    }
    std::sort(homes.begin(), homes.end());
    std::string best;
    int bestRelease = 0;
    for (const std::string& home : homes) {
        const int release = releaseOf(home);
        if (release > bestRelease) {
            best = home + "/bin/jfr";
            bestRelease = release;
        }
    }
    return best;
}

} // namespace

JfrProgram::JfrProgram(std::vector<std::string> arguments) : program(findProgram()) {
    int ends[2];
    if (program.empty() || pipe2(ends, O_CLOEXEC) != 0) {
        throw ClientError(ExitCode::CannotRun, "foreign.jfr",
                          "flight recordings are read by the program jfr of a JDK, and none is "
                          "found",
                          "set JAVA_HOME to the folder of a JDK");
    }
    arguments.insert(arguments.begin(), program);
    std::vector<char*> words;
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int error =
        posix_spawn(&child, program.c_str(), &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    out = error == 0 ? fdopen(ends[0], "r") : nullptr;
    if (out == nullptr) {
        close(ends[0]);
        throw ClientError(ExitCode::CannotRun, "foreign.jfr",
                          "cannot start " + program + ": " + strerror(error));
    }
}

JfrProgram::~JfrProgram() {
    await();
}

int JfrProgram::await() {
    if (out == nullptr) {
        return 0;
    }
    fclose(out); // one that still writes ends by that
    out = nullptr;
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace vdk
