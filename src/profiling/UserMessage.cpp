#include "profiling/UserMessage.h"

#include "core/ground/Logger.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"

namespace {

// Calls Callback.message. False when some step fails; no exception is left pending.
bool callMessage(JNIEnv* env, const char* text, const ZString& detail) {
    jmethodID method = env->GetStaticMethodID(ourClassCallbackGlobalRef, "message",
                                              "(Ljava/lang/String;Ljava/lang/String;)V");
    jstring javaText = method == nullptr ? nullptr : env->NewStringUTF(text);
    jstring javaDetail =
        javaText == nullptr || detail.isEmpty() ? nullptr : toJavaString(env, detail);
    if (javaText != nullptr && !env->ExceptionCheck()) {
        env->CallStaticVoidMethod(ourClassCallbackGlobalRef, method, javaText, javaDetail);
    }
    const bool failed = env->ExceptionCheck();
    env->ExceptionClear();
    env->DeleteLocalRef(javaText);
    env->DeleteLocalRef(javaDetail);
    return !failed;
}

} // namespace

void userMessage(JNIEnv* env, const char* text, const ZString& detail) {
    if (env != nullptr && ourClassCoreGlobalRef != nullptr &&
        ourClassCallbackGlobalRef != nullptr && callMessage(env, text, detail)) {
        return;
    }
    Logger::message(detail.isEmpty() ? ZString(text) : ZString(text) + ": " + detail);
}
