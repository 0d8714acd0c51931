// Progress of long steps over a heap: a bar with an estimate of the time left, on a terminal only.
#pragma once

#include "client/console/Console.h"
#include "offline/AnalysisProgress.h"

#include <chrono>
#include <optional>
#include <string>

namespace vdk {

class HeapProgress : public AnalysisProgress {
public:
    explicit HeapProgress(Console& console) : console(console) {}

    // False once the user has pressed Ctrl-C.
    bool proceed(const char* phase, long done, long total) override;

private:
    Console& console;
    std::optional<ProgressBar> bar; // of the phase
    std::string phase;
    std::chrono::steady_clock::time_point phaseStart;
    std::chrono::steady_clock::time_point lastShown;
};

} // namespace vdk
