#include "client/console/Screen.h"

#include "client/console/Signals.h"

#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace vdk {

// What signal handlers need to give the terminal back; the calls they make are those that may be
// made there.
static termios ourFormer = {}, ourSingle = {};
static volatile sig_atomic_t ourKeys = 0;

static void writeAll(const char* text, size_t length) {
    while (length > 0) {
        ssize_t count = write(STDOUT_FILENO, text, length);
        if (count <= 0 && errno != EINTR) {
            return; // the terminal is gone
        }
        text += count > 0 ? count : 0;
        length -= count > 0 ? size_t(count) : 0;
    }
}

static void takeTerminal() {
    static const char text[] = "\033[?1049h\033[?25l";
    writeAll(text, sizeof(text) - 1);
    if (ourKeys) {
        tcsetattr(STDIN_FILENO, TCSANOW, &ourSingle);
    }
}

static void giveTerminalBack() {
    static const char text[] = "\033[?25h\033[?1049l";
    if (ourKeys) {
        tcsetattr(STDIN_FILENO, TCSANOW, &ourFormer);
    }
    writeAll(text, sizeof(text) - 1);
}

static void handle(int number, void (*handler)(int), struct sigaction* former) {
    struct sigaction action = {};
    action.sa_handler = handler;
    sigaction(number, &action, former);
}

// The signal then does what it does by default: with this handler it has to be sent once more.
static void onSignal(int number) {
    int error = errno;
    giveTerminalBack();
    handle(number, SIG_DFL, nullptr);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, number);
    sigprocmask(SIG_UNBLOCK, &one, nullptr);
    raise(number);
    // Here only after a stop, when somebody has let the program go on.
    handle(number, onSignal, nullptr);
    takeTerminal();
    errno = error;
}

// Those that stop or end the program and that are not waited for in an orderly way.
static const int ourSignals[] = {SIGTSTP, SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};
static const size_t ourSignalCount = sizeof(ourSignals) / sizeof(ourSignals[0]);
static struct sigaction ourFormerActions[ourSignalCount];

Screen::Screen(Console& console, bool wanted)
    : console(console), on(wanted && console.outIsTerminal) {
    if (!on) {
        return;
    }
    console.out << std::flush;
    // Only the terminal's foreground process may read its keys.
    keys = tcgetattr(STDIN_FILENO, &ourFormer) == 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
    ourKeys = keys;
    ourSingle = ourFormer;
    ourSingle.c_lflag &= ~tcflag_t(ICANON | ECHO);
    atSecondSignal(giveTerminalBack);
    for (size_t i = 0; i < ourSignalCount; i++) {
        handle(ourSignals[i], onSignal, &ourFormerActions[i]);
        if (ourFormerActions[i].sa_handler == SIG_IGN) {
            sigaction(ourSignals[i], &ourFormerActions[i], nullptr);
        }
    }
    takeTerminal();
}

Screen::~Screen() {
    if (!on) {
        return;
    }
    console.out << std::flush;
    giveTerminalBack();
    atSecondSignal(nullptr);
    for (size_t i = 0; i < ourSignalCount; i++) {
        sigaction(ourSignals[i], &ourFormerActions[i], nullptr);
    }
}

// Nothing at a signal.
static std::optional<char> waitWithoutKeys(long milliseconds) {
    return sleepUnlessInterrupted(milliseconds) ? std::optional<char>(0) : std::nullopt;
}

std::optional<char> Screen::waitForKey(long milliseconds) {
    using Clock = std::chrono::steady_clock;
    if (!keys) {
        return waitWithoutKeys(milliseconds);
    }
    Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!isInterrupted()) {
        auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return 0;
        }
        pollfd entry = {STDIN_FILENO, POLLIN, 0};
        if (poll(&entry, 1, int(left)) <= 0) {
            continue;
        }
        char key = 0;
        if (read(STDIN_FILENO, &key, 1) <= 0) {
            keys = false; // the terminal is gone; what was set there is, too
            ourKeys = 0;
            return waitWithoutKeys(left);
        }
        if (key == '\033') {
            char rest[32]; // an arrow or a key of its kind sends letters as well
            if (poll(&entry, 1, 0) > 0 && read(STDIN_FILENO, rest, sizeof(rest)) <= 0) {
                continue;
            }
        }
        key = char(tolower(static_cast<unsigned char>(key)));
        if (key >= 'a' && key <= 'z') {
            return key == 'q' ? std::nullopt : std::optional(key);
        }
    }
    return std::nullopt;
}

} // namespace vdk
