#include "client/record/RecordProgram.h"

#include "client/attach/AgentLibraryFile.h"
#include "client/attach/Launch.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vdk {

namespace {

const char SnapshotName[] = "exit.snapshot";

std::string makeFolder() {
    std::string name = ownPrivateDirectory() + "/record-XXXXXX";
    if (!mkdtemp(name.data())) {
        throw ClientError(ExitCode::CannotWrite, "tmpdir",
                          "cannot create " + name + ": " + strerror(errno));
    }
    return name;
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    DIR* listing = opendir(folder.c_str());
    while (const dirent* entry = listing ? readdir(listing) : nullptr) {
        if (entry->d_name[0] != '.') {
            names.push_back(folder + "/" + entry->d_name);
        }
    }
    if (listing) {
        closedir(listing);
    }
    return names;
}

// Tells by a pipe, which closes when the program has begun, why it could not be started.
pid_t startProgram(const Launch& launch) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw ClientError(ExitCode::CannotRun, "run.exec",
                          std::string("cannot make a pipe: ") + strerror(errno));
    }
    const pid_t child = fork();
    if (child == 0) {
        restoreSignalHandlers();
        execute(launch);
        const int error = errno;
        const ssize_t written = write(ends[1], &error, sizeof(error));
        _exit(written == sizeof(error) ? 127 : 126);
    }
    close(ends[1]);
    int error = child < 0 ? errno : 0;
    if (child >= 0) {
        ssize_t got;
        do {
            got = read(ends[0], &error, sizeof(error));
        } while (got < 0 && errno == EINTR);
    }
    close(ends[0]);
    if (error != 0) {
        if (child > 0) {
            waitpid(child, nullptr, 0);
        }
        throw ClientError(ExitCode::CannotRun, "run.exec",
                          "cannot run " + launch.command.front() + ": " + strerror(error));
    }
    return child;
}

} // namespace

RecordedProgram::RecordedProgram(const std::vector<std::string>& command,
                                 const std::vector<std::string>& options,
                                 AgentOptionChoices choices, const std::string& agentLibrary)
    : folder(makeFolder()) {
    try {
        choices.tmpDir = ownPrivateDirectory();
        choices.exitSnapshot = folder + "/" + SnapshotName;
        choices.tellSnapshot = false;
        const std::string option =
            "-agentpath:" + agentLibrary + "=" + composeAgentOptions(options, choices);
        child = startProgram(makeLaunch(command, option));
    } catch (const ClientError&) {
        rmdir(folder.c_str());
        throw;
    }
}

RecordedProgram::~RecordedProgram() {
    for (const std::string& name : namesIn(folder)) {
        unlink(name.c_str());
    }
    rmdir(folder.c_str());
}

bool RecordedProgram::hasEnded() {
    int status = 0;
    if (!ended && waitpid(child, &status, WNOHANG) == child) {
        ended = true;
        code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return ended;
}

bool RecordedProgram::endsSoon() {
    for (int round = 0; round < 40 && !hasEnded(); round++) {
        sleepUnlessInterrupted(50);
    }
    return hasEnded();
}

void RecordedProgram::await() {
    while (!hasEnded()) {
        if (!sleepUnlessInterrupted(50)) {
            // From a terminal it has the signal already, and is on its way out.
            kill(child, SIGTERM);
            forgetInterrupt();
        }
    }
}

std::vector<std::string> RecordedProgram::snapshots() const {
    std::vector<std::pair<int64_t, std::string>> found;
    for (const std::string& name : namesIn(folder)) {
        struct stat info;
        if (endsWith(name, ".snapshot") && stat(name.c_str(), &info) == 0) {
            found.emplace_back(int64_t(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
                               name);
        }
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> names;
    for (const auto& [time, name] : found) {
        names.push_back(name);
    }
    return names;
}

} // namespace vdk
