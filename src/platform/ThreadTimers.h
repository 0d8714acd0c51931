// Timers on the CPU clocks of single threads: one that ran out interrupts its thread by a signal,
// wherever that is. What the handler of signals calls of these says so; the rest is not for
// handlers.
#pragma once

#include <stddef.h>
#include <stdint.h>

class ThreadTimers {
public:
    // Runs on the interrupted thread: no lock, no allocation. `number` is the timer's own.
    typedef void (*Handler)(int number, void* context);

    // Takes a real-time signal that nobody handles, for as long as timers run. Null, or why none
    // can be had.
    static const char* takeSignal(Handler handler);
    // Whether the signal is still handled here: another library may have taken it since.
    static bool holdsSignal();
    // Leaves the signal as it was found. False, with the handler in place, while a thread may still
    // get one: all timers must have been stopped before.
    static bool giveSignalBack();
    // 0 while none is taken.
    static int signalNumber();
    // Threads that are in the handler now.
    static int handlersAtWork();

    static const int NO_TIMER = -1;
    // The thread is interrupted as soon as it has used some time, and then whenever it has used a
    // period more. NO_TIMER if the system refuses.
    static int start(long nativeThreadID, long periodNs, int number);
    static void stop(int timer);

    // Where a thread was interrupted. For handlers.
    struct Registers {
        uintptr_t pc;
        uintptr_t stack;
        uintptr_t frame;
    };
    static Registers read(const void* context);
    static void write(void* context, const Registers& registers);
    // Bytes that the handler may use of the stack it runs on; SIZE_MAX on the thread's own. For
    // handlers.
    static size_t roomOnStack(const void* context);
    // The kernel's id of the calling thread. For handlers.
    static long currentThread();

    // The calling thread's stack; false if unknown.
    static bool currentStack(uintptr_t* low, uintptr_t* high);
    // The readable and writable memory around an address; false if there is none or it is unknown.
    static bool memoryAround(uintptr_t address, uintptr_t* low, uintptr_t* high);
    // Visits the kernel's ids of all threads of this process.
    typedef void (*ThreadVisitor)(long nativeThreadID, void* context);
    static bool listThreads(ThreadVisitor visitor, void* context);
};
