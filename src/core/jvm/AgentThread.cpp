#include "core/jvm/AgentThread.h"

#include "core/ground/Guard.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "platform/Platform.h"

namespace {

const jint AGENT_THREAD_PRIORITY = 10;
constexpr long LOOK_MS = 10;

// Not started, as a local reference.
jthread createThread(JNIEnv* env, const char* name) {
    jclass threadClass = findClass(env, "java/lang/Thread");
    jmethodID constructor = env->GetMethodID(threadClass, "<init>", "(Ljava/lang/String;)V");
    ASSERT_JNI(env);
    jstring javaName = toJavaString(env, name);
    ASSERT_JNI(env);
    jthread thread = env->NewObject(threadClass, constructor, javaName);
    ASSERT_JNI(env);
    env->DeleteLocalRef(javaName);
    env->DeleteLocalRef(threadClass);
    return thread;
}

// A thread that runs. The JVM lists none of them to Java code.
struct AgentThread {
    jvmtiStartFunction body;
    const void* argument;
    ZString name;
    jobject thread; // global reference
    bool isWoken;
};

ZLock& ourThreadsLock = *new ZLock("AgentThreadsLock");
ZVector<AgentThread*>& ourThreads = *new ZVector<AgentThread*>();

void forget(JNIEnv* env, AgentThread* thread) {
    {
        LockHolder lock(ourThreadsLock);
        for (int i = ourThreads.getSize() - 1; i >= 0; i--) {
            if (ourThreads[i] == thread) {
                ourThreads.removeRange(i, i + 1);
            }
        }
    }
    env->DeleteGlobalRef(thread->thread);
    delete thread;
}

void JNICALL thread_entry(jvmtiEnv* jvmti, JNIEnv* env, void* argument) {
    auto* const thread = static_cast<AgentThread*>(argument);
    thread->body(jvmti, env, const_cast<void*>(thread->argument));
    runGuarded(VDK_HERE, [&] { forget(env, thread); });
}

// The names of those that run; local references to those that were not woken yet.
ZString listThreads(JNIEnv* env, ZVector<jobject>* toWake) {
    ZString names;
    LockHolder lock(ourThreadsLock);
    for (int i = 0; i < ourThreads.getSize(); i++) {
        names.append(names.isEmpty() ? "" : ", ");
        names.append(ourThreads[i]->name);
        if (!ourThreads[i]->isWoken) {
            ourThreads[i]->isWoken = true;
            toWake->push(env->NewLocalRef(ourThreads[i]->thread));
        }
    }
    return names;
}

// Who waits on a raw monitor ends the wait.
void wake(JNIEnv* env, const ZVector<jobject>& threads) {
    if (threads.isEmpty()) {
        return;
    }
    jclass threadClass = findClass(env, "java/lang/Thread");
    jmethodID interrupt = env->GetMethodID(threadClass, "interrupt", "()V");
    ASSERT_JNI(env);
    for (int i = 0; i < threads.getSize(); i++) {
        env->CallVoidMethod(threads[i], interrupt);
        ASSERT_JNI(env);
        env->DeleteLocalRef(threads[i]);
    }
    env->DeleteLocalRef(threadClass);
}

} // namespace

void runAgentThread(JNIEnv* env, const char* name, jvmtiStartFunction body, const void* argument) {
    jthread thread = createThread(env, name);
    auto* const started =
        new AgentThread{body, argument, ZString(name), env->NewGlobalRef(thread), false};
    {
        LockHolder lock(ourThreadsLock);
        ourThreads.push(started);
    }
    const jvmtiError error =
        ourJVMTI->RunAgentThread(thread, thread_entry, started, AGENT_THREAD_PRIORITY);
    env->DeleteLocalRef(thread);
    if (error != JVMTI_ERROR_NONE) {
        forget(env, started);
        CHECK_JVMTI(error);
    }
}

ZString awaitAgentThreads(JNIEnv* env, long limitMs) {
    for (long waitedMs = 0;; waitedMs += LOOK_MS) {
        ZVector<jobject> toWake;
        const ZString names = listThreads(env, &toWake);
        wake(env, toWake);
        if (names.isEmpty() || waitedMs >= limitMs) {
            return names;
        }
        Platform::sleepMicroseconds(static_cast<unsigned>(LOOK_MS) * 1000);
    }
}

const void* presentStay() {
    return reinterpret_cast<const void*>(static_cast<intptr_t>(ourStay));
}

bool isStayOver(const void* stay) {
    return stay != presentStay();
}
