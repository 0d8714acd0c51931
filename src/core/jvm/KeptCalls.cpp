#include "core/jvm/KeptCalls.h"

#include "core/ground/FilteredMethods.h"
#include "core/ground/Logger.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"

#include <cstddef>
#include <cstdlib>

namespace {

using KeptCalls::Run;

const int RUNS = 1 << 12;
const int RUN_SHIFT = 8;
static_assert(sizeof(Run) == 1 << RUN_SHIFT, "runs are found by a shift");

// What Callback.java has as well.
struct JavaConstant {
    const char* name;
    int value;
};
const JavaConstant JAVA_CONSTANTS[] = {
    {"MOST_METHODS", FilteredMethods::MOST_METHODS},
    {"RUN_MASK", RUNS - 1},
    {"RUN_SHIFT", RUN_SHIFT},
    {"OPEN", offsetof(Run, isOpen)},
    {"COUNT", offsetof(Run, count)},
    {"CALLS_UNTIL_LOOK", offsetof(Run, callsUntilLook)},
    {"METHODS", offsetof(Run, methods)},
    {"MOST_CALLS", Run::MOST_CALLS},
};

const char MEMORY_PACKAGE[] = "jdk.internal.misc";
const char MEMORY_PACKAGE_PATH[] = "jdk/internal/misc";
const jint FIRST_WITH_MODULES = 9;

std::atomic<bool> ourIsTried{false};
std::atomic<bool> ourIsReady{false};
Run* ourRuns = nullptr;
jfieldID ourThreadId = nullptr;

bool knowsModules() {
    jint version = 0;
    return ourJVMTI->GetVersionNumber(&version) == JVMTI_ERROR_NONE &&
           (version & JVMTI_VERSION_MASK_MAJOR) >> JVMTI_VERSION_SHIFT_MAJOR >= FIRST_WITH_MODULES;
}

bool openMemoryClass(JNIEnv* env) {
    jobject module = nullptr;
    if (ourJVMTI->GetNamedModule(nullptr, MEMORY_PACKAGE_PATH, &module) != JVMTI_ERROR_NONE ||
        module == nullptr) {
        return false;
    }
    announceLocalReferences(env, 1);
    const jobject own = env->GetModule(ourClassCallbackGlobalRef);
    const bool isOpen = own != nullptr &&
                        ourJVMTI->AddModuleExports(module, MEMORY_PACKAGE, own) == JVMTI_ERROR_NONE;
    env->DeleteLocalRef(own);
    env->DeleteLocalRef(module);
    return isOpen;
}

bool findThreadId(JNIEnv* env) {
    const jclass threads = env->FindClass("java/lang/Thread");
    ourThreadId = threads == nullptr ? nullptr : env->GetFieldID(threads, "tid", "J");
    const bool isMissing = env->ExceptionCheck();
    env->ExceptionClear();
    env->DeleteLocalRef(threads);
    return !isMissing && ourThreadId != nullptr;
}

// Never touched but where there are methods and threads.
bool makeRoom() {
    if (ourRuns == nullptr) {
        ourRuns = static_cast<Run*>(calloc(RUNS, sizeof(Run)));
    }
    return ourRuns != nullptr && FilteredMethods::bytes() != nullptr;
}

void compareWithJava(JNIEnv* env) {
    for (const JavaConstant& constant : JAVA_CONSTANTS) {
        const jfieldID field = env->GetStaticFieldID(ourClassCallbackGlobalRef, constant.name, "I");
        ASSERT_JNI(env);
        Logger::assertEquals(env->GetStaticIntField(ourClassCallbackGlobalRef, field),
                             constant.value, VDK_HERE);
    }
}

// Java tries by itself whether it can read there.
bool tellJava(JNIEnv* env) {
    const jmethodID method =
        env->GetStaticMethodID(ourClassCoreGlobalRef, "prepareKeptCalls", "(JJ)Z");
    const bool isDone = method != nullptr && env->CallStaticBooleanMethod(
                                                 ourClassCoreGlobalRef, method,
                                                 reinterpret_cast<jlong>(FilteredMethods::bytes()),
                                                 reinterpret_cast<jlong>(ourRuns)) != JNI_FALSE;
    return !logPendingException(env, "kept calls") && isDone;
}

} // namespace

void KeptCalls::prepare(JNIEnv* env) {
    if (ourIsTried.exchange(true)) {
        return;
    }
    compareWithJava(env);
    ourIsReady =
        knowsModules() && findThreadId(env) && makeRoom() && openMemoryClass(env) && tellJava(env);
    Logger::message(ourIsReady ? "CPU tracing: Java code keeps filtered calls"
                               : "CPU tracing: this JVM lets no Java code keep filtered calls");
}

bool KeptCalls::isReady() {
    return ourIsReady;
}

KeptCalls::Run* KeptCalls::claim(JNIEnv* env) {
    jthread thread = nullptr;
    if (ourJVMTI->GetCurrentThread(&thread) != JVMTI_ERROR_NONE || thread == nullptr) {
        return nullptr;
    }
    announceLocalReferences(env, 1);
    const long id = env->GetLongField(thread, ourThreadId);
    env->DeleteLocalRef(thread);
    Run* const run = ourRuns + id % RUNS;
    long expected = 0;
    if (id <= 0 || (!run->thread.compare_exchange_strong(expected, id) && expected != id)) {
        return nullptr;
    }
    run->shut();
    run->count = 0;
    return run;
}

void KeptCalls::release(Run* run) {
    if (run != nullptr) {
        run->shut();
        run->thread = 0;
    }
}

void KeptCalls::releaseAll() {
    for (int i = 0; i < RUNS && ourRuns != nullptr; i++) {
        release(ourRuns + i);
    }
}
