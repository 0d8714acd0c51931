#pragma once

#include <atomic>

// FastPath: lets a thread work on its own traced calls without ourLock.
//
// DESCRIPTION
//   While it is open the thread may enter it, for some instructions that neither wait nor allocate.
//   Who holds ourLock shuts it before touching what another thread counts, and waits for that
//   thread to come out; nobody ever waits to get in, but takes ourLock instead. So what it guards
//   is touched by the thread inside, by the thread itself under ourLock, or by another under
//   ourLock with the path shut: never by two at once.
// IMPLEMENTATION
//   enter acquires what the last leave, open or shut has released; shut acquires what leave has
//   released. Everything else is ordered by ourLock, and by being the same thread.
class FastPath {
public:
    // On the thread itself.
    bool enter() {
        int expected = OPEN;
        return state.compare_exchange_strong(expected, INSIDE, std::memory_order_acquire,
                                             std::memory_order_relaxed);
    }
    void leave() { state.store(OPEN, std::memory_order_release); }

    // With ourLock held, not from inside.
    void open() { state.store(OPEN, std::memory_order_release); }
    void shut();

private:
    enum State { SHUT, OPEN, INSIDE };
    std::atomic<int> state{SHUT};
};
