#include "client/console/Screen.h"

#include "client/console/Signals.h"

#include <chrono>
#include <poll.h>
#include <unistd.h>

namespace vdk {

Screen::Screen(Console& console, bool wanted)
    : console(console), on(wanted && console.outIsTerminal) {
    if (!on) {
        return;
    }
    console.out << "\033[?1049h\033[?25l" << std::flush;
    // Only the terminal's foreground process may read its keys.
    keys = tcgetattr(STDIN_FILENO, &former) == 0 && tcgetpgrp(STDIN_FILENO) == getpgrp();
    if (keys) {
        termios single = former;
        single.c_lflag &= ~tcflag_t(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &single);
    }
}

Screen::~Screen() {
    if (keys) {
        tcsetattr(STDIN_FILENO, TCSANOW, &former);
    }
    if (on) {
        console.out << "\033[?25h\033[?1049l" << std::flush;
    }
}

bool Screen::waitForNext(long milliseconds) {
    using Clock = std::chrono::steady_clock;
    if (!keys) {
        return sleepUnlessInterrupted(milliseconds);
    }
    Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!isInterrupted()) {
        auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return true;
        }
        pollfd entry = {STDIN_FILENO, POLLIN, 0};
        if (poll(&entry, 1, int(left)) <= 0) {
            continue;
        }
        char key = 0;
        if (read(STDIN_FILENO, &key, 1) <= 0) {
            keys = false; // the terminal is gone; what was set there is, too
            return sleepUnlessInterrupted(left);
        }
        if (key == 'q' || key == 'Q') {
            return false;
        }
    }
    return false;
}

} // namespace vdk
