#include "core/jvm/AgentThread.h"

#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"

namespace {

const jint AGENT_THREAD_PRIORITY = 10;

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

} // namespace

void runAgentThread(JNIEnv* env, const char* name, jvmtiStartFunction body, const void* argument) {
    jthread thread = createThread(env, name);
    CHECK_JVMTI(ourJVMTI->RunAgentThread(thread, body, argument, AGENT_THREAD_PRIORITY));
    env->DeleteLocalRef(thread);
}
