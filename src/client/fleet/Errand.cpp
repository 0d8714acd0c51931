#include "client/fleet/Errand.h"

#include <algorithm>
#include <csignal>

namespace vdk {

Errand::Errand(std::function<void()> job) : job(std::move(job)) {
    idle.wake();
    // Signals are for the thread that was there first.
    sigset_t all, former;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    thread = std::thread([this] { work(); });
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

Errand::~Errand() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        isOver = true;
    }
    changed.notify_all();
    thread.join();
}

bool Errand::begin() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (isUnderWay) {
            return false;
        }
        isUnderWay = true;
        idle.reset();
    }
    changed.notify_all();
    return true;
}

bool Errand::await(Clock::time_point deadline) {
    while (true) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const bool isIdle = idle.wait(std::chrono::milliseconds(std::max<int64_t>(left, 0)));
        if (isIdle || left <= 0) {
            // What the job has written is seen behind the lock that it has given back.
            const std::lock_guard<std::mutex> lock(mutex);
            return isIdle;
        }
    }
}

void Errand::work() {
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
        changed.wait(lock, [&] { return isUnderWay || isOver; });
        if (isOver) {
            return;
        }
        lock.unlock();
        job();
        lock.lock();
        isUnderWay = false;
        idle.wake();
    }
}

} // namespace vdk
