#pragma once

#include <atomic>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// Runs body(task, worker) for each task from 0 to count - 1 on `workers` threads, the caller's
// being worker 0. Tasks are taken in ascending order. The first exception stops the others from
// taking further tasks and is thrown again here, when all have come to rest. `between` runs on the
// caller's thread after each of its tasks, with the number of tasks taken so far.
inline void runParallel(size_t count, int workers,
                        const std::function<void(size_t task, int worker)>& body,
                        const std::function<void(size_t taken)>& between) {
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    std::mutex failureLock;
    auto work = [&](int worker) {
        try {
            for (size_t task = next++; task < count; task = next++) {
                body(task, worker);
                if (worker == 0) {
                    between(next < count ? next.load() : count);
                }
            }
        } catch (...) {
            std::lock_guard<std::mutex> guard(failureLock);
            failure = failure ? failure : std::current_exception();
            next = count;
        }
    };
    std::vector<std::thread> threads;
    for (int worker = 1; worker < workers && static_cast<size_t>(worker) < count; worker++) {
        threads.emplace_back(work, worker);
    }
    work(0);
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
}
