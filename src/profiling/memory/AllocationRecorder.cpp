#include "profiling/memory/AllocationRecorder.h"

#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/ConsumedEvents.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "probes/SignatureUtil.h"
#include "profiling/UserMessage.h"
#include "profiling/cpu/Tracing.h"
#include "profiling/memory/LiveAllocations.h"
#include "profiling/memory/ObjectEnumerator.h"
#include "profiling/threads/CarrierThread.h"
#include "profiling/threads/MethodLookup.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/ZFrameStorage.h"

#include <atomic>

AllocationSettings ourAllocationRecordingSettings = {};

namespace {

const char CANNOT_START[] = "Cannot start allocation recording";
const char ALREADY_STARTED[] = "Already started";
const char INIT_METHOD[] = "<<init>>";
const char NO_PARAMETERS[] = "()";
// Where the figures are estimates, a property holds the interval of the sampling.
const char INTERVAL_PROPERTY[] = "vdk.allocation.sampling.interval.bytes";
constexpr jlong LOW_WORD = 0xFFFFFFFF;

// Objects that arrived, recorded or not. It may wrap around.
std::atomic<unsigned> ourArrivedObjects{0};
// Bytes between two samples, 0 in the exact mode. Written with recording off.
std::atomic<int> ourSamplingInterval{0};

bool isRecording() {
    return (ourStatus.load(std::memory_order_acquire) & ALLOCATION_RECORDING_BIT) != 0;
}

// The phase of the JVM, which is asked only around its start and end.
int currentPhase() {
    return ourVMInitCalled && !ourVMDeathCalled ? static_cast<int>(JVMTI_PHASE_LIVE)
                                                : getJVMTIPhase();
}

// Counts this object, and tells it from those that are not recorded. Most are not, so the JVM is
// asked for the size only where it decides something.
bool isRecorded(jobject object, jlong* size) {
    const AllocationSettings& settings = ourAllocationRecordingSettings;
    const int arrived = static_cast<int>(++ourArrivedObjects);
    // Settings change while late calls of an earlier recording are under way.
    const int each = settings.recordEach;
    const bool isNth = settings.recordEachEnabled && each > 0 && arrived % each == 0;
    if (!isNth && !settings.sizeLimitEnabled) {
        return false;
    }
    CHECK_JVMTI(ourJVMTI->GetObjectSize(object, size));
    return isNth || settings.sizeLimit <= *size;
}

// The frame below the given one that stands for the class of the object.
int classFrame(JNIEnv* env, jobject object, int frame) {
    jclass type = env->GetObjectClass(object);
    JvmtiMemory<char> signature;
    const jvmtiError error = ourJVMTI->GetClassSignature(type, signature.receive(), nullptr);
    env->DeleteLocalRef(type);
    CHECK_JVMTI(error);
    const ZString name = SignatureUtil::convertClassSignatureToFullName(signature.get());
    return ourFrameStorage.getChild(frame,
                                    ZMethod::getByName(name.c_str(), INIT_METHOD, NO_PARAMETERS));
}

int findFrame(JNIEnv* env, int phase, int frameHint) {
    if (phase == JVMTI_PHASE_START) {
        return ourFrameStorage.getVMStartFrame();
    }
    if (frameHint != -1) {
        return frameHint;
    }
    const int frame = ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
    Logger::assertNotEquals(frame, -1, VDK_HERE);
    return frame;
}

// Adds the object, which stands for so many, to its row. Gives its new tag, 0 for none. Caller
// holds ourLock.
int store(JNIEnv* env, ThreadInfo* info, jobject object, int frame, long objects, long bytes) {
    if (ourAllocationRecordingSettings.perClassGarbage) {
        frame = classFrame(env, object, frame);
    }
    const int tag = ourObjectEnumerator.store_allocation_info(info, frame, objects, bytes);
    AllocInfoRecord* row = info->getAllocInfo(frame);
    row->objectCount += objects;
    row->objectBytes += bytes;
    row->stamp = ourDB->currentStamp;
    return tag;
}

// A generation that was opened since the object was made stays in the high word.
void setTag(jobject object, jlong oldTag, int tag) {
    const jlong high = oldTag & ~LOW_WORD;
    const jvmtiError error = ourJVMTI->SetTag(object, high | tag);
    if (error != JVMTI_ERROR_NONE) {
        ourObjectEnumerator.return_tag_to_pool(tag);
        CHECK_JVMTI(error);
    }
}

// Whether the object reached recording by another road already: one row an object.
bool hasRow(jlong tag) {
    return static_cast<int>(tag & LOW_WORD) > 0;
}

// The current thread's, or that of the thread that carries it. Null if the agent knows neither.
ThreadInfo* askForThread() {
    ThreadInfo* const info = getStoredThreadInfo(nullptr);
    if (info == nullptr) {
        return getCarrierThreadInfo();
    }
    if (info->carrierThread) {
        // What it allocates itself is the JVM's work for virtual threads, in the midst of which no
        // lock may be waited for.
        return nullptr;
    }
    setNativeThreadInfo(info); // it began before the agent
    return info;
}

// Null for threads whose objects aren't recorded.
ThreadInfo* getRecordedThread(int phase) {
    ThreadInfo* info = phase == JVMTI_PHASE_START ? ourVMStartThread : getNativeThreadInfo();
    // A thread that carries others may be one of them now.
    if (info == nullptr || info->carrierThread) {
        info = askForThread();
    }
    return info == nullptr || info->agentThread ? nullptr : info;
}

// A deterministic one of the numbers next to it, so that sums come out right.
long roundByChance(double value) {
    static unsigned long state = 0x9E3779B97F4A7C15;
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    const long whole = static_cast<long>(value);
    const double chance = static_cast<double>(state >> 11) / static_cast<double>(1UL << 53);
    return whole + (chance < value - static_cast<double>(whole) ? 1 : 0);
}

void recordSampled(JNIEnv* env, jobject object, jlong size) {
    const int interval = ourSamplingInterval;
    if (!isRecording() || interval <= 0 || currentPhase() != JVMTI_PHASE_LIVE) {
        return;
    }
    ThreadInfo* const info = getRecordedThread(JVMTI_PHASE_LIVE);
    if (info == nullptr) {
        return;
    }
    jlong oldTag = 0;
    CHECK_JVMTI(ourJVMTI->GetTag(object, &oldTag));
    const double weight = sampledWeight(size, interval);
    int tag = 0;
    {
        LockHolder lock(ourLock);
        if (ourVMDeathCalled || hasRow(oldTag)) {
            return;
        }
        const int frame = ourFrameStorage.fillCurrentFrameJVMTI(env, nullptr);
        if (frame <= 0) {
            return;
        }
        tag = store(env, info, object, frame, roundByChance(weight),
                    roundByChance(weight * static_cast<double>(size)));
    }
    setTag(object, oldTag, tag);
}

void JNICALL vm_object_alloc_handler(jvmtiEnv*, JNIEnv* env, jthread, jobject object, jclass,
                                     jlong) {
    handleEvent(env, VDK_HERE, [&] { vdkInitImpl(env, object, -1); });
}

void JNICALL sampled_object_alloc_handler(jvmtiEnv*, JNIEnv* env, jthread, jobject object, jclass,
                                          jlong size) {
    handleEvent(env, VDK_HERE, [&] { recordSampled(env, object, size); });
}

// May come on a thread that walks the heap and holds ourLock; it is not asked for here.
void JNICALL object_free_handler(jvmtiEnv*, jlong tag) {
    const int row = static_cast<int>(tag & LOW_WORD);
    if (row >= 1) {
        runGuarded(VDK_HERE, [&] { ourObjectEnumerator.return_tag_to_pool(row); });
    }
}

void switchEvent(jvmtiEvent event, bool isOn) {
    CHECK_JVMTI(
        ourJVMTI->SetEventNotificationMode(isOn ? JVMTI_ENABLE : JVMTI_DISABLE, event, nullptr));
}

jvmtiCapabilities samplingCapability() {
    jvmtiCapabilities capabilities = {};
    capabilities.can_generate_sampled_object_alloc_events = 1;
    return capabilities;
}

// One environment has the capability at a time: it is kept only while it is used.
bool takeSampling(int interval) {
    const jvmtiCapabilities wanted = samplingCapability();
    if (ourJVMTI->AddCapabilities(&wanted) != JVMTI_ERROR_NONE) {
        return false;
    }
    if (ourJVMTI->SetHeapSamplingInterval(interval) != JVMTI_ERROR_NONE) {
        CHECK_JVMTI(ourJVMTI->RelinquishCapabilities(&wanted));
        return false;
    }
    return true;
}

void storeIntervalProperty(int interval) {
    const int name = ourDB->stringPool->getDBIndex(INTERVAL_PROPERTY, true);
    if (interval != 0 || ourDB->findPropertyRecordIndex(name) != -1) {
        ourDB->setProperty(INTERVAL_PROPERTY, interval);
    }
}

// The events and the bit, under ourLock. Empty or the reason why not.
ZString enterRecording(const AllocationSettings& settings, int interval) {
    LockHolder lock(ourLock, "CoreNatives:186");
    if (ourIsAway) {
        return AWAY_REFUSAL;
    }
    if (isRecording()) {
        return ALREADY_STARTED;
    }
    if (interval != 0) {
        if (!takeSampling(interval)) {
            return "The JVM samples no allocations, or does so for another agent";
        }
        storeIntervalProperty(interval);
    }
    LiveAllocations::start();
    ourAllocationRecordingSettings = settings;
    ourSamplingInterval = interval;
    ourHasTaggedObjects = true;
    ourStatus |= ALLOCATION_RECORDING_BIT;
    switchEvent(interval == 0 ? JVMTI_EVENT_VM_OBJECT_ALLOC : JVMTI_EVENT_SAMPLED_OBJECT_ALLOC,
                true);
    return ZString();
}

ZString tellRefusal(JNIEnv* env, const ZString& reason) {
    userMessage(env, CANNOT_START, reason);
    return ZString(CANNOT_START) + ": " + reason;
}

ZString toText(const AllocationSettings& settings) {
    const auto text = [](bool value) { return value ? "true" : "false"; };
    return ZString("recordEachEnabled=") + text(settings.recordEachEnabled) +
           " recordEach=" + longToString(settings.recordEach) +
           " sizeLimitEnabled=" + text(settings.sizeLimitEnabled) +
           " sizeLimit=" + longToString(settings.sizeLimit) +
           " perClassGarbage=" + text(settings.perClassGarbage);
}

} // namespace

double sampledWeight(long size, int intervalBytes) {
    // 1 - e^(-x) by its series for a small part of x, and from there by 1 - (1-p)^2 = p(2-p).
    double x = static_cast<double>(size) / intervalBytes;
    int halvings = 0;
    while (x > 1.0 / 16) {
        x /= 2;
        halvings++;
    }
    double chance = x * (1 - x / 2 * (1 - x / 3 * (1 - x / 4 * (1 - x / 5))));
    for (; halvings > 0; halvings--) {
        chance = chance * (2 - chance);
    }
    return chance > 0 ? 1 / chance : 0;
}

int vdkInitImpl(JNIEnv* env, jobject object, int frameHint) {
    if (!isRecording() || ourSamplingInterval.load(std::memory_order_relaxed) != 0) {
        return frameHint;
    }
    const int phase = currentPhase();
    if (phase != JVMTI_PHASE_LIVE && phase != JVMTI_PHASE_START) {
        return frameHint;
    }
    ThreadInfo* const info = getRecordedThread(phase);
    if (info == nullptr) {
        return frameHint;
    }
    Logger::assertNotNULL(env, VDK_HERE);
    Logger::assertNotNULL(object, VDK_HERE);
    // Most objects are only counted, and wait for nobody.
    jlong size = 0;
    if (ourVMDeathCalled || !isRecorded(object, &size)) {
        return frameHint;
    }
    jlong oldTag = 0;
    CHECK_JVMTI(ourJVMTI->GetTag(object, &oldTag));
    if (hasRow(oldTag)) {
        return frameHint;
    }
    int frame = 0;
    int tag = 0;
    {
        LockHolder lock(ourLock, "Instrumentation:530");
        if (ourVMDeathCalled) {
            return frameHint;
        }
        frame = findFrame(env, phase, frameHint);
        if (frame == 0) {
            return 0;
        }
        tag = store(env, info, object, frame, 1, size);
    }
    setTag(object, oldTag, tag);
    return frame;
}

ZString startAllocationRecording(JNIEnv* env, const AllocationSettings& settings) {
    if ((ourCapabilities & CAPABILITY_CAN_RECORD_ALLOCATIONS) == 0) {
        return "Object allocation recording was explicitly disabled for this application on its "
               "startup";
    }
    if (settings.recordEachEnabled && settings.recordEach <= 0) {
        return ZString("Incorrect value passed for 'recordEach':") +
               longToString(settings.recordEach);
    }
    if (settings.sizeLimitEnabled && settings.sizeLimit < 0) {
        return ZString("Incorrect value passed for 'sizeLimit':") +
               longToString(settings.sizeLimit);
    }
    TakenCalls calls(env, isRecording() ? 0 : RECORDING_ALLOCATES, nullptr);
    const ZString refusal = enterRecording(settings, 0);
    if (!refusal.isEmpty()) {
        return tellRefusal(env, refusal);
    }
    calls.keep();
    ourTracingSwitch.redefineCallback(env);
    ourTracingSwitch.retransformLoadedClasses(env, nullptr);
    userMessage(env, "Allocation recording started", toText(settings));
    return ZString();
}

ZString startSampledAllocationRecording(JNIEnv* env, int intervalBytes, bool perClassGarbage) {
    if (intervalBytes <= 0) {
        return ZString("Incorrect value passed for 'interval':") + longToString(intervalBytes);
    }
    const ZString refusal = enterRecording({false, 0, false, 0, perClassGarbage}, intervalBytes);
    if (!refusal.isEmpty()) {
        return tellRefusal(env, refusal);
    }
    userMessage(env, "Sampled allocation recording started",
                ZString("interval=") + longToString(intervalBytes));
    return ZString();
}

void stopAllocationRecording(JNIEnv* env) {
    bool sampled = false;
    {
        LockHolder lock(ourLock);
        if (!isRecording()) {
            return;
        }
        ourStatus &= ~ALLOCATION_RECORDING_BIT;
        sampled = ourSamplingInterval != 0;
        switchEvent(sampled ? JVMTI_EVENT_SAMPLED_OBJECT_ALLOC : JVMTI_EVENT_VM_OBJECT_ALLOC,
                    false);
        if (sampled) {
            const jvmtiCapabilities given = samplingCapability();
            CHECK_JVMTI(ourJVMTI->RelinquishCapabilities(&given));
        }
    }
    if (!sampled) {
        ourTracingSwitch.redefineCallback(env);
        if (ourTracingSwitch.giveCalls != nullptr) {
            ourTracingSwitch.giveCalls(env, RECORDING_ALLOCATES);
        }
    }
    userMessage(env, "Allocation recording stopped");
}

void clearAllocationData(JNIEnv* env) {
    {
        LockHolder lock(ourLock);
        ourObjectEnumerator.clearAllocators();
        LiveAllocations::clear();
        ourDB->clearTableAndTellReaders(SLOT_AllocInfo);
        storeIntervalProperty(isRecording() ? ourSamplingInterval.load() : 0);
    }
    userMessage(env, "Allocation data cleared");
}

void installAllocationRecording() {
    ourConsumedEvents.vmObjectAlloc = vm_object_alloc_handler;
    ourConsumedEvents.sampledObjectAlloc = sampled_object_alloc_handler;
    ourConsumedEvents.objectFree = object_free_handler;
}
