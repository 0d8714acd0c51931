#include "core/jvm/EventGate.h"

#include "platform/Platform.h"

#include <atomic>

namespace {

constexpr int LOOK_AGAIN_MS = 1;
// A thread that a debugger suspended inside a handler may not come back at all.
constexpr int LONGEST_WAIT_MS = 10000;

std::atomic<int> ourHandlersAtWork{0};
std::atomic<bool> ourIsClosed{false};

} // namespace

// A handler counts itself and then looks, close() closes and then counts: one of the two sees the
// other.
EventGate::EventGate() {
    ourHandlersAtWork++;
    letIn = !ourIsClosed;
}

EventGate::~EventGate() {
    ourHandlersAtWork--;
}

void EventGate::close() {
    ourIsClosed = true;
    for (int ms = 0; ourHandlersAtWork > 0 && ms < LONGEST_WAIT_MS; ms += LOOK_AGAIN_MS) {
        Platform::sleepMicroseconds(LOOK_AGAIN_MS * 1000);
    }
}

void EventGate::open() {
    ourIsClosed = false;
}
