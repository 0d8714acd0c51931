// A thread's CPU time in user space, beside the system call that it stands for and the clock that
// it cannot be cheaper than.
#include "platform/Platform.h"
#include "platform/ThreadClock.h"

#include <benchmark/benchmark.h>

namespace {

void systemCall(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(Platform::currentThreadCPUTimeNs());
    }
}

void userSpace(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(ThreadClock::readNs());
    }
    state.SetLabel(ThreadClock::isInUserSpace() ? "" : "not available here");
}

void monotonicClock(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(Platform::monotonicTimeNs());
    }
}

} // namespace

BENCHMARK(systemCall)->ThreadRange(1, 4);
BENCHMARK(userSpace)->ThreadRange(1, 4);
BENCHMARK(monotonicClock);
