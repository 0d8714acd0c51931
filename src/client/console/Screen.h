// The whole terminal for a view that refreshes: the alternate screen, and the key that ends it.
#pragma once

#include "client/console/Console.h"

#include <optional>

namespace vdk {

// While it lives, the terminal shows another screen without a cursor, and keys come at once; what
// was there before is back afterwards, also when a signal ends the program, and while one stops it
// (Ctrl-Z). One at a time. Without `wanted`, or where standard output is no terminal, it only
// waits.
class Screen {
public:
    Screen(Console& console, bool wanted);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    bool isOn() const { return on; }

    // Waits: the key that was pressed, 0 when the time is over, nothing at a signal and for q. Keys
    // are lower case letters.
    std::optional<char> waitForKey(long milliseconds);

    // To the upper left corner, and everything cleared.
    static constexpr char Home[] = "\033[H\033[J";

private:
    Console& console;
    bool on;
    bool keys = false; // standard input gives single keys
};

} // namespace vdk
