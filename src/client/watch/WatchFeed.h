// What a watch brings, read by a thread of its own: the agent keeps a watch only while somebody
// reads, and whoever prints may wait for a pager.
#pragma once

#include "client/watch/WakeUp.h"
#include "client/watch/WatchClient.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace vdk {

class WatchFeed {
public:
    using Clock = std::chrono::steady_clock;

    // Reads in such an interval, at once again while events wait. The watch has been started.
    WatchFeed(WatchClient& client, std::chrono::milliseconds interval);
    // Ends the watch if finish() was not reached, as far as that is still possible.
    ~WatchFeed();
    WatchFeed(const WatchFeed&) = delete;
    WatchFeed& operator=(const WatchFeed&) = delete;

    struct News : WatchNews {
        Clock::time_point at;
        int64_t lost = 0;  // calls that were read and not kept, as nobody took them, in all
        bool last = false; // no more will come
    };
    // Waits for the next read up to `longest`; false if none came. Throws what ended the reading:
    // ClientError "watch.lost" where the agent has ended the watch.
    bool take(News& news, std::chrono::milliseconds longest);

    // Reads what is left and ends the watch. A signal that came before is forgotten.
    News finish();

private:
    // Calls that wait to be printed.
    static constexpr size_t MostKept = 20000;
    static constexpr int MostOfRead = 1000;

    void work();
    void readOn();
    void keep(WatchNews news);
    void stopReading();

    WatchClient& client;
    const std::chrono::milliseconds interval;

    WakeUp stopping; // for the reading thread
    WakeUp arrived;  // for its owner

    std::mutex lock; // over the next three
    bool fresh = false;
    News kept;
    std::exception_ptr failure;

    bool ended = false; // the watch, or all hope to reach it; the owner's thread only
    std::thread thread;
};

} // namespace vdk
