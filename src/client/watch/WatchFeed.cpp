#include "client/watch/WatchFeed.h"

#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <algorithm>
#include <csignal>
#include <iterator>

namespace vdk {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds NoPause(0);
// Where a read brought so many calls, the next one waits no longer than this.
constexpr size_t ManyOfRead = 100;
constexpr milliseconds ShortPause(10);

milliseconds untilNext(WatchFeed::Clock::time_point next) {
    return std::chrono::ceil<milliseconds>(next - WatchFeed::Clock::now());
}

// Signals are for the thread that prints, whose waits they end.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &former);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t former;
};

} // namespace

WatchFeed::WatchFeed(WatchClient& client, milliseconds interval)
    : client(client), interval(interval) {
    kept.at = Clock::now();
    const SignalsBlocked blocked;
    thread = std::thread([this] { work(); });
}

WatchFeed::~WatchFeed() {
    stopReading();
    if (ended) {
        return;
    }
    try {
        forgetInterrupt();
        client.stop();
    } catch (const ClientError&) {
        // The JVM may be gone; else the agent ends what nobody reads.
    }
}

void WatchFeed::stopReading() {
    stopping.wake();
    if (thread.joinable()) {
        thread.join();
    }
}

void WatchFeed::work() {
    try {
        readOn();
    } catch (...) {
        const std::lock_guard<std::mutex> guard(lock);
        failure = std::current_exception();
    }
    arrived.wake();
}

void WatchFeed::readOn() {
    Clock::time_point lastRead = Clock::now();
    Clock::time_point next = lastRead + interval;
    while (true) {
        const Clock::time_point begin = Clock::now();
        WatchNews news;
        try {
            news = client.read(MostOfRead);
        } catch (const ClientError& e) {
            if (e.word != "agent.error") {
                throw;
            }
            const auto rest = std::chrono::duration_cast<milliseconds>(begin - lastRead).count();
            throw ClientError(
                ExitCode::AgentFailed, "watch.lost",
                "the JVM has ended the watch: " +
                    (rest >= WatchClient::LeaseMs
                         ? "nobody read it for " + formatLimit(int(rest / 1000) * 1000)
                         : std::string(e.what())),
                "it is kept while vdk runs; start it again");
        }
        lastRead = Clock::now();
        const bool last = news.complete && news.waiting == 0;
        const bool hurries = news.waiting > 0 || news.calls.size() >= ManyOfRead;
        // What waits may not be printed yet.
        const milliseconds pause = news.waiting > 0 && !news.calls.empty() ? NoPause
                                   : hurries                               ? ShortPause
                                                                           : untilNext(next);
        keep(std::move(news));
        if (last || stopping.wait(pause)) {
            return;
        }
        next = std::max(next + (hurries ? NoPause : interval), begin);
    }
}

void WatchFeed::keep(WatchNews news) {
    {
        const std::lock_guard<std::mutex> guard(lock);
        kept.totals = news.totals;
        kept.complete = news.complete;
        kept.waiting = news.waiting;
        kept.last = news.complete && news.waiting == 0;
        kept.methods = std::move(news.methods);
        kept.at = Clock::now();
        if (kept.calls.size() + news.calls.size() > MostKept) {
            kept.lost += int64_t(news.calls.size());
        } else {
            kept.calls.insert(kept.calls.end(), std::make_move_iterator(news.calls.begin()),
                              std::make_move_iterator(news.calls.end()));
        }
        fresh = true;
    }
    arrived.wake();
}

bool WatchFeed::take(News& news, milliseconds longest) {
    arrived.wait(longest);
    arrived.reset();
    const std::lock_guard<std::mutex> guard(lock);
    if (fresh) {
        fresh = false;
        std::vector<WatchedCall> calls = std::move(kept.calls);
        kept.calls.clear();
        news = kept;
        news.calls = std::move(calls);
        return true;
    }
    // What a signal has ended is read on by finish().
    if (failure && !isInterrupted()) {
        ended = true;
        std::rethrow_exception(failure);
    }
    return false;
}

WatchFeed::News WatchFeed::finish() {
    stopReading();
    forgetInterrupt();
    if (!kept.last) {
        keep(client.read(MostOfRead));
    }
    client.stop();
    ended = true;
    return kept;
}

} // namespace vdk
