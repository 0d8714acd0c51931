// FreeBSD: its timers know no CPU clocks, so none are to be had.
#include "platform/ThreadTimers.h"

#include <pthread_np.h>

const char* ThreadTimers::takeSignal(Handler) {
    return "FreeBSD has no timers on the CPU clocks of threads";
}

bool ThreadTimers::holdsSignal() {
    return false;
}

bool ThreadTimers::giveSignalBack() {
    return true;
}

int ThreadTimers::signalNumber() {
    return 0;
}

int ThreadTimers::handlersAtWork() {
    return 0;
}

int ThreadTimers::start(long, long, int) {
    return NO_TIMER;
}

void ThreadTimers::stop(int) {}

ThreadTimers::Registers ThreadTimers::read(const void*) {
    return {};
}

void ThreadTimers::write(void*, const Registers&) {}

size_t ThreadTimers::roomOnStack(const void*) {
    return SIZE_MAX;
}

long ThreadTimers::currentThread() {
    return pthread_getthreadid_np();
}

bool ThreadTimers::currentStack(uintptr_t*, uintptr_t*) {
    return false;
}

bool ThreadTimers::memoryAround(uintptr_t, uintptr_t*, uintptr_t*) {
    return false;
}

bool ThreadTimers::listThreads(ThreadVisitor, void*) {
    return false;
}
