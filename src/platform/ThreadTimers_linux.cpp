// timer_create(2) on the CPU clock of a thread, with the signal for that thread alone. The calls
// are made directly: the C library has them in another library on older systems, and its timers are
// these.
//
// The kernel looks at CPU timers at its ticks, 1 to 10 ms apart, on the way back to the thread.
#include "platform/Platform.h"
#include "platform/ThreadTimers.h"

#include <atomic>
#include <ctype.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

namespace {

const long NS_PER_SECOND = 1000000000;
const unsigned THREAD_SCHEDULER_CLOCK = 6; // CPUCLOCK_PERTHREAD_MASK | CPUCLOCK_SCHED
const int TO_THREAD = 4;                   // SIGEV_THREAD_ID
// Ends of the range from which a signal is taken: real-time signals near either end are what other
// libraries use most, and the JVM wakes threads in network calls by the third from the end, which
// it takes only at the first such call.
const int SPARED_AT_END = 5;
const int SPARED_AT_BEGIN = 3;

// The kernel's struct sigevent.
struct Event {
    union sigval value;
    int signal;
    int notify;
    int thread;
    char rest[44];
};
static_assert(sizeof(Event) == 64, "the kernel copies so many bytes");

std::atomic<ThreadTimers::Handler> ourHandler{nullptr};
std::atomic<int> ourAtWork{0};
int ourSignal = 0;
struct sigaction ourPrevious;

// Two signals that come at once are delivered one on top of the other: this one, of the higher
// number, interrupts the first instruction of the other's handler, whose arguments tell where that
// was called from.
void* contextBelow(void* context) {
    const int MOST_NESTED = 4;
    for (int i = 0; i < MOST_NESTED; i++) {
        const gregset_t& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
        const greg_t signal = registers[REG_RDI];
        struct sigaction action;
        if (signal < 1 || signal >= SIGRTMAX ||
            registers[REG_RDX] != registers[REG_RSP] + static_cast<greg_t>(sizeof(void*)) ||
            sigaction(static_cast<int>(signal), nullptr, &action) != 0 ||
            reinterpret_cast<greg_t>(action.sa_sigaction) != registers[REG_RIP]) {
            break;
        }
        context = reinterpret_cast<void*>(registers[REG_RDX]);
    }
    return context;
}

void onSignal(int, siginfo_t* info, void* context) {
    const int error = errno;
    ourAtWork.fetch_add(1);
    const ThreadTimers::Handler handler = ourHandler.load();
    if (info->si_code == SI_TIMER && handler != nullptr) {
        handler(info->si_value.sival_int, contextBelow(context));
    }
    ourAtWork.fetch_sub(1);
    errno = error;
}

bool isDefault(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

bool isFree(int signal) {
    struct sigaction action;
    return sigaction(signal, nullptr, &action) == 0 && isDefault(action);
}

bool isOurs(const struct sigaction& action) {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == onSignal;
}

// Puts a handler into the place of another; where that place has changed hands meanwhile, the new
// owner keeps it.
template <typename IsExpected>
bool exchange(int signal, const struct sigaction& wanted, struct sigaction* before,
              IsExpected&& isExpected) {
    struct sigaction found;
    if (sigaction(signal, &wanted, &found) != 0) {
        return false;
    }
    if (!isExpected(found)) {
        sigaction(signal, &found, nullptr);
        return false;
    }
    if (before != nullptr) {
        *before = found;
    }
    return true;
}

// Other profilers' handlers walk stacks as this one's does, and wait until it is done.
bool handle(int signal) {
    struct sigaction action = {};
    action.sa_sigaction = onSignal;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGPROF);
    sigaddset(&action.sa_mask, SIGVTALRM);
    return exchange(signal, action, &ourPrevious, isDefault);
}

// The line "SigPnd:" of a thread's status: its pending signals, as a hexadecimal number.
bool isPendingFor(long thread, int signal) {
    char path[64];
    char text[4096];
    snprintf(path, sizeof(path), "/proc/self/task/%ld/status", thread);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return false; // it has ended
    }
    const ssize_t length = read(file, text, sizeof(text) - 1);
    close(file);
    text[length < 0 ? 0 : length] = 0;
    const char* const line = strstr(text, "\nSigPnd:");
    return line != nullptr &&
           (strtoull(line + strlen("\nSigPnd:"), nullptr, 16) >> static_cast<unsigned>(signal - 1) &
            1) != 0;
}

} // namespace

const char* ThreadTimers::takeSignal(Handler handler) {
    ourHandler = handler;
    if (holdsSignal()) {
        return nullptr; // never given back: a thread had one pending
    }
    for (int signal = SIGRTMAX - SPARED_AT_END; signal >= SIGRTMIN + SPARED_AT_BEGIN; signal--) {
        if (isFree(signal) && handle(signal)) {
            ourSignal = signal;
            return nullptr;
        }
    }
    return "no real-time signal is free";
}

bool ThreadTimers::holdsSignal() {
    struct sigaction action;
    return ourSignal != 0 && sigaction(ourSignal, nullptr, &action) == 0 && isOurs(action);
}

bool ThreadTimers::giveSignalBack() {
    ourHandler = nullptr;
    if (ourSignal == 0) {
        return true;
    }
    if (!holdsSignal()) {
        ourSignal = 0; // one who took it since keeps it, and gets what is on its way
        return true;
    }
    bool isPending = false;
    struct Search {
        bool* isPending;
        static void visit(long thread, void* context) {
            bool& pending = *static_cast<Search*>(context)->isPending;
            pending = pending || isPendingFor(thread, ourSignal);
        }
    } search = {&isPending};
    if (!listThreads(Search::visit, &search) || isPending) {
        return false;
    }
    exchange(ourSignal, ourPrevious, nullptr, isOurs);
    ourSignal = 0;
    return true;
}

int ThreadTimers::signalNumber() {
    return ourSignal;
}

int ThreadTimers::handlersAtWork() {
    return ourAtWork;
}

int ThreadTimers::start(long nativeThreadID, long periodNs, int number) {
    Event event = {};
    event.value.sival_int = number;
    event.signal = ourSignal;
    event.notify = TO_THREAD;
    event.thread = static_cast<int>(nativeThreadID);
    const long clock =
        static_cast<int>((~static_cast<unsigned>(nativeThreadID) << 3) | THREAD_SCHEDULER_CLOCK);
    int timer = NO_TIMER;
    if (ourSignal == 0 || syscall(SYS_timer_create, clock, &event, &timer) != 0) {
        return NO_TIMER;
    }
    const itimerspec times = {{periodNs / NS_PER_SECOND, periodNs % NS_PER_SECOND}, {0, 1}};
    if (syscall(SYS_timer_settime, timer, 0, &times, nullptr) != 0) {
        stop(timer);
        return NO_TIMER;
    }
    return timer;
}

void ThreadTimers::stop(int timer) {
    if (timer != NO_TIMER) {
        syscall(SYS_timer_delete, timer);
    }
}

ThreadTimers::Registers ThreadTimers::read(const void* context) {
    const gregset_t& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    return {static_cast<uintptr_t>(registers[REG_RIP]), static_cast<uintptr_t>(registers[REG_RSP]),
            static_cast<uintptr_t>(registers[REG_RBP])};
}

void ThreadTimers::write(void* context, const Registers& registers) {
    gregset_t& machine = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    machine[REG_RIP] = static_cast<greg_t>(registers.pc);
    machine[REG_RSP] = static_cast<greg_t>(registers.stack);
    machine[REG_RBP] = static_cast<greg_t>(registers.frame);
}

size_t ThreadTimers::roomOnStack(const void* context) {
    const stack_t& other = static_cast<const ucontext_t*>(context)->uc_stack;
    const uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    const uintptr_t low = reinterpret_cast<uintptr_t>(other.ss_sp);
    const bool isOnOther = (other.ss_flags & SS_DISABLE) == 0 && other.ss_size != 0 &&
                           here >= low && here - low < other.ss_size;
    return isOnOther ? here - low : SIZE_MAX;
}

long ThreadTimers::currentThread() {
    return syscall(SYS_gettid);
}

bool ThreadTimers::currentStack(uintptr_t* low, uintptr_t* high) {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return false;
    }
    void* address = nullptr;
    size_t size = 0;
    const bool isKnown = pthread_attr_getstack(&attributes, &address, &size) == 0;
    pthread_attr_destroy(&attributes);
    *low = reinterpret_cast<uintptr_t>(address);
    *high = *low + size;
    return isKnown;
}

bool ThreadTimers::memoryAround(uintptr_t address, uintptr_t* low, uintptr_t* high) {
    FILE* const maps = fopen("/proc/self/maps", "re");
    if (maps == nullptr) {
        return false;
    }
    char line[512];
    bool isFound = false;
    while (!isFound && fgets(line, sizeof(line), maps) != nullptr) {
        char* end = nullptr;
        *low = strtoul(line, &end, 16);
        if (*end != '-') {
            continue; // the rest of a long line
        }
        *high = strtoul(end + 1, &end, 16);
        isFound = address >= *low && address < *high && strncmp(end, " rw", 3) == 0;
    }
    fclose(maps);
    return isFound;
}

bool ThreadTimers::listThreads(ThreadVisitor visitor, void* context) {
    DIR* const folder = opendir("/proc/self/task");
    if (folder == nullptr) {
        return false;
    }
    for (const dirent* entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        if (isdigit(static_cast<unsigned char>(entry->d_name[0]))) {
            visitor(strtol(entry->d_name, nullptr, 10), context);
        }
    }
    closedir(folder);
    return true;
}
