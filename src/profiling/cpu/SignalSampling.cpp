#include "profiling/cpu/SignalSampling.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "platform/Platform.h"
#include "platform/ThreadTimers.h"
#include "probes/Filter.h"
#include "profiling/cpu/CodeEvents.h"
#include "profiling/cpu/CompiledCode.h"
#include "profiling/cpu/FrameAnchor.h"
#include "profiling/cpu/InterpretedMethods.h"
#include "profiling/cpu/NativeThreads.h"
#include "profiling/cpu/SampleCharges.h"
#include "profiling/cpu/SampledThreads.h"
#include "profiling/cpu/SamplerTrial.h"
#include "profiling/cpu/StackWalk.h"
#include "profiling/cpu/WallTimeWalk.h"
#include "profiling/threads/AllStacks.h"
#include "profiling/threads/MountedStack.h"
#include "profiling/threads/ThreadInfo.h"

#include <atomic>

namespace {

const char INTERNAL_ERROR[] = "an internal error that the log tells";
const long NS_PER_MILLISECOND = 1000000;
const int MOST_WAITS = 100;
const unsigned WAIT_US = 1000;

// How often ids of threads are looked for that are not known yet: ever more rarely where some stay
// unknown, for a search goes over all threads of the process.
const long FIRST_SEARCH_PERIOD_NS = 500 * NS_PER_MILLISECOND;
const long LAST_SEARCH_PERIOD_NS = 16 * FIRST_SEARCH_PERIOD_NS;

// JVMs whose frames are laid out in the one known way, with handles of methods that are addresses.
const int FIRST_KNOWN_RELEASE = 17;
const int LAST_KNOWN_RELEASE = 25;

// No thread that Java starts needs more to get to its start event.
const long MOST_BEFORE_START_NS = 2 * NS_PER_MILLISECOND;

std::atomic<bool> ourIsOn{false};
std::atomic<long> ourNextSearchNs{0};
std::atomic<long> ourChargingNs{0}; // CPU time that filling the rows took
std::atomic<long> ourSearchPeriodNs{0};

long getPeriodNs() {
    return (ourOptions->samplingPeriod < 1 ? 1L : ourOptions->samplingPeriod) * NS_PER_MILLISECOND;
}

// Samples that were taken out, in their order, and the stacks that the JVM was asked for. Gives the
// places back at its end.
class Batch {
public:
    Batch() = default;
    ~Batch() {
        for (int i = 0; i < stacks.getSize(); i++) {
            InterruptedStacks::giveBack(stacks[i]);
        }
    }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    template <typename Predicate>
    void take(Predicate&& isWanted) {
        InterruptedStacks::takeOut([&](InterruptedStack* stack) {
            if (!isWanted(*stack)) {
                return false;
            }
            int at = stacks.getSize();
            stacks.push(stack);
            for (; at > 0 && stacks[at - 1]->sequence > stack->sequence; at--) {
                stacks[at] = stacks[at - 1];
            }
            stacks[at] = stack;
            return true;
        });
    }

    int getSize() const { return stacks.getSize(); }
    InterruptedStack& get(int i) { return *stacks[i]; }

private:
    ZVector<InterruptedStack*> stacks;
};

// The thread of a sample, as a local reference, and whether it is a carrier; null if it has ended.
jthread threadOf(JNIEnv* env, const InterruptedStack& stack, bool* isCarrier) {
    LockHolder lock(ourLock);
    const SampledThread* const sampled = SampledThreads::of(stack);
    if (sampled == nullptr) {
        return nullptr;
    }
    *isCarrier = sampled->info->carrierThread;
    return static_cast<jthread>(env->NewLocalRef(sampled->info->threadObject));
}

void copyFrames(const jvmtiStackInfo& stack, ZVector<jvmtiFrameInfo>* frames) {
    for (jint i = 0; i < stack.frame_count; i++) {
        frames->push(stack.frame_buffer[i]);
    }
}

// Asks the JVM for the stack that the thread has by now. Not with ourLock held.
void ask(JNIEnv* env, const InterruptedStack& stack, ZVector<jvmtiFrameInfo>* frames) {
    bool isCarrier = false;
    jthread thread = threadOf(env, stack, &isCarrier);
    if (thread == nullptr) {
        return;
    }
    if (isCarrier && canSeeMountedThreads()) {
        JvmtiMemory<jvmtiStackInfo> mounted;
        *mounted.receive() = takeMountedStack(env, thread, InterruptedStack::MOST_FRAMES);
        if (mounted.get() != nullptr) {
            copyFrames(*mounted.get(), frames);
        }
    }
    JvmtiMemory<jvmtiStackInfo> own;
    if (frames->isEmpty() &&
        ourJVMTI->GetThreadListStackTraces(1, &thread, InterruptedStack::MOST_FRAMES,
                                           own.receive()) == JVMTI_ERROR_NONE) {
        copyFrames(*own.get(), frames);
    }
    env->DeleteLocalRef(thread);
}

void learnMethods(JNIEnv* env, const InterruptedStack& stack) {
    for (int i = 0; stack.isMethodUnknown && i < stack.code; i++) {
        InterpretedMethods::learn(env, stack.frames[i].method);
    }
}

void chargeOne(JNIEnv* env, const InterruptedStack& stack, const ZVector<jvmtiFrameInfo>* asked) {
    LockHolder lock(ourLock, "Sampling:80");
    SampledThread* const sampled = SampledThreads::of(stack);
    if (sampled != nullptr && !sampled->info->agentThread) {
        SampleCharges::charge(env, sampled, stack, asked);
    }
}

// Soon after they were taken: those first that the JVM is asked about.
void chargeAll(JNIEnv* env) {
    LocalFrame localFrame(env);
    Batch batch;
    batch.take([](const InterruptedStack&) { return true; });
    ZVector<jvmtiFrameInfo> asked;
    const long start = batch.getSize() == 0 ? 0 : Platform::currentThreadCPUTimeNs();
    for (int i = 0; i < batch.getSize(); i++) {
        asked.clear();
        if (SampleCharges::canAsk(batch.get(i))) {
            ask(env, batch.get(i), &asked);
        }
        learnMethods(env, batch.get(i));
        chargeOne(env, batch.get(i), asked.isEmpty() ? nullptr : &asked);
    }
    ourChargingNs += batch.getSize() == 0 ? 0 : Platform::currentThreadCPUTimeNs() - start;
}

// Caller holds ourLock. A thread without a timer has a rest, too.
void chargeRestOf(ThreadInfo* info) {
    if (info->agentThread || info->sampled.lastCpuTimeNs == 0) {
        return;
    }
    const SampledThread* const sampled = info->sampled.timer;
    const long now =
        sampled == nullptr ? info->readCpuTimeNs() : Platform::threadCPUTimeNs(sampled->nativeID);
    SampleCharges::chargeRest(info, now, 2 * getPeriodNs());
}

// Caller holds ourLock. A thread whose id is not known gets no timer yet.
void startTimer(ThreadInfo* info, long nativeID) {
    if (info->agentThread || info->sampled.timer != nullptr) {
        return;
    }
    if (info->sampled.lastCpuTimeNs == 0) {
        const long now = info->readCpuTimeNs();
        info->sampled.lastCpuTimeNs = now < 1 ? 1 : now;
    }
    if (nativeID != 0) {
        info->sampled.timer = SampledThreads::add(info, nativeID, getPeriodNs());
    }
}

bool isWithoutID(const ThreadInfo* info) {
    return info->nativeThreadID == 0 && info->sampled.timer == nullptr && !info->agentThread &&
           info->threadObject != nullptr;
}

// Threads that began before the agent get their timers once their ids are known.
void startTimersOfOldThreads() {
    LockHolder lock(ourLock);
    ZVector<NativeThreads::Search> searches;
    ZVector<ThreadInfo*> infos;
    ZVector<long> known;
    eachThreadInfo([&](ThreadInfo* info) {
        const SampledThread* const sampled = info->sampled.timer;
        if (isWithoutID(info)) {
            NativeThreads::Search search;
            search.thread = info->threadObject;
            searches.push(search);
            infos.push(info);
        } else {
            known.push(sampled == nullptr ? info->nativeThreadID : sampled->nativeID.load());
        }
    });
    if (searches.isEmpty()) {
        return;
    }
    NativeThreads::find(&searches, known);
    for (int i = 0; i < infos.getSize(); i++) {
        startTimer(infos[i], searches[i].nativeID);
    }
}

void startTimers() {
    LockHolder lock(ourLock);
    eachThreadInfo([](ThreadInfo* info) { startTimer(info, info->nativeThreadID); });
}

void tellCosts() {
    long samples = 0;
    long handlerNs = 0;
    InterruptedStacks::getCosts(&samples, &handlerNs);
    if (samples > 0) {
        Logger::message(ZString("Signal sampling: ") + longToString(samples) +
                        " samples, half of them in at most " + longToString(handlerNs) +
                        " ns; filling the rows took " + longToString(ourChargingNs / samples) +
                        " ns each");
        const StackWalk::Counts counts = StackWalk::getCounts();
        Logger::message(
            ZString("Signal sampling: ") + longToString(counts.walks) +
            " stacks walked without the JVM, " + longToString(counts.compared) +
            " by it as well, of which " + longToString(counts.unequal) +
            (counts.isRefused ? " were not equal; it walked the rest alone" : " were not equal"));
    }
}

// Signals may come for a little while after the last timer was stopped.
void giveSignalBack() {
    for (int i = 0; i < MOST_WAITS; i++) {
        if (ThreadTimers::handlersAtWork() == 0 && ThreadTimers::giveSignalBack()) {
            return;
        }
        Platform::sleepMicroseconds(WAIT_US);
    }
    Logger::message("Signal sampling: a thread holds the signal back; its handler stays");
}

// Of the samples and timers before.
void forgetLosses() {
    InterruptedStacks::forgetCounts();
    ourChargingNs = 0;
    LockHolder lock(ourLock);
    SampledThreads::forgetRefused();
}

// Without it the JVM is asked for each stack.
void prepareWalk(JNIEnv* env) {
    const int release = SamplerTrial::getRelease();
    if (!FrameAnchor::prepare(env)) {
        Logger::message("Signal sampling: the JVM does not tell where it notes Java frames");
    } else if (release < FIRST_KNOWN_RELEASE || release > LAST_KNOWN_RELEASE ||
               !StackWalk::prepare()) {
        Logger::message("Signal sampling: how this JVM lays out its frames is not known");
    }
}

// Up to the trial. What it began is left to the caller where it gives a reason.
ZString prepare(JNIEnv* env) {
    ZString refusal = SamplerTrial::refuseJvm();
    if (refusal.isEmpty()) {
        const char* const reason = InterruptedStacks::prepare();
        refusal = reason == nullptr ? "" : reason;
    }
    if (refusal.isEmpty()) {
        prepareWalk(env);
    }
    if (refusal.isEmpty() && !NativeThreads::prepare()) {
        refusal = "the JVM does not tell threads' CPU times";
    }
    if (refusal.isEmpty()) {
        refusal = CodeEvents::start(env);
    }
    if (refusal.isEmpty()) {
        const char* const reason = ThreadTimers::takeSignal(SampledThreads::onTimer);
        refusal = reason == nullptr ? SamplerTrial::run(env) : ZString(reason);
    }
    return refusal;
}

} // namespace

bool SignalSampling::isOn() {
    return ourIsOn;
}

ZString SignalSampling::start(JNIEnv* env) {
    ZString refusal = INTERNAL_ERROR;
    runGuarded(VDK_HERE, [&] { refusal = prepare(env); });
    if (!refusal.isEmpty()) {
        giveSignalBack();
        StackWalk::stop();
        CodeEvents::stop();
        return refusal;
    }
    forgetLosses();
    WallTimeWalk::restart();
    ourIsOn = true;
    startTimers();
    startTimersOfOldThreads();
    ourSearchPeriodNs = FIRST_SEARCH_PERIOD_NS;
    ourNextSearchNs = getTimeNs() + FIRST_SEARCH_PERIOD_NS;
    Logger::message(ZString("Signal sampling: signal ") +
                    longToString(ThreadTimers::signalNumber()));
    return "";
}

void SignalSampling::stop(JNIEnv* env) {
    if (!ourIsOn.exchange(false)) {
        return;
    }
    settle(env);
    {
        LockHolder lock(ourLock);
        eachThreadInfo([](ThreadInfo* info) {
            if (info->sampled.timer != nullptr) {
                SampledThreads::remove(info->sampled.timer);
                info->sampled.timer = nullptr;
            }
        });
    }
    giveSignalBack();
    tellCosts();
    StackWalk::stop();
    Batch late;
    late.take([](const InterruptedStack&) { return true; });
    CodeEvents::stop();
}

void SignalSampling::takeSamples(JNIEnv* env, long waitMs) {
    SampledThreads::awaitSample(waitMs);
    chargeAll(env);
    CompiledCode::collect();
    if (Filter::ourHasWallTime) {
        WallTimeWalk::walkIfDue(env);
    }
    if (getTimeNs() >= ourNextSearchNs) {
        ourNextSearchNs = getTimeNs() + ourSearchPeriodNs;
        if (ourSearchPeriodNs < LAST_SEARCH_PERIOD_NS) {
            ourSearchPeriodNs = 2 * ourSearchPeriodNs;
        }
        startTimersOfOldThreads();
    }
}

void SignalSampling::settle(JNIEnv* env) {
    chargeAll(env);
    LockHolder lock(ourLock);
    eachThreadInfo([](ThreadInfo* info) { chargeRestOf(info); });
}

void SignalSampling::threadStarts(ThreadInfo* info) {
    if (ourIsOn) {
        // What a thread used to come up counts; what a native one used before it came to Java does
        // not.
        const long now = Platform::currentThreadCPUTimeNs();
        info->sampled.lastCpuTimeNs = now < MOST_BEFORE_START_NS ? 1 : now;
        startTimer(info, info->nativeThreadID);
    }
}

void SignalSampling::threadEnds(JNIEnv* env, ThreadInfo* info) {
    SampledThread* const sampled = info->sampled.timer;
    if (sampled == nullptr) {
        if (ourIsOn) {
            chargeRestOf(info);
        }
        return;
    }
    ThreadTimers::stop(sampled->timer);
    sampled->timer = ThreadTimers::NO_TIMER;
    {
        Batch batch;
        batch.take([&](const InterruptedStack& stack) { return stack.slot == sampled->number; });
        for (int i = 0; i < batch.getSize(); i++) {
            if (SampledThreads::of(batch.get(i)) == sampled) {
                SampleCharges::charge(env, sampled, batch.get(i), nullptr);
            }
        }
    }
    chargeRestOf(info);
    SampledThreads::remove(sampled);
    info->sampled.timer = nullptr;
}
