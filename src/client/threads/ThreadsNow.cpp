#include "client/threads/ThreadsNow.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace vdk {

namespace {

using Threads = std::vector<ThreadNow>;

void findBlockers(Threads& threads) {
    std::map<std::string, int> holders; // by address
    for (size_t i = 0; i < threads.size(); i++) {
        for (const HotSpotLock& lock : threads[i].thread.held) {
            holders[lock.address] = int(i);
        }
    }
    for (size_t i = 0; i < threads.size(); i++) {
        const auto holder = holders.find(threads[i].thread.wanted.address);
        if (holder != holders.end() && holder->second != int(i)) {
            threads[i].blocker = holder->second;
        }
    }
}

// Each thread of a chain adds one to all behind it; who meets itself is in a deadlock.
void followChains(Threads& threads) {
    for (size_t i = 0; i < threads.size(); i++) {
        for (const int at : chainOf(threads, int(i))) {
            ThreadNow& behind = threads[size_t(at)];
            if (at != int(i)) {
                behind.blocked++;
            }
            threads[i].isDeadlocked |= behind.blocker == int(i);
        }
    }
}

} // namespace

std::string poolOf(const std::string& name) {
    std::string pool;
    for (const char c : name) {
        const bool isDigit = isdigit(static_cast<unsigned char>(c)) != 0;
        if (!isDigit) {
            pool += c;
        } else if (pool.empty() || pool.back() != '*') {
            pool += '*';
        }
    }
    return pool;
}

std::vector<int> chainOf(const Threads& threads, int index) {
    std::vector<int> chain;
    for (int at = index; at >= 0 && std::find(chain.begin(), chain.end(), at) == chain.end();
         at = threads[size_t(at)].blocker) {
        chain.push_back(at);
    }
    return chain;
}

std::vector<ThreadNow> threadsNow(const std::vector<HotSpotThread>& before,
                                  const std::vector<HotSpotThread>& now, double seconds) {
    std::map<int64_t, int64_t> earlier; // CPU times by native id
    for (const HotSpotThread& thread : before) {
        earlier[thread.nativeId] = thread.cpuNs;
    }
    Threads threads;
    for (const HotSpotThread& thread : now) {
        ThreadNow each;
        each.thread = thread;
        each.pool = poolOf(thread.name);
        const auto known = earlier.find(thread.nativeId);
        if (known != earlier.end() && known->second >= 0 && thread.cpuNs >= known->second &&
            seconds > 0) {
            each.cpuPercent = double(thread.cpuNs - known->second) / (seconds * 1e7);
        }
        threads.push_back(std::move(each));
    }
    std::stable_sort(threads.begin(), threads.end(), [](const ThreadNow& a, const ThreadNow& b) {
        return a.cpuPercent > b.cpuPercent;
    });
    findBlockers(threads);
    followChains(threads);
    return threads;
}

} // namespace vdk
