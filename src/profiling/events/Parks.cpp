#include "profiling/events/Parks.h"

#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/EventGate.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "db/DB.h"
#include "db/WaitKinds.h"
#include "profiling/events/MonitorRows.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/VirtualThreads.h"

#include <cstring>

namespace {

using ParkFunction = void(JNICALL*)(JNIEnv*, jobject, jboolean, jlong);

char PARK[] = "park";
char PARK_SIGNATURE[] = "(ZJ)V";

// Two switches at once must not leave the older state behind. Whoever parks does not take it.
ZLock& ourBindLock = *new ZLock("ParksLock");
bool ourIsBound = false;
// The JVM's own; set before the native is taken over, and never changed.
ParkFunction ourOriginal = nullptr;

// References and fields of the JDK's classes, made once, ahead of ourOriginal.
jclass ourUnsafe = nullptr;
jclass ourSynchronizer = nullptr; // AbstractOwnableSynchronizer
jfieldID ourBlockerField = nullptr;
jfieldID ourOwnerField = nullptr;

// A reference that must not last as long as the thread is parked.
class LocalReference {
public:
    LocalReference(JNIEnv* jniEnv, jobject object) : env(jniEnv), reference(object) {}
    ~LocalReference() { env->DeleteLocalRef(reference); }
    LocalReference(const LocalReference&) = delete;
    LocalReference& operator=(const LocalReference&) = delete;
    jobject get() const { return reference; }

private:
    JNIEnv* env;
    jobject reference;
};

struct OpenPark {
    MonitorKey key = {0, 0, 0, 0}; // no waiter: not recorded
    int epoch = 0;
    long startNs = 0;
};

// Who parks because of the blocker, for which other thread.
struct ParkedFor {
    bool isOwned = false;   // by a thread that can be named
    bool isVirtual = false; // which is a virtual one
};

ParkedFor getOwnerKind(JNIEnv* env, jobject owner) {
    ParkedFor kind;
    kind.isVirtual = owner != nullptr && isVirtualThread(env, owner);
    kind.isOwned = kind.isVirtual || MonitorRows::isKnownThread(owner);
    return kind;
}

int getOwnerTRN(jobject owner, const ParkedFor& kind, const ThreadInfo* waiter, int className) {
    if (kind.isVirtual) {
        return getVirtualThreadsInfo()->trn;
    }
    if (kind.isOwned) {
        const int trn = MonitorRows::getTRN(owner);
        return trn == waiter->trn ? 0 : trn;
    }
    return isBlockerOfIdleThreads(ourDB->stringPool->getText(className)) ? waiter->trn : 0;
}

int getBlockerName(JNIEnv* env, jobject blocker) {
    return blocker == nullptr ? MonitorRows::names().getNameStrID(NO_BLOCKER)
                              : MonitorRows::names().getClassNameStrID(env, blocker);
}

// The current thread, if what it waits for is recorded. Carriers park when no virtual thread has
// work, or in the midst of mounting one, when no lock may be waited for.
const ThreadInfo* getWaiter() {
    if (!MonitorRows::isRecording() || getJVMTIPhase() != JVMTI_PHASE_LIVE) {
        return nullptr;
    }
    const ThreadInfo* info = getStoredThreadInfo(nullptr);
    const bool isLeftOut = info == nullptr || info->agentThread || info->carrierThread;
    return isLeftOut || MonitorRows::isTestOnly() ? nullptr : info;
}

// While the thread would wait anyway: the work is not in the way of who gets the lock next.
void begin(JNIEnv* env, OpenPark* park) {
    const ThreadInfo* waiter = getWaiter();
    jthread current = nullptr;
    if (waiter == nullptr || ourJVMTI->GetCurrentThread(&current) != JVMTI_ERROR_NONE) {
        return;
    }
    const LocalReference thread(env, current);
    const LocalReference blocker(env, env->GetObjectField(current, ourBlockerField));
    const bool hasOwner =
        blocker.get() != nullptr && env->IsInstanceOf(blocker.get(), ourSynchronizer) == JNI_TRUE;
    const LocalReference owner(env, hasOwner ? env->GetObjectField(blocker.get(), ourOwnerField)
                                             : nullptr);
    const ParkedFor kind = getOwnerKind(env, owner.get());
    LockHolder lock(ourLock);
    const int frame = MonitorRows::isRecording() ? MonitorRows::getCurrentFrame(env) : 0;
    const int name = frame == 0 ? 0 : getBlockerName(env, blocker.get());
    if (name != 0) {
        park->key = {waiter->trn, getOwnerTRN(owner.get(), kind, waiter, name), name, frame};
        park->epoch = MonitorRows::getEpoch();
        MonitorRows::getRow(park->key);
    }
}

void end(const OpenPark& park) {
    const long timeNs = getTimeNs() - park.startNs;
    LockHolder lock(ourLock);
    // What the key names may be gone by now.
    if (MonitorRows::isRecording() && MonitorRows::getEpoch() == park.epoch) {
        MonitorRows::add(park.key, timeNs);
    }
}

void JNICALL recordedPark(JNIEnv* env, jobject unsafe, jboolean isAbsolute, jlong time) {
    OpenPark park;
    if (MonitorRows::isRecording()) {
        handleEvent(env, VDK_HERE, [&] { begin(env, &park); });
        park.startNs = getTimeNs();
    }
    ourOriginal(env, unsafe, isAbsolute, time);
    if (park.key.a != 0) {
        handleEvent(env, VDK_HERE, [&] { end(park); });
    }
}

// Stands in the place of RegisterNatives while the JDK's own class registers its natives: nothing
// is bound, but the address of one is learned.
jint JNICALL learnPark(JNIEnv*, jclass, const JNINativeMethod* methods, jint count) {
    for (jint i = 0; i < count; i++) {
        if (strcmp(methods[i].name, PARK) == 0 &&
            strcmp(methods[i].signature, PARK_SIGNATURE) == 0) {
            ourOriginal = reinterpret_cast<ParkFunction>(methods[i].fnPtr);
        }
    }
    return JNI_OK;
}

// Has the class register its natives once more, with the functions of this thread alone replaced.
void askForPark(JNIEnv* env, jmethodID registerNatives) {
    // In as many entries as the running JVM has.
    JvmtiMemory<jniNativeInterface> functions;
    CHECK_JVMTI(ourJVMTI->GetJNIFunctionTable(functions.receive()));
    functions.get()->RegisterNatives = learnPark;
    const JNINativeInterface_* const usual = env->functions;
    env->functions = functions.get();
    env->CallStaticVoidMethod(ourUnsafe, registerNatives);
    env->functions = usual;
    logPendingException(env, "Parks are not recorded");
}

jclass findLasting(JNIEnv* env, const char* name) {
    jclass type = env->FindClass(name);
    if (type == nullptr) {
        return nullptr;
    }
    const jobject lasting = env->NewGlobalRef(type);
    env->DeleteLocalRef(type);
    return static_cast<jclass>(lasting);
}

// Without what it looks for an exception is pending.
bool findClassesAndFields(JNIEnv* env) {
    if (ourUnsafe == nullptr &&
        (ourUnsafe = findLasting(env, "jdk/internal/misc/Unsafe")) == nullptr) {
        return false;
    }
    if (ourSynchronizer == nullptr) {
        ourSynchronizer =
            findLasting(env, "java/util/concurrent/locks/AbstractOwnableSynchronizer");
    }
    if (ourSynchronizer == nullptr) {
        return false;
    }
    ourOwnerField = env->GetFieldID(ourSynchronizer, "exclusiveOwnerThread", "Ljava/lang/Thread;");
    if (ourOwnerField == nullptr) {
        return false;
    }
    jclass thread = env->FindClass("java/lang/Thread");
    if (thread != nullptr) {
        ourBlockerField = env->GetFieldID(thread, "parkBlocker", "Ljava/lang/Object;");
        env->DeleteLocalRef(thread);
    }
    return ourBlockerField != nullptr;
}

// Whether the JVM's function is known; otherwise an exception may be pending.
bool findPark(JNIEnv* env) {
    if (ourOriginal == nullptr && findClassesAndFields(env)) {
        jmethodID registerNatives = env->GetStaticMethodID(ourUnsafe, "registerNatives", "()V");
        if (registerNatives != nullptr) {
            askForPark(env, registerNatives);
        }
    }
    return ourOriginal != nullptr;
}

bool bindTo(JNIEnv* env, ParkFunction function) {
    const JNINativeMethod park = {PARK, PARK_SIGNATURE, reinterpret_cast<void*>(function)};
    return env->RegisterNatives(ourUnsafe, &park, 1) == JNI_OK;
}

} // namespace

void Parks::bind(JNIEnv* env) {
    LockHolder lock(ourBindLock);
    const bool isWanted = MonitorRows::isRecording() && !ourOptions->noParks;
    if (isWanted == ourIsBound) {
        return;
    }
    if (findPark(env) && bindTo(env, isWanted ? recordedPark : ourOriginal)) {
        ourIsBound = isWanted;
    } else if (!logPendingException(env, "Parks are not recorded")) {
        Logger::message("Parks are not recorded: this JVM does not tell its native");
    }
}

void Parks::update(JNIEnv* env) {
    jmethodID method = env->GetStaticMethodID(ourClassCoreGlobalRef, "bindPark", "()V");
    if (method != nullptr) {
        env->CallStaticVoidMethod(ourClassCoreGlobalRef, method);
    }
    logPendingException(env, "Parks are not recorded");
}
