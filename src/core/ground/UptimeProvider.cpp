#include "core/ground/UptimeProvider.h"

#include "core/ground/Logger.h"
#include "platform/Platform.h"
#include "platform/ThreadClock.h"

#include <atomic>
#include <sys/time.h>
#include <time.h>

namespace {

constexpr long NS_PER_SECOND = 1000000000L;
constexpr long MAX_STEP_NS = 60 * NS_PER_SECOND;

// The ever-growing time is raw + ourOffsetNs; the offset changes only when a step is bounded.
std::atomic<long> ourLastRawNs{0};
std::atomic<long> ourOffsetNs{0};

// 0 not probed, 1 the monotonic clock works, 2 it does not.
std::atomic<int> ourClockState{0};

bool readMonotonicClock(long* raw) {
    timespec now;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        return false;
    }
    *raw = now.tv_sec * NS_PER_SECOND + now.tv_nsec;
    return true;
}

} // namespace

long getEverGrowingTimeNs(long raw, bool shared) {
    long last = ourLastRawNs.load(std::memory_order_relaxed);
    for (;;) {
        if (last == 0) {
            if (ourLastRawNs.compare_exchange_weak(last, raw, std::memory_order_relaxed)) {
                ourOffsetNs.store(-raw, std::memory_order_relaxed);
                return 0;
            }
            continue;
        }
        const long next = shared && raw <= last && last - raw < MAX_STEP_NS ? last + 1 : raw;
        const long delta = next - last;
        const long step = delta < 2 ? 1 : delta < MAX_STEP_NS ? delta : MAX_STEP_NS;
        if (ourLastRawNs.compare_exchange_weak(last, next, std::memory_order_relaxed)) {
            const long change = step - delta;
            const long offset =
                change == 0 ? ourOffsetNs.load(std::memory_order_relaxed)
                            : ourOffsetNs.fetch_add(change, std::memory_order_relaxed) + change;
            return next + offset;
        }
    }
}

long getTimeNs() {
    long raw = 0;
    int state = ourClockState.load(std::memory_order_relaxed);
    if (state == 0) {
        state = readMonotonicClock(&raw) ? 1 : 2;
        ourClockState.store(state, std::memory_order_relaxed);
    }
    if (state == 1 && readMonotonicClock(&raw)) {
        return getEverGrowingTimeNs(raw, true);
    }
    timeval now;
    gettimeofday(&now, nullptr);
    return getEverGrowingTimeNs(now.tv_sec * NS_PER_SECOND + now.tv_usec * 1000L);
}

long getProcessCPUTimeNs() {
    return Platform::processCPUTimeNs();
}

long getThreadCPUTimeNs(long nativeThreadID) {
    const long time = Platform::threadCPUTimeNs(nativeThreadID);
    return time < 0 ? 0 : time;
}

long getCurrentThreadCPUTimeNs() {
    return ThreadClock::readNs();
}

UptimeProvider::UptimeProvider() : startNs(getTimeNs()) {}

long UptimeProvider::getUptimeNs() const {
    return getTimeNs() - __atomic_load_n(&startNs, __ATOMIC_RELAXED);
}

long UptimeProvider::getUptimeMs() const {
    return getUptimeNs() / 1000000;
}

void UptimeProvider::correctUptimeMs(long etalonMs) {
    const long difference = etalonMs - getUptimeMs();
    if (difference > 0) {
        __atomic_store_n(&startNs, startNs - difference * 1000000, __ATOMIC_RELAXED);
    }
    if (difference != 0) {
        ZString text("Correcting uptime: etalon=");
        text.appendLong(etalonMs);
        text.append("ms diff=");
        text.appendLong(difference);
        Logger::message(text);
    }
}

UptimeProvider& ourUptimeProvider = *new UptimeProvider();
