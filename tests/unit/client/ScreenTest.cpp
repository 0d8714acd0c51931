// The terminal that a refreshing view has taken, given back on each way out.
#include "client/console/Screen.h"

#include "client/console/Signals.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

using namespace vdk;

namespace {

const std::string Take = "\033[?1049h\033[?25l";
const std::string Leave = "\033[?25h\033[?1049l";

struct Way {
    const char* name;
    int signal;
    int times;
};

[[noreturn]] void runView(const Way& way) {
    rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    installSignalHandlers();
    Console console(std::cout, std::cerr, true, true);
    {
        Screen screen(console, true);
        for (int i = 0; i < way.times; i++) {
            raise(way.signal);
        }
    }
    _exit(0);
}

constexpr int SettingsAreBack = 1, EndedInOrder = 2;

// The terminal's session: a view in it, and what is there when that has ended.
[[noreturn]] void runSession(const char* terminal, const Way& way) {
    setsid();
    int descriptor = open(terminal, O_RDWR);
    ioctl(descriptor, TIOCSCTTY, 0);
    dup2(descriptor, STDIN_FILENO);
    dup2(descriptor, STDOUT_FILENO);
    pid_t view = fork();
    if (view == 0) {
        runView(way);
    }
    int status = 0;
    waitpid(view, &status, 0);
    termios settings = {};
    bool back = tcgetattr(STDIN_FILENO, &settings) == 0 && (settings.c_lflag & ICANON) != 0 &&
                (settings.c_lflag & ECHO) != 0;
    _exit((back ? SettingsAreBack : 0) |
          (WIFEXITED(status) && WEXITSTATUS(status) == 0 ? EndedInOrder : 0));
}

struct Outcome {
    int result;
    std::string text; // on the terminal
};

std::string readAll(int descriptor) {
    std::string text;
    char buffer[256];
    for (ssize_t count; (count = read(descriptor, buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, size_t(count));
    }
    return text;
}

Outcome showView(const Way& way) {
    int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_TRUE(terminal >= 0 && grantpt(terminal) == 0 && unlockpt(terminal) == 0);
    const std::string name = ptsname(terminal);
    pid_t session = fork();
    if (session == 0) {
        runSession(name.c_str(), way);
    }
    int status = 0;
    waitpid(session, &status, 0); // what a view writes is short and waits in the terminal
    Outcome outcome = {WEXITSTATUS(status), readAll(terminal)};
    close(terminal);
    return outcome;
}

} // namespace

TEST(Screen, terminalIsGivenBackOnEachWayOut) {
    static const Way ways[] = {
        {"its end", 0, 0},       {"one Ctrl-C", SIGINT, 1}, {"two", SIGINT, 2},
        {"SIGTERM", SIGTERM, 2}, {"SIGHUP", SIGHUP, 2},     {"Ctrl-\\", SIGQUIT, 1},
        {"a crash", SIGABRT, 1},
    };
    for (const Way& way : ways) {
        Outcome outcome = showView(way);
        bool orderly = way.times < 2 && way.signal != SIGQUIT && way.signal != SIGABRT;
        EXPECT_EQ(outcome.result, SettingsAreBack | (orderly ? EndedInOrder : 0)) << way.name;
        ASSERT_GE(outcome.text.size(), Leave.size()) << way.name;
        EXPECT_EQ(outcome.text.substr(outcome.text.size() - Leave.size()), Leave) << way.name;
    }
    // Ctrl-Z: in a session of its own nothing stops, but all that surrounds the stop is done.
    EXPECT_EQ(showView({"a stop", SIGTSTP, 1}).text, Take + Leave + Take + Leave);
}
