#include "instrument/OnDemandCalls.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/NameBits.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/AgentThread.h"
#include "core/jvm/JvmGlobals.h"
#include "instrument/ClassBatches.h"
#include "instrument/LoaderReach.h"
#include "instrument/WantedCalls.h"
#include "platform/Platform.h"
#include "probes/Filter.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/threads/OldActivations.h"

#include <atomic>

namespace {

constexpr CallSet RECORDING_CALLS = TRACING_CALLS.with(ALLOCATION_CALLS);
const char CALIBRATION_CLASSES[] = "com.vandrik.runtime.Calibration*";
// Between two batches that nobody waits for.
constexpr unsigned GOING_BACK_PAUSE_US = 10000;
// Looks for classes whose definition was under way while the others were done.
constexpr int MOST_LATE_LOOKS = 5;

// Held over each batch. Guards what follows, except where told otherwise.
ZLock& ourCallSwitchLock = *new ZLock("CallSwitchLock");
int ourTracings = 0;
int ourAllocationRecordings = 0;
CallSet ourReady; // of these every loaded class has what it shall have
ZString& ourOnly = *new ZString();
// Each start ends a going back that is under way. Written without the lock.
std::atomic<unsigned> ourStarts{0};

// Classes that were loaded while calls come: they have them. ourLock.
bool ourCallsCome = false;
NameBits<1U << 17>& ourLoadedMeanwhile = *new NameBits<1U << 17>();

CallSet callsOf(int recording) {
    return recording == RECORDING_TRACES ? TRACING_CALLS : ALLOCATION_CALLS;
}

int& usersOf(int recording) {
    return recording == RECORDING_TRACES ? ourTracings : ourAllocationRecordings;
}

long toMs(long ns) {
    return ns / 1000000;
}

// Brings calls into the loaded classes.
class ComingCalls {
public:
    ComingCalls(JNIEnv* javaEnv, CallSet added, const ZString* filterText)
        : env(javaEnv), calls(added), filter(filterText == nullptr ? ZString() : *filterText),
          isFiltering(filterText != nullptr) {
        LockHolder lock(ourLock);
        ourCallsCome = true;
        ourLoadedMeanwhile.clear();
        WantedCalls::switchKinds(calls, true);
    }
    ~ComingCalls() {
        LockHolder lock(ourLock);
        ourCallsCome = false;
    }
    ComingCalls(const ComingCalls&) = delete;
    ComingCalls& operator=(const ComingCalls&) = delete;

    void run() {
        const long start = getTimeNs();
        long longestNs = 0;
        int done = 0;
        int found = 1;
        for (int look = 0; found > 0 && look < MOST_LATE_LOOKS; look++) {
            ClassList classes(env);
            found = collect(classes, look > 0);
            while (!ourVMDeathCalled && classes.retransformSome()) {
            }
            done += classes.getDone();
            longestNs =
                classes.getLongestStopNs() > longestNs ? classes.getLongestStopNs() : longestNs;
        }
        Logger::message(ZString("Calls put into ") + longToString(done) + " classes, " +
                        longToString(toMs(getTimeNs() - start)) + " ms, longest stop " +
                        longToString(toMs(longestNs)) + " ms");
    }

private:
    // Gives the number of classes.
    int collect(ClassList& classes, bool isLate) {
        const RewritableClasses rewritable(env);
        eachLoadedClass(env, [&](jclass type) {
            const ZString name = internalNameOf(type);
            if (name.isEmpty() || !isConcerned(name, isLate) || !rewritable.has(type) ||
                !isAskedFor(type, name)) {
                return false;
            }
            collected.add(name);
            classes.push(type);
            return true;
        });
        return classes.getSize();
    }

    // What carries calls follows in any case: it may be left out from now on.
    bool isConcerned(const ZString& name, bool isLate) const {
        LockHolder lock(ourLock);
        if (isLate && (collected.mayHave(name) || ourLoadedMeanwhile.mayHave(name))) {
            return false;
        }
        return calls.has(ALLOCATION_CALLS) || WantedCalls::isTraced(name) ||
               WantedCalls::mayCarryRecording(name);
    }

    // Classes that were there before an attach wait for somebody to ask for them.
    bool isAskedFor(jclass type, const ZString& name) const {
        LockHolder lock(ourLock);
        jlong tag = 0;
        if (ourJVMTI2 == nullptr || ourJVMTI2->GetTag(type, &tag) != JVMTI_ERROR_NONE ||
            tag != WAITING_TAG) {
            return true;
        }
        ZString dotted = name;
        dotted.replaceAll('/', '.');
        if (isFiltering && filter.isFilteredClassName(dotted)) {
            return false;
        }
        CHECK_JVMTI(ourJVMTI2->SetTag(type, 0));
        return true;
    }

    JNIEnv* env;
    const CallSet calls;
    ClassNameFilter filter;
    const bool isFiltering;
    NameBits<1U << 17> collected;
};

// The thread of the agent that takes calls out again, a batch at a time.
class GoingBack {
public:
    GoingBack(JNIEnv* javaEnv, unsigned starts) : startsBefore(starts), classes(javaEnv) {
        const RewritableClasses rewritable(javaEnv);
        eachLoadedClass(javaEnv, [&](jclass type) {
            const ZString name = internalNameOf(type);
            LockHolder lock(ourLock);
            const bool carries = !name.isEmpty() && WantedCalls::mayCarryRecording(name);
            if (carries && rewritable.has(type)) {
                classes.push(type);
                return true;
            }
            return false;
        });
    }

    void run() {
        const long start = getTimeNs();
        while (step()) {
            Platform::sleepMicroseconds(GOING_BACK_PAUSE_US);
        }
        Logger::message(ZString("Calls taken out of ") + longToString(classes.getDone()) + " of " +
                        longToString(classes.getSize()) + " classes, " +
                        longToString(toMs(getTimeNs() - start)) + " ms, longest stop " +
                        longToString(toMs(classes.getLongestStopNs())) + " ms");
    }

private:
    // Whether there is more to do.
    bool step() {
        if (isOver()) {
            return false;
        }
        LockHolder lock(ourCallSwitchLock);
        if (isOver()) {
            return false;
        }
        if (classes.retransformSome()) {
            return true;
        }
        LockHolder data(ourLock);
        WantedCalls::forgetRecording();
        return false;
    }
    bool isOver() const { return ourVMDeathCalled || ourStarts != startsBefore; }

    const unsigned startsBefore;
    ClassList classes;
};

void JNICALL going_back_entry(jvmtiEnv*, JNIEnv* env, void* starts) {
    runGuarded(VDK_HERE, [&] {
        GoingBack(env, static_cast<unsigned>(reinterpret_cast<uintptr_t>(starts))).run();
    });
}

// Classes that load from here on carry nothing. Caller holds ourCallSwitchLock.
void switchOff(JNIEnv* env) {
    {
        LockHolder lock(ourLock);
        WantedCalls::switchKinds(RECORDING_CALLS, false);
        WantedCalls::setTracedOnly(ourOptions->traceOnly);
    }
    ourReady = CallSet();
    // Calibration is followed by a start.
    if (!ourVMDeathCalled && getCalibration() != -1) {
        const uintptr_t starts = ourStarts;
        runAgentThread(env, "VDKAgent-ClassesGoBack", going_back_entry,
                       reinterpret_cast<const void*>(starts));
    }
}

// Caller holds ourCallSwitchLock.
void switchOn(JNIEnv* env, CallSet calls, const ZString& only, const ZString* filters) {
    const bool isSame = !calls.has(TRACING_CALLS) || only == ourOnly;
    if (isSame && ourReady.only(calls).toBits() == calls.toBits()) {
        return;
    }
    if (calls.has(TRACING_CALLS)) {
        prepareOldActivations();
        LockHolder lock(ourLock);
        ourOnly = only;
        WantedCalls::setTracedOnly(only);
    }
    ComingCalls(env, calls, filters).run();
    ourReady = ourReady.with(calls);
}

} // namespace

void takeRecordingCalls(JNIEnv* env, int recording, const ZString* filters) {
    if (!ourOptions->onDemand) {
        return;
    }
    ourStarts++;
    LockHolder lock(ourCallSwitchLock);
    const bool isCalibrating = recording == RECORDING_TRACES && getCalibration() == -1;
    usersOf(recording)++;
    const bool done = runGuarded(VDK_HERE, [&] {
        switchOn(env, callsOf(recording),
                 isCalibrating ? ZString(CALIBRATION_CLASSES) : ourOptions->traceOnly, filters);
    });
    if (!done) {
        giveRecordingCalls(env, recording);
        throw VDKRuntimeException();
    }
}

void giveRecordingCalls(JNIEnv* env, int recording) {
    if (!ourOptions->onDemand) {
        return;
    }
    LockHolder lock(ourCallSwitchLock);
    usersOf(recording)--;
    if (ourTracings == 0 && ourAllocationRecordings == 0) {
        switchOff(env);
    }
}

void noteLoadedWhileCallsCome(const ZString& name) {
    if (ourCallsCome) {
        ourLoadedMeanwhile.add(name);
    }
}
