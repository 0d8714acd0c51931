#include "client/heap/HeapProgress.h"

#include "client/console/Signals.h"

#include <algorithm>

namespace vdk {

namespace {

using Clock = std::chrono::steady_clock;

const std::chrono::milliseconds RefreshInterval(100);
const double SecondsBeforeEstimate = 0.3;

} // namespace

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
        bar.reset();
        bar.emplace(console, newPhase);
    } else if (now - lastShown < RefreshInterval && done < total) {
        return true;
    }
    lastShown = now;
    double elapsed = std::chrono::duration<double>(now - phaseStart).count();
    double left = -1;
    if (done > 0 && elapsed > SecondsBeforeEstimate) {
        left = elapsed * double(total - done) / double(done);
    }
    bar->show(int(std::clamp(done * 100 / std::max(total, 1L), 0L, 100L)),
              left < 0 ? "" : "about " + std::to_string(long(left + 0.99)) + " s left");
    return true;
}

} // namespace vdk
