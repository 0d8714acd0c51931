// While a thread stays on its core, its CPU time grows as the core's time stamp counter does, or as
// the monotonic clock, which the system lets be read without a call. So a thread keeps what both
// clocks said at one moment, and needs to know that it was not switched out since.
//
// The kernel's restartable sequences tell that (rseq(2), Linux 4.18; the C library registers each
// thread from glibc 2.35 on). A thread may name a range of its code in the field rseq_cs; when it
// comes back from a switch, or gets a signal, outside that range, the kernel sets the field to
// null. The range named here is never executed: as long as the field still holds its descriptor,
// the thread has kept its core. Interrupts come between two instructions, so a counter read before
// that look was read on that core, too, and counters of different cores are never compared.
#include "platform/Platform.h"
#include "platform/ThreadClock.h"

#include <atomic>
#include <cpuid.h>
#include <dlfcn.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/mman.h>
#include <time.h>
#include <x86intrin.h>

namespace {

__extension__ typedef unsigned __int128 Wide;

const long NS_PER_SECOND = 1000000000;
const int MOST_ATTEMPTS = 8;
const long TRIAL_NS = 1000000;

// What the C library registers threads with. The kernel wants it in front of the place to go on at
// when the range is left; another one would end the process.
const uint32_t SIGNATURE = 0x53053053;
const size_t PAGE_BYTES = 4096;
const size_t ABORT_PLACE = 128; // in the page
const size_t RANGE_PLACE = 256;

// struct rseq_cs of the kernel, which copies it from here at switches.
struct alignas(32) Descriptor {
    uint32_t version;
    uint32_t flags;
    uint64_t start;
    uint64_t length;
    uint64_t abort;
};

// The beginning of struct rseq.
struct ThreadArea {
    uint32_t cpuStart;
    int32_t cpu; // negative while the thread is not registered
    volatile uint64_t descriptor;
};

struct Reading {
    long cpuNs;
    uint64_t ticks;
    long lastNs; // what the thread was told last
};

enum State { UNTRIED, USED, UNUSED };

std::atomic<State> ourState{UNTRIED};
// Written once, before ourState is USED.
ptrdiff_t ourAreaOffset;
uint64_t ourDescriptor;
bool ourTicksAreCounter;            // otherwise nanoseconds of the monotonic clock
uint64_t ourTickLength = 1UL << 32; // in 2^-32 ns

// Of the threads' fixed block, so that finding it takes no call.
thread_local Reading ourReading __attribute__((tls_model("initial-exec")));

// Time over which the clock's advance was compared with the exact one, and how far it was ahead.
std::atomic<long> ourCheckedNs{0};
std::atomic<long> ourAheadNs{0};

ThreadArea* getArea() {
    char* threadPointer;
    __asm__("mov %%fs:0, %0" : "=r"(threadPointer));
    return reinterpret_cast<ThreadArea*>(threadPointer + ourAreaOffset);
}

long readMonotonicNs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * NS_PER_SECOND + now.tv_nsec;
}

uint64_t readTicks() {
    if (!ourTicksAreCounter) {
        return static_cast<uint64_t>(readMonotonicNs());
    }
    const uint64_t ticks = __rdtsc();
    __asm__ volatile("" ::: "memory");
    return ticks;
}

// At one moment, as far as a few attempts find one at which nothing came between.
struct Moment {
    Moment() : ticks(0), monotonicNs(0) {
        uint64_t least = UINT64_MAX;
        for (int i = 0; i < MOST_ATTEMPTS; i++) {
            const uint64_t before = __rdtsc();
            const long now = readMonotonicNs();
            const uint64_t length = __rdtsc() - before;
            if (length < least) {
                least = length;
                ticks = before + length / 2;
                monotonicNs = now;
            }
        }
    }
    uint64_t ticks;
    long monotonicNs;
};

bool isCounterSteady() {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    return __get_cpuid(0x80000007, &a, &b, &c, &d) != 0 && (d & 1U << 8) != 0;
}

// Where a hypervisor answers for the counter, the clock is faster. What the length of a tick is off
// counts for RENEWAL_NS at the most.
void tryCounter() {
    if (!isCounterSteady()) {
        return;
    }
    const Moment start;
    Moment end;
    while (end.monotonicNs - start.monotonicNs < TRIAL_NS) {
        end = Moment();
    }
    const uint64_t ticks = end.ticks - start.ticks;
    const long ns = end.monotonicNs - start.monotonicNs;
    const uint64_t before = __rdtsc();
    for (int i = 0; i < MOST_ATTEMPTS; i++) {
        readMonotonicNs();
    }
    const uint64_t between = __rdtsc();
    for (int i = 0; i < MOST_ATTEMPTS; i++) {
        __rdtsc();
    }
    if (ticks == 0 || ticks > INT64_MAX || __rdtsc() - between >= between - before) {
        return;
    }
    ourTickLength = static_cast<uint64_t>((static_cast<Wide>(ns) << 32) / ticks);
    ourTicksAreCounter = true;
}

// The page is never unmapped: threads may hold the descriptor for as long as they live, also when
// the library is unloaded, and the kernel kills those whose descriptor can't be read.
bool makeDescriptor() {
    void* const page =
        mmap(nullptr, PAGE_BYTES, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return false;
    }
    const uint64_t start = reinterpret_cast<uint64_t>(page);
    *static_cast<Descriptor*>(page) = {0, 0, start + RANGE_PLACE, 1, start + ABORT_PLACE};
    uint32_t* const abort = reinterpret_cast<uint32_t*>(static_cast<char*>(page) + ABORT_PLACE);
    abort[-1] = SIGNATURE;
    mprotect(page, PAGE_BYTES, PROT_READ);
    ourDescriptor = start;
    return true;
}

bool findArea() {
    const auto* const offset = static_cast<const ptrdiff_t*>(dlsym(RTLD_DEFAULT, "__rseq_offset"));
    const auto* const size = static_cast<const unsigned*>(dlsym(RTLD_DEFAULT, "__rseq_size"));
    if (offset == nullptr || size == nullptr || *size == 0) {
        return false; // an older C library, or it was told not to
    }
    ourAreaOffset = *offset;
    return true;
}

// Whether the kernel does what all this stands on: a thread that slept must find the field null.
bool isSwitchSeen() {
    ThreadArea* const area = getArea();
    if (area->cpu < 0) {
        return false;
    }
    area->descriptor = ourDescriptor;
    const bool isKept = area->descriptor == ourDescriptor;
    const timespec moment = {0, 1000};
    nanosleep(&moment, nullptr);
    const bool isCleared = area->descriptor == 0;
    area->descriptor = 0;
    return isKept && isCleared;
}

bool tryOut() {
    static const bool works = [] {
        if (!findArea() || !makeDescriptor() || !isSwitchSeen()) {
            return false;
        }
        tryCounter();
        return true;
    }();
    State untried = UNTRIED;
    ourState.compare_exchange_strong(untried, works ? USED : UNUSED);
    return works;
}

// A hypervisor that takes the core away unseen puts the clock ahead, by milliseconds a second where
// it is busy; so would a kernel that does not tell of all switches.
void check(long aheadNs, long ofNs) {
    const long checked = ourCheckedNs += ofNs;
    const long ahead = ourAheadNs += aheadNs > 0 ? aheadNs : 0;
    if (checked < NS_PER_SECOND) {
        return;
    }
    if (ahead > checked / 4) {
        ourState = UNUSED;
    }
    ourCheckedNs = 0;
    ourAheadNs = 0;
}

long tell(long cpuNs) {
    ourReading.lastNs = cpuNs > ourReading.lastNs ? cpuNs : ourReading.lastNs;
    return ourReading.lastNs;
}

// Reads both until the thread has kept its core from one to the other. Gives the exact time.
long renew(ThreadArea* area) {
    for (int i = 0; area->cpu >= 0 && i < MOST_ATTEMPTS; i++) {
        area->descriptor = ourDescriptor;
        const long cpu = Platform::currentThreadCPUTimeNs();
        const uint64_t now = readTicks();
        if (area->descriptor == ourDescriptor) {
            ourReading.cpuNs = cpu;
            ourReading.ticks = now;
            return cpu;
        }
    }
    area->descriptor = 0;
    return Platform::currentThreadCPUTimeNs();
}

} // namespace

bool ThreadClock::isInUserSpace() {
    const State state = ourState.load(std::memory_order_acquire);
    return state == UNTRIED ? tryOut() : state == USED;
}

long ThreadClock::readNs() {
    if (!isInUserSpace()) {
        return tell(Platform::currentThreadCPUTimeNs());
    }
    ThreadArea* const area = getArea();
    const uint64_t ticks = readTicks() - ourReading.ticks;
    // Looked at behind the clock: a switch in between counts.
    if (area->descriptor != ourDescriptor) {
        return tell(renew(area));
    }
    const long age = static_cast<long>(static_cast<Wide>(ticks) * ourTickLength >> 32);
    const long cpu = ourReading.cpuNs + age;
    if (age >= 0 && age < RENEWAL_NS) {
        return tell(cpu);
    }
    const long exact = renew(area);
    check(cpu - exact, age);
    return tell(exact);
}
