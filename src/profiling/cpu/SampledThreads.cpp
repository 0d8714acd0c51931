#include "profiling/cpu/SampledThreads.h"

#include "core/ground/ZVector.h"
#include "core/jvm/JvmGlobals.h"
#include "platform/Platform.h"
#include "platform/ThreadTimers.h"

#include <ctime>
#include <semaphore.h>

namespace {

const int MOST_THREADS = 1 << 16;
const long NS_PER_SECOND = 1000000000;
const long NS_PER_MILLISECOND = 1000000;
// Nothing wakes who waits but a sample.
const long LONGEST_WAIT_MS = 1000;

std::atomic<SampledThread*> ourThreads[MOST_THREADS];
int ourThreadCount = 0;
ZVector<SampledThread*>& ourFreeThreads = *new ZVector<SampledThread*>();
int ourRefused = 0;

sem_t* makeSemaphore() {
    sem_t* const semaphore = new sem_t;
    sem_init(semaphore, 0, 0);
    return semaphore;
}
sem_t* const ourSamples = makeSemaphore();

SampledThread* takeFree() {
    if (!ourFreeThreads.isEmpty()) {
        return ourFreeThreads.pop();
    }
    if (ourThreadCount == MOST_THREADS) {
        return nullptr;
    }
    SampledThread* const made = new SampledThread(ourThreadCount);
    ourThreads[ourThreadCount++] = made;
    return made;
}

void setBounds(SampledThread* sampled, uintptr_t low, uintptr_t high) {
    sampled->stackLow = low;
    sampled->stackHigh = high;
}

} // namespace

void SampledThreads::onTimer(int number, void* context) {
    SampledThread* const sampled =
        number >= 0 && number < MOST_THREADS ? ourThreads[number].load() : nullptr;
    // A signal may be older than the timer that the place has now.
    if (sampled == nullptr || !sampled->isRunning ||
        sampled->nativeID != ThreadTimers::currentThread()) {
        return;
    }
    InterruptedStack* const stack = InterruptedStacks::claim();
    if (stack == nullptr) {
        return;
    }
    stack->slot = number;
    stack->generation = sampled->generation;
    stack->cpuTimeNs = Platform::currentThreadCPUTimeNs();
    const StackBounds bounds = {sampled->stackLow, sampled->stackHigh};
    JNIEnv* env = sampled->environment.load(std::memory_order_relaxed);
    if (env == nullptr &&
        ourVM->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_4) == JNI_OK) {
        sampled->environment.store(env, std::memory_order_relaxed);
    }
    InterruptedStacks::walk(context, bounds, env, stack);
    InterruptedStacks::publish(stack);
    sem_post(ourSamples);
}

void SampledThreads::awaitSample(long wantedMs) {
    const long milliseconds = wantedMs < LONGEST_WAIT_MS ? wantedMs : LONGEST_WAIT_MS;
    timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += milliseconds % 1000 * NS_PER_MILLISECOND;
    until.tv_sec += milliseconds / 1000 + until.tv_nsec / NS_PER_SECOND;
    until.tv_nsec %= NS_PER_SECOND;
    if (sem_timedwait(ourSamples, &until) == 0) {
        // One look serves all that have come.
        const timespec past = {0, 0};
        while (sem_timedwait(ourSamples, &past) == 0) {
        }
    }
}

SampledThread* SampledThreads::add(ThreadInfo* info, long nativeID, long periodNs) {
    SampledThread* const sampled = takeFree();
    if (sampled == nullptr) {
        ourRefused++;
        return nullptr;
    }
    uintptr_t low = 0;
    uintptr_t high = 0;
    if (nativeID == Platform::getCurrentThreadNativeID() &&
        !ThreadTimers::currentStack(&low, &high)) {
        low = high = 0;
    }
    setBounds(sampled, low, high);
    sampled->environment = nullptr;
    sampled->nativeID = nativeID;
    sampled->isRunning = true;
    sampled->timer = ThreadTimers::start(nativeID, periodNs, sampled->number);
    if (sampled->timer == ThreadTimers::NO_TIMER) {
        sampled->isRunning = false;
        ourFreeThreads.push(sampled);
        ourRefused++;
        return nullptr;
    }
    sampled->info = info;
    sampled->lastFrame = 0;
    sampled->lastLine = 0;
    return sampled;
}

void SampledThreads::remove(SampledThread* sampled) {
    ThreadTimers::stop(sampled->timer);
    sampled->isRunning = false;
    sampled->generation++;
    sampled->timer = ThreadTimers::NO_TIMER;
    sampled->info = nullptr;
    ourFreeThreads.push(sampled);
}

int SampledThreads::getRefused() {
    return ourRefused;
}

void SampledThreads::forgetRefused() {
    ourRefused = 0;
}

SampledThread* SampledThreads::of(const InterruptedStack& stack) {
    SampledThread* const sampled = ourThreads[stack.slot];
    return sampled->generation == stack.generation && sampled->info != nullptr ? sampled : nullptr;
}

void SampledThreads::findBounds(SampledThread* sampled, uintptr_t address) {
    uintptr_t low = 0;
    uintptr_t high = 0;
    if (sampled->stackHigh == 0 && ThreadTimers::memoryAround(address, &low, &high)) {
        setBounds(sampled, low, high);
    }
}
