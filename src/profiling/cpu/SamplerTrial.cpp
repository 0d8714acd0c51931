#include "profiling/cpu/SamplerTrial.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "platform/Platform.h"
#include "platform/ThreadTimers.h"
#include "profiling/cpu/SampledThreads.h"
#include "profiling/threads/ThreadInfo.h"

#include <climits>
#include <cstdlib>

namespace {

const char SPINNER[] = "com/vandrik/runtime/SamplerTrial";
const jint ROUNDS = 20000;
const long PERIOD_NS = 1000000;
// A signal comes with the kernel's tick, every 1 to 10 ms.
const long MOST_CPU_NS = 200000000;
const int MOST_SAMPLES = 8;

// JVMs in which it is not used, by the beginning of java.vm.name and the release of Java. Null
// stands for every name.
struct RefusedJvm {
    const char* name;
    int firstRelease;
    int lastRelease;
    const char* reason;
};
const RefusedJvm REFUSED[] = {
    {"Eclipse OpenJ9", 0, INT_MAX, "OpenJ9 has no AsyncGetCallTrace"},
    {"IBM J9", 0, INT_MAX, "J9 has no AsyncGetCallTrace"},
    {"Oracle JRockit", 0, INT_MAX, "JRockit has no AsyncGetCallTrace"},
    {nullptr, 0, 16, "AsyncGetCallTrace was not tried with JVMs before 17"},
    {nullptr, 19, 20,
     "AsyncGetCallTrace was not tried with the previews of virtual threads of 19 and 20"},
};

// The thread under trial, which has no row.
class TriedThread {
public:
    TriedThread() {
        LockHolder lock(ourLock);
        sampled =
            SampledThreads::add(ourVMStartThread, Platform::getCurrentThreadNativeID(), PERIOD_NS);
    }
    ~TriedThread() {
        if (sampled != nullptr) {
            LockHolder lock(ourLock);
            SampledThreads::remove(sampled);
        }
    }
    TriedThread(const TriedThread&) = delete;
    TriedThread& operator=(const TriedThread&) = delete;

    bool hasTimer() const { return sampled != nullptr; }

    // Takes the samples that came; true if one of them has a stack.
    bool look() {
        bool isWalked = false;
        InterruptedStacks::takeOut([&](InterruptedStack* stack) {
            if (stack->slot != sampled->number) {
                return false;
            }
            samples++;
            lastCode = stack->code;
            isWalked = isWalked || stack->code > 0;
            InterruptedStacks::giveBack(stack);
            return true;
        });
        return isWalked;
    }

    int samples = 0;
    int lastCode = 0;

private:
    SampledThread* sampled;
};

} // namespace

int SamplerTrial::getRelease() {
    const ZString version = getSystemProperty("java.vm.specification.version");
    const int first = atoi(version.c_str());
    return first == 1 ? atoi(version.c_str() + 2) : first; // 1.8
}

ZString SamplerTrial::refuseJvm() {
    const ZString name = getSystemProperty("java.vm.name");
    const int release = getRelease();
    for (const RefusedJvm& row : REFUSED) {
        if ((row.name == nullptr || name.startsWith(row.name)) && release >= row.firstRelease &&
            release <= row.lastRelease) {
            return row.reason;
        }
    }
    return "";
}

ZString SamplerTrial::run(JNIEnv* env) {
    jclass spinner = findClass(env, SPINNER);
    jmethodID spin = env->GetStaticMethodID(spinner, "spin", "(I)I");
    ASSERT_JNI(env);
    TriedThread thread;
    if (!thread.hasTimer()) {
        return "the system gives no timer on a thread's CPU clock";
    }
    bool isWalked = false;
    const long start = Platform::currentThreadCPUTimeNs();
    while (!isWalked && thread.samples < MOST_SAMPLES &&
           Platform::currentThreadCPUTimeNs() - start < MOST_CPU_NS) {
        env->CallStaticIntMethod(spinner, spin, ROUNDS);
        ASSERT_JNI(env);
        isWalked = thread.look();
    }
    env->DeleteLocalRef(spinner);
    if (isWalked) {
        return "";
    }
    return thread.samples == 0
               ? ZString("no signal came to a thread that ran")
               : ZString("the JVM cannot walk the stack of a thread that runs; its code: ") +
                     longToString(thread.lastCode);
}
