// Calls as lines of text or JSON.
#pragma once

#include "client/console/Console.h"
#include "client/watch/WatchedCall.h"

#include <string>

namespace vdk {

// Of the objects that `vdk watch --json` prints, one a line; their field "event" tells them apart.
constexpr char WatchSchema[] = "vdk.watch/1";

// One call a line, `14:03:07.214 main shop.Cart.add("x", 3) => true 1.2 ms`, its stack below. On a
// terminal packages are left out and values cut until a line fits.
void printCall(Console& console, const WatchedCall& call);

// The object of a call, on a line of its own.
void writeCall(Console& console, const WatchedCall& call);

// A value on one line: what is unprintable stands as Java would write it ("\n", "\u001b").
std::string escaped(const std::string& text);

// "shop.Cart.add" or "Cart.add" for "com.shop.Cart.add", where that takes too many columns.
std::string withoutPackages(std::string name, size_t columns);

// "14:03:07.214", by the clock of this machine's time zone.
std::string timeOfDay(int64_t timeMs);

// "812 ns", "3.4 us", longer ones as elsewhere: watched methods may be short.
std::string shortDuration(int64_t ns);

// The frames of a stack, indented, the innermost first.
void printStack(Console& console, const std::vector<std::string>& stack);

} // namespace vdk
