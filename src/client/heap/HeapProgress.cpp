#include "client/heap/HeapProgress.h"

#include "client/console/Signals.h"

#include <algorithm>
#include <unistd.h>

namespace vdk {

namespace {

using Clock = std::chrono::steady_clock;

const std::chrono::milliseconds RefreshInterval(100);
const long BarWidth = 30;
const double SecondsBeforeEstimate = 0.3;

} // namespace

HeapProgress::~HeapProgress() {
    if (shownWidth > 0) {
        console.err << '\r' << std::string(shownWidth, ' ') << '\r' << std::flush;
    }
}

bool HeapProgress::proceed(const char* newPhase, long done, long total) {
    if (isInterrupted()) {
        return false;
    }
    if (!console.showsProgress()) {
        return true;
    }
    Clock::time_point now = Clock::now();
    if (phase != newPhase) {
        phase = newPhase;
        phaseStart = now;
    } else if (now - lastShown < RefreshInterval && done < total) {
        return true;
    }
    lastShown = now;
    double elapsed = std::chrono::duration<double>(now - phaseStart).count();
    double left = -1;
    if (done > 0 && elapsed > SecondsBeforeEstimate) {
        left = elapsed * double(total - done) / double(done);
    }
    show(std::clamp(done * 100 / std::max(total, 1L), 0L, 100L), left);
    return true;
}

void HeapProgress::show(long percent, double secondsLeft) {
    std::string bar(size_t(percent * BarWidth / 100), '#');
    bar.resize(BarWidth, '.');
    std::string line = "[" + bar + "] " + std::to_string(percent) + "% " + phase;
    if (secondsLeft >= 0) {
        line += ", about " + std::to_string(long(secondsLeft + 0.99)) + " s left";
    }
    // A line that wraps could not be written over.
    line.resize(std::min(line.size(), size_t(screenSize(STDERR_FILENO).columns - 1)));
    size_t width = line.size();
    line.resize(std::max(width, shownWidth), ' ');
    shownWidth = width;
    console.err << '\r' << line << std::flush;
}

} // namespace vdk
