#include "core/jvm/JNIUtils.h"

#include "core/ground/Exceptions.h"
#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/ground/Utf16.h"

#include <atomic>
#include <cstdlib>

namespace {

const char ASSERTION_TEXT[] = "assertion failed in native code; see agent log for detail";

// Found once; kept for the life of the process.
std::atomic<jclass> ourRuntimeExceptionClass{nullptr};

jclass getRuntimeExceptionClass(JNIEnv* env) {
    jclass known = ourRuntimeExceptionClass.load();
    if (known != nullptr) {
        return known;
    }
    jclass local = env->FindClass("java/lang/RuntimeException");
    if (local == nullptr) {
        return nullptr;
    }
    jclass global = static_cast<jclass>(env->NewGlobalRef(local));
    env->DeleteLocalRef(local);
    if (!ourRuntimeExceptionClass.compare_exchange_strong(known, global)) {
        env->DeleteGlobalRef(global);
        return known;
    }
    return global;
}

// The result of a String method without arguments; empty when any step fails.
ZString callStringMethod(JNIEnv* env, jobject object, const char* className, const char* method) {
    jclass type = env->FindClass(className);
    jmethodID id =
        type == nullptr ? nullptr : env->GetMethodID(type, method, "()Ljava/lang/String;");
    jstring result = nullptr;
    if (id != nullptr) {
        result = static_cast<jstring>(env->CallObjectMethod(object, id));
    }
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        result = nullptr;
    }
    ZString text = toZString(env, result);
    env->DeleteLocalRef(result);
    env->DeleteLocalRef(type);
    return text;
}

} // namespace

ZString getExceptionMessage(JNIEnv* env, jthrowable exception) {
    if (exception == nullptr) {
        return ZString();
    }
    jclass type = env->GetObjectClass(exception);
    ZString text = callStringMethod(env, type, "java/lang/Class", "getName");
    env->DeleteLocalRef(type);
    const ZString message = callStringMethod(env, exception, "java/lang/Throwable", "getMessage");
    if (!message.isEmpty()) {
        text.append(": ");
        text.append(message);
    }
    return text;
}

bool logPendingException(JNIEnv* env, const char* what) {
    jthrowable exception = env->ExceptionOccurred();
    if (exception == nullptr) {
        return false;
    }
    env->ExceptionClear();
    Logger::message(ZString(what) + ": " + getExceptionMessage(env, exception));
    env->DeleteLocalRef(exception);
    return true;
}

void assertJNIImpl(JNIEnv* env, const char* file, int line) {
    jthrowable exception = env->ExceptionOccurred();
    if (exception == nullptr) {
        return;
    }
    // First, as all that follows may lack the memory and leave.
    env->ExceptionClear();
    Logger::message(ZString("assertJNI failed at ") + Logger::place(file, line));
    Logger::message(getExceptionMessage(env, exception));
    if ((ourCapabilities & CAPABILITY_ATTACHED_AGENT) != 0 || ourOptions->optional ||
        ourMemoryRanOut) {
        // The application runs already: its heap may be full, which must end the attach alone; or
        // it is to run in any case. A lack of memory in a native, which Java saw as this exception,
        // ends no application either.
        env->DeleteLocalRef(exception);
        throw VDKRuntimeException();
    }
    exit(-1);
}

void throwException(JNIEnv* env, const char* message) {
    if (env->ExceptionCheck()) {
        return;
    }
    jclass type = getRuntimeExceptionClass(env);
    // Without the class the JVM has made an error of its own pending, which says more.
    if (type != nullptr) {
        env->ThrowNew(type, message);
    }
}

void throwException(JNIEnv* env, const char* message, int a, int b) {
    ZString text = ZString(message) + " (" + longToString(a) + ", " + longToString(b) + ")";
    throwException(env, text.c_str());
}

void throwExceptionAssertionFailed(JNIEnv* env) {
    throwException(env, ASSERTION_TEXT);
}

void announceLocalReferences(JNIEnv* env, jint count) {
    const jint usualCapacity = 64;
    if (env->EnsureLocalCapacity(count + usualCapacity) != JNI_OK) {
        env->ExceptionClear();
    }
}

jclass findClass(JNIEnv* env, const char* name) {
    jclass type = env->FindClass(name);
    ASSERT_JNI(env);
    return type;
}

JavaChars::JavaChars(JNIEnv* javaEnv, jstring javaText)
    : env(javaEnv), text(javaText),
      chars(javaText == nullptr ? nullptr : javaEnv->GetStringUTFChars(javaText, nullptr)) {}

JavaChars::~JavaChars() {
    if (chars != nullptr) {
        env->ReleaseStringUTFChars(text, chars);
    }
}

ZString toZString(JNIEnv* env, jstring text) {
    JavaChars chars(env, text);
    return chars.get() == nullptr ? ZString() : ZString(chars.get());
}

ZString toPath(JNIEnv* env, jstring text) {
    const jsize length = text == nullptr ? 0 : env->GetStringLength(text);
    if (length == 0) {
        return ZString();
    }
    ZVector<jchar> chars(length);
    env->GetStringRegion(text, 0, length, chars.extend(length));
    for (jsize i = 0; i < length; i++) {
        Logger::assertTrue(chars[i] != 0, VDK_HERE);
    }
    return utf16ToUtf8(chars.data(), length);
}

jstring toJavaString(JNIEnv* env, const ZString& text) {
    if (isBeyondModifiedUtf8(text.c_str())) {
        ZVector<jchar> chars;
        utf8ToUtf16(text.c_str(), &chars);
        return env->NewString(chars.data(), chars.getSize());
    }
    return env->NewStringUTF(text.c_str());
}

jstring toJavaRefusal(JNIEnv* env, const ZString& refusal) {
    return refusal.isEmpty() ? nullptr : toJavaString(env, refusal);
}

PendingException::PendingException(JNIEnv* javaEnv)
    : env(javaEnv), exception(javaEnv == nullptr ? nullptr : javaEnv->ExceptionOccurred()) {
    if (exception != nullptr) {
        env->ExceptionClear();
    }
}

PendingException::~PendingException() {
    if (env == nullptr) {
        return;
    }
    // What the body left behind, when memory ran out for instance, is nothing that the application
    // threw.
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
    }
    if (exception == nullptr) {
        return;
    }
    env->Throw(exception);
    env->DeleteLocalRef(exception);
}
