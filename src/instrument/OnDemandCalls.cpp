#include "instrument/OnDemandCalls.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/NameBits.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/AgentThread.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/NativeEntry.h"
#include "db/Progress.h"
#include "instrument/ClassBatches.h"
#include "instrument/ClassesBack.h"
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
// For so long what was prepared waits for its start.
constexpr long HOLD_NS = 60L * 1000 * 1000 * 1000;
constexpr unsigned HOLD_LOOK_US = 200000;

// Held over each batch. Guards what follows, except where told otherwise.
ZLock& ourCallSwitchLock = *new ZLock("CallSwitchLock");
int ourTracings = 0;
int ourAllocationRecordings = 0;
CallSet ourReady; // of these every loaded class has what it shall have
ZString& ourOnly = *new ZString();
// What a client has prepared: it counts as in use until the start takes it over, or none comes.
struct Hold {
    bool isThere = false;
    unsigned serial = 0;
    ZString only;
};
Hold& ourTracingHold = *new Hold();
Hold& ourAllocationHold = *new Hold();
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

Hold& holdOf(int recording) {
    return recording == RECORDING_TRACES ? ourTracingHold : ourAllocationHold;
}

long toMs(long ns) {
    return ns / 1000000;
}

struct ComingResult {
    int classes = 0;
    long tookNs = 0;
    long longestStopNs = 0;
};

// Brings calls into the loaded classes.
class ComingCalls {
public:
    ComingCalls(JNIEnv* javaEnv, CallSet added, const ZString* filterText)
        : env(javaEnv), calls(added), filter(filterText == nullptr ? ZString() : *filterText),
          isFiltering(filterText != nullptr),
          isOnly(added.has(TRACING_CALLS) && !ourOnly.isEmpty()) {
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

    // Tells a client, unless the socket is 0.
    ComingResult run(int socket) {
        const long start = getTimeNs();
        ComingResult result;
        int found = 1;
        for (int look = 0; found > 0 && look < MOST_LATE_LOOKS; look++) {
            ClassList classes(env);
            found = collect(classes, look > 0);
            const int before = result.classes;
            while (!ourVMDeathCalled && classes.retransformSome()) {
                const long stopNs = classes.getLongestStopNs();
                result.longestStopNs =
                    stopNs > result.longestStopNs ? stopNs : result.longestStopNs;
                sendCallsProgress(socket, before + classes.getPlace(), before + found,
                                  result.longestStopNs);
            }
            result.classes += classes.getDone();
        }
        result.tookNs = getTimeNs() - start;
        Logger::message(ZString("Calls put into ") + longToString(result.classes) + " classes, " +
                        longToString(toMs(result.tookNs)) + " ms, longest stop " +
                        longToString(toMs(result.longestStopNs)) + " ms");
        return result;
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
        // What is named is rewritten; whether it is shown, the filters tell.
        const bool isNamed = isOnly && WantedCalls::isTraced(name);
        if (isFiltering && !isNamed && filter.isFilteredClassName(dotted)) {
            return false;
        }
        CHECK_JVMTI(ourJVMTI2->SetTag(type, 0));
        return true;
    }

    JNIEnv* env;
    const CallSet calls;
    ClassNameFilter filter;
    const bool isFiltering;
    const bool isOnly; // classes of patterns
    NameBits<1U << 17> collected;
};

// The thread of the agent that takes calls out again, a batch at a time.
class GoingBack {
public:
    GoingBack(JNIEnv* javaEnv, unsigned starts)
        : startsBefore(starts), classes(javaEnv, WantedCalls::mayCarryRecording) {}

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
        if (classes.step()) {
            return true;
        }
        // At once: a start that waits for the lock finds them all without.
        LockHolder data(ourLock);
        WantedCalls::forgetRecording();
        return false;
    }
    bool isOver() const { return ourVMDeathCalled || ourStarts != startsBefore; }

    const unsigned startsBefore;
    ClassesBack classes;
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
    // Calibration is followed by a start; a detach sees to the classes itself.
    if (!ourVMDeathCalled && !ourIsAway && getCalibration() != -1) {
        const uintptr_t starts = ourStarts;
        runAgentThread(env, "VDKAgent-ClassesGoBack", going_back_entry,
                       reinterpret_cast<const void*>(starts));
    }
}

// Caller holds ourCallSwitchLock.
ComingResult switchOn(JNIEnv* env, CallSet calls, const ZString& only, const ZString* filters,
                      int socket) {
    const bool isSame = !calls.has(TRACING_CALLS) || only == ourOnly;
    if (isSame && ourReady.only(calls).toBits() == calls.toBits()) {
        return ComingResult();
    }
    if (calls.has(TRACING_CALLS)) {
        prepareOldActivations();
        LockHolder lock(ourLock);
        ourOnly = only;
        WantedCalls::setTracedOnly(only);
    }
    const ComingResult result = ComingCalls(env, calls, filters).run(socket);
    ourReady = ourReady.with(calls);
    return result;
}

// Gives back what was prepared, unless a start took it, or it was prepared once more.
void JNICALL hold_entry(jvmtiEnv*, JNIEnv* env, void* argument) {
    const auto bits = reinterpret_cast<uintptr_t>(argument);
    const int recording = static_cast<int>(bits & 3);
    const unsigned serial = static_cast<unsigned>(bits >> 2);
    Hold& held = holdOf(recording);
    const auto isOver = [&] {
        LockHolder lock(ourCallSwitchLock);
        return ourVMDeathCalled || !held.isThere || held.serial != serial;
    };
    const long end = getTimeNs() + HOLD_NS;
    while (getTimeNs() < end && !isOver()) {
        Platform::sleepMicroseconds(HOLD_LOOK_US);
    }
    runGuarded(VDK_HERE, [&] {
        LockHolder lock(ourCallSwitchLock);
        if (!isOver()) {
            held.isThere = false;
            giveRecordingCalls(env, recording);
        }
    });
}

// Caller holds ourCallSwitchLock.
void hold(JNIEnv* env, int recording, const ZString& only) {
    Hold& held = holdOf(recording);
    usersOf(recording) += held.isThere ? 0 : 1;
    held.isThere = true;
    held.serial++;
    held.only = only;
    const uintptr_t argument =
        static_cast<uintptr_t>(held.serial) << 2 | static_cast<uintptr_t>(recording);
    runAgentThread(env, "VDKAgent-CallsAreHeld", hold_entry,
                   reinterpret_cast<const void*>(argument));
}

// Filters that nobody wrote do not hide what somebody names.
void letIn(const ZString& only, ZString* filters) {
    if (only.isEmpty() || !Filter::isDefaultFilterSpec(*filters)) {
        return;
    }
    ZVectorSafe<ZString> patterns;
    only.split(";", patterns);
    for (int i = 0; i < patterns.getSize(); i++) {
        if (!patterns[i].isEmpty()) {
            filters->append(ZString("+") + patterns[i] + "\n");
        }
    }
}

// Why nothing can be prepared; empty if it can.
ZString refusePreparation(int recording, const ZString& only) {
    if (ourIsAway) {
        return AWAY_REFUSAL;
    }
    if (recording != RECORDING_TRACES && recording != RECORDING_ALLOCATES) {
        return "No such recording";
    }
    if (!ourOptions->onDemand) {
        return only.isEmpty() ? "" : "Tracing of some classes alone needs the option 'ondemand'";
    }
    if (recording == RECORDING_ALLOCATES) {
        return only.isEmpty() ? "" : "Patterns are for tracing";
    }
    return (ourStatus & CPU_TIMES_BIT) != 0 ? ZString("CPU sampling or CPU tracing already started")
                                            : refuseCPUProfiling(CPU_TRACING);
}

ComingResult prepareRecordingCalls(JNIEnv* env, int recording, const ZString& only,
                                   const ZString* filters, int socket) {
    const bool traces = recording == RECORDING_TRACES;
    if (traces) {
        calibrateOnce(env);
    }
    // As the start will.
    const ZString text = filters != nullptr ? *filters
                         : traces           ? Filter::readFilterSpecFromFile(ourOptions->filters)
                                            : ZString();
    ourStarts++;
    LockHolder lock(ourCallSwitchLock);
    hold(env, recording, only);
    return switchOn(env, callsOf(recording), only, traces ? &text : nullptr, socket);
}

} // namespace

void takeRecordingCalls(JNIEnv* env, int recording, ZString* filters) {
    if (!ourOptions->onDemand || ourIsAway) {
        return;
    }
    ourStarts++;
    LockHolder lock(ourCallSwitchLock);
    const bool isCalibrating = recording == RECORDING_TRACES && getCalibration() == -1;
    Hold& held = holdOf(recording);
    const bool wasPrepared = held.isThere && !isCalibrating;
    if (wasPrepared) {
        held.isThere = false;
    } else {
        usersOf(recording)++;
    }
    const ZString only = isCalibrating ? ZString(CALIBRATION_CLASSES)
                         : wasPrepared ? held.only
                                       : ourOptions->traceOnly;
    if (filters != nullptr && !isCalibrating) {
        letIn(only, filters);
    }
    const bool done =
        runGuarded(VDK_HERE, [&] { switchOn(env, callsOf(recording), only, filters, 0); });
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
    if (usersOf(recording) == 0) {
        return; // a detach has dropped all
    }
    usersOf(recording)--;
    if (ourTracings == 0 && ourAllocationRecordings == 0) {
        switchOff(env);
    }
}

void dropRecordingCalls(JNIEnv* env) {
    ourStarts++;
    LockHolder lock(ourCallSwitchLock);
    ourTracingHold.isThere = false;
    ourAllocationHold.isThere = false;
    ourTracings = 0;
    ourAllocationRecordings = 0;
    switchOff(env);
}

void noteLoadedWhileCallsCome(const ZString& name) {
    if (ourCallsCome) {
        ourLoadedMeanwhile.add(name);
    }
}

// Classes, the time it took and the longest stop, in nanoseconds. Throws what refuses it.
jlongArray JNICALL VDK_CALLBACK_NATIVE(prepareRecording)(JNIEnv* env, jclass, jint recording,
                                                         jstring patterns, jstring filters,
                                                         jint socket) {
    return nativeResult<jlongArray>(env, VDK_HERE, nullptr, [&]() -> jlongArray {
        const ZString only = toZString(env, patterns);
        const ZString filterText = toZString(env, filters);
        const ZString refusal = refusePreparation(recording, only);
        if (!refusal.isEmpty()) {
            throwException(env, refusal.c_str());
            return nullptr;
        }
        ComingResult result;
        if (ourOptions->onDemand) {
            result = prepareRecordingCalls(env, recording, only,
                                           filters == nullptr ? nullptr : &filterText, socket);
        }
        const jlong values[] = {result.classes, result.tookNs, result.longestStopNs};
        jlongArray array = env->NewLongArray(3);
        if (array != nullptr) {
            env->SetLongArrayRegion(array, 0, 3, values);
        }
        return array;
    });
}
