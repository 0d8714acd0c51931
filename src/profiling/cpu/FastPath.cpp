#include "profiling/cpu/FastPath.h"

#include "platform/Platform.h"

namespace {

const int TRIES_BEFORE_SLEEP = 1000;
const unsigned SLEEP_MICROSECONDS = 50;

} // namespace

void FastPath::shut() {
    for (int i = 1;; i++) {
        int expected = OPEN;
        if (state.compare_exchange_strong(expected, SHUT, std::memory_order_acquire) ||
            expected == SHUT) {
            return;
        }
        // It stays inside for long only if the system has taken its core away.
        if (i % TRIES_BEFORE_SLEEP == 0) {
            Platform::sleepMicroseconds(SLEEP_MICROSECONDS);
        }
    }
}
