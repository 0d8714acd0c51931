// The tables of `vdk monitor`: the calls of each method in a period, and in all.
#pragma once

#include "client/console/Console.h"
#include "client/watch/WatchFeed.h"

#include <map>
#include <string>
#include <vector>

namespace vdk {

class MonitorView {
public:
    MonitorView(Console& console, std::string pattern, int pid);

    // Shows what came since the moment that was shown before.
    void showPeriod(const WatchFeed::News& now);
    // Shows all since the start.
    void showSum(const WatchFeed::News& now);

private:
    using Clock = WatchFeed::Clock;

    void show(std::vector<MethodSums> methods, double seconds, bool ofAll);
    void write(const std::vector<MethodSums>& methods, double seconds, bool ofAll);

    Console& console;
    const std::string pattern;
    const int pid;
    const Clock::time_point start = Clock::now();
    Clock::time_point shownAt = start;
    std::map<std::string, MethodSums> shown; // by class, method and signature
};

} // namespace vdk
