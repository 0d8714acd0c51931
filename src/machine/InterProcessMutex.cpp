#include "machine/InterProcessMutex.h"

#include "core/ground/Logger.h"
#include "machine/ProcessList.h"
#include "platform/Platform.h"

#include <atomic>

namespace {

const unsigned POLL_US = 100000;
const long NS_PER_MS = 1000000;
const long IMPATIENCE_NS = 60000 * NS_PER_MS;

// Until then nobody waits: who held one lock for so long, or pretends to, may hold them all, and a
// start has several.
std::atomic<long> ourPatienceNs{0};

// Puts `desired` in place of `expected`; on failure `expected` becomes what is there.
bool exchange(int* word, int* expected, int desired) {
    return __atomic_compare_exchange_n(word, expected, desired, false, __ATOMIC_SEQ_CST,
                                       __ATOMIC_SEQ_CST);
}

} // namespace

InterProcessMutex::InterProcessMutex(int key) : owner(nullptr) {
    Platform::SharedMemoryOutcome outcome;
    owner = static_cast<int*>(Platform::attachSharedMemory(key, sizeof(int), &outcome));
}

bool InterProcessMutex::lock(int limitMs) {
    Logger::assertTrue(isValid(), VDK_HERE);
    const int self = Platform::vdk_getpid();
    const long nowNs = Platform::monotonicTimeNs();
    const bool isPatient = nowNs >= ourPatienceNs.load();
    const long endNs = isPatient ? nowNs + limitMs * NS_PER_MS : nowNs;
    for (;;) {
        int holder = 0;
        if (exchange(owner, &holder, self)) {
            return true;
        }
        if (isPatient) {
            Platform::sleepMicroseconds(POLL_US);
        }
        if (__atomic_load_n(owner, __ATOMIC_SEQ_CST) == holder && !ProcessList().isAlive(holder) &&
            exchange(owner, &holder, self)) {
            return true;
        }
        if (Platform::monotonicTimeNs() >= endNs) {
            ourPatienceNs = isPatient ? endNs + IMPATIENCE_NS : ourPatienceNs.load();
            return false;
        }
    }
}

void InterProcessMutex::unlock() {
    Logger::assertTrue(isValid(), VDK_HERE);
    // Whoever overwrote the word meanwhile keeps it.
    int self = Platform::vdk_getpid();
    exchange(owner, &self, 0);
}

InterProcessLock::InterProcessLock(InterProcessMutex& sharedMutex)
    : mutex(sharedMutex), held(false) {
    static std::atomic<bool> waitedInVain{false};
    if (!mutex.isValid()) {
        return;
    }
    held = mutex.lock(waitedInVain ? 0 : InterProcessMutex::DEFAULT_LIMIT_MS);
    if (!held) {
        waitedInVain = true;
    }
}
