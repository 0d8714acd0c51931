// A thread that does one job again and again for somebody who will not wait longer than he likes: a
// job that hangs is left alone until it is over.
#pragma once

#include "client/watch/WakeUp.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace vdk {

class Errand {
public:
    using Clock = std::chrono::steady_clock;

    // The job throws nothing. What it writes may be read while no job is under way.
    explicit Errand(std::function<void()> job);
    // Waits for the job that is under way.
    ~Errand();
    Errand(const Errand&) = delete;
    Errand& operator=(const Errand&) = delete;

    // Begins the job; false if it is under way.
    bool begin();
    // True once no job is under way, false if one still is at the deadline.
    bool await(Clock::time_point deadline);

private:
    void work();

    const std::function<void()> job;
    std::mutex mutex;
    std::condition_variable changed;
    bool isUnderWay = false;
    bool isOver = false;
    WakeUp idle;
    std::thread thread;
};

} // namespace vdk
