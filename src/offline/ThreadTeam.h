#pragma once

#include "core/ground/Exceptions.h"
#include "offline/AnalysisProgress.h"

#include <atomic>
#include <new>
#include <pthread.h>

// Runs `helper` on a second thread while `body` runs on this one, and returns when both have ended.
// An exception of either is thrown here, that of body first; *stop is set as soon as one is on its
// way, so that the other can end early by throwing AnalysisCancelled. If no thread can be made, the
// two run one after the other.
template <typename Helper, typename Body>
void runPair(Helper&& helper, Body&& body, std::atomic<bool>* stop);

// Runs code(member) for each member from 0 below `members`, member 0 on this thread and the others
// on threads of their own, as runPair does with two.
template <typename Code>
void runTeam(int members, Code&& code, std::atomic<bool>* stop);

// The part of the numbers from `from` below `to` that belongs to a member; parts are about equal
// and ascend with the members.
inline int partBegin(int from, int to, int member, int members) {
    return from + static_cast<int>(static_cast<long>(to - from) * member / members);
}

// Implementation

// What ended the code of a helper thread: exceptions don't cross threads by themselves.
enum class ThreadOutcome { OK, NO_MEMORY, CANCELLED, INTERNAL_ERROR };

// Runs code; any exception becomes an outcome.
template <typename Code>
ThreadOutcome outcomeOf(Code&& code) noexcept {
    try {
        code();
        return ThreadOutcome::OK;
    } catch (const std::bad_alloc&) {
        return ThreadOutcome::NO_MEMORY;
    } catch (const AnalysisCancelled&) {
        return ThreadOutcome::CANCELLED;
    } catch (...) {
        return ThreadOutcome::INTERNAL_ERROR;
    }
}

// Throws again what an outcome stands for.
inline void rethrowOutcome(ThreadOutcome outcome) {
    switch (outcome) {
    case ThreadOutcome::OK:
        return;
    case ThreadOutcome::NO_MEMORY:
        throw std::bad_alloc();
    case ThreadOutcome::CANCELLED:
        throw AnalysisCancelled();
    case ThreadOutcome::INTERNAL_ERROR:
        throw VDKRuntimeException();
    }
}

// A second thread that runs code given by reference; joined at the latest by its destructor.
template <typename Code>
class HelperThread {
public:
    // Runs the code here and now if no thread can be made.
    HelperThread(Code& runCode, std::atomic<bool>* stopFlag)
        : code(runCode), stop(stopFlag), outcome(ThreadOutcome::OK), joinable(false) {
        joinable = pthread_create(&thread, nullptr, run, this) == 0;
        if (!joinable) {
            run(this);
        }
    }
    ~HelperThread() { join(); }
    HelperThread(const HelperThread&) = delete;
    HelperThread& operator=(const HelperThread&) = delete;

    ThreadOutcome join() {
        if (joinable) {
            pthread_join(thread, nullptr);
            joinable = false;
        }
        return outcome;
    }

private:
    static void* run(void* self) {
        HelperThread* helper = static_cast<HelperThread*>(self);
        helper->outcome = outcomeOf(helper->code);
        if (helper->outcome != ThreadOutcome::OK) {
            *helper->stop = true;
        }
        return nullptr;
    }

    Code& code;
    std::atomic<bool>* stop;
    ThreadOutcome outcome;
    bool joinable;
    pthread_t thread;
};

template <typename Helper, typename Body>
void runPair(Helper&& helper, Body&& body, std::atomic<bool>* stop) {
    HelperThread<std::remove_reference_t<Helper>> second(helper, stop);
    try {
        body();
    } catch (const AnalysisCancelled&) {
        // Either this thread's own caller wants to end, or the helper failed and said stop.
        *stop = true;
        rethrowOutcome(second.join());
        throw;
    } catch (...) {
        *stop = true;
        throw;
    }
    rethrowOutcome(second.join());
}

template <typename Code>
void runTeam(int members, Code&& code, std::atomic<bool>* stop) {
    if (members <= 1) {
        code(0);
        return;
    }
    runPair([&] { code(members - 1); }, [&] { runTeam(members - 1, code, stop); }, stop);
}
