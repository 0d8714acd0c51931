// The natives that are too small to have an owner of their own: state of the agent, messages, and
// the object maps of probes.
#include "core/entry/JavaObjectMap.h"
#include "core/ground/CallbackNatives.h"
#include "core/ground/CommonUtils.h"
#include "core/ground/ConsumedEvents.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/JNIUtils.h"
#include "core/ground/JvmGlobals.h"
#include "core/ground/Options.h"
#include "platform/Platform.h"
#include "probes/SignatureUtil.h"

#define VDK_NATIVE(name) Java_com_vandrik_runtime_Callback_##name

namespace {

const char MESSAGES_CLASS[] = "com/vandrik/probes/builtin/Messages";
const char MESSAGES_SIGNATURE[] = "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)V";
const char MESSAGE_SOURCE[] = "Profiler";

// Runs the body of a native. After an internal error the caller gets a Java exception, and the
// native a zero.
template <typename Body>
void runNative(JNIEnv* env, int line, Body&& body) {
    if (!runGuarded("AgentNatives", line, body)) {
        throwExceptionAssertionFailed(env);
    }
}

void logPendingException(JNIEnv* env, const char* place) {
    jthrowable exception = env->ExceptionOccurred();
    if (exception == nullptr) {
        return;
    }
    env->ExceptionClear();
    Logger::message(ZString(place) + ": " + getExceptionMessage(env, exception));
    env->DeleteLocalRef(exception);
}

// Stores a row in the table of messages. The store must not be profiled as the caller's work.
void storeMessage(JNIEnv* env, jstring text, jstring detail) {
    jclass messages = env->FindClass(MESSAGES_CLASS);
    jmethodID method = messages == nullptr
                           ? nullptr
                           : env->GetStaticMethodID(messages, "message", MESSAGES_SIGNATURE);
    jstring source = method == nullptr ? nullptr : env->NewStringUTF(MESSAGE_SOURCE);
    if (source != nullptr) {
        VDK_NATIVE(setThreadTemporaryEnabled)(env, ourClassCallbackGlobalRef, JNI_TRUE);
        env->CallStaticVoidMethod(messages, method, source, text, detail);
        logPendingException(env, "message");
        VDK_NATIVE(setThreadTemporaryEnabled)(env, ourClassCallbackGlobalRef, JNI_FALSE);
    }
    logPendingException(env, "message");
    env->DeleteLocalRef(source);
    env->DeleteLocalRef(messages);
}

void writeLogMessage(JNIEnv* env, jstring text, jstring detail) {
    ZString line = toZString(env, text);
    if (detail != nullptr) {
        line.append(": ");
        line.append(toZString(env, detail));
    }
    Logger::message(line);
    storeMessage(env, text, detail);
}

void setExceptionTelemetry(JNIEnv* env, bool isOn, int line) {
    runNative(env, line, [&] {
        LockHolder lock(ourLock, "AgentNatives:exceptionTelemetry");
        if (isOn) {
            ourStatus |= EXCEPTION_TELEMETRY;
        } else {
            ourStatus &= ~EXCEPTION_TELEMETRY;
        }
        updateExceptionEvents();
    });
}

void print(JNIEnv* env, FILE* stream, jstring text, int line) {
    runNative(env, line, [&] {
        Logger::printToConsole(stream, toZString(env, text));
        fflush(stream);
    });
}

// The error text of a method pattern as a Java string, null when it is valid.
jstring validatePattern(JNIEnv* env, jstring pattern) {
    if (pattern == nullptr) {
        return toJavaString(env, "methodPattern is null");
    }
    ZString parts[6];
    const ZString error = SignatureUtil::parseMethodPattern(
        toZString(env, pattern), parts[0], parts[1], parts[2], parts[3], parts[4], parts[5]);
    return error.isEmpty() ? nullptr : toJavaString(env, error);
}

} // namespace

jlong JNICALL VDK_NATIVE(getCapabilities)(JNIEnv*, jclass) {
    return ourCapabilities;
}

jlong JNICALL VDK_NATIVE(getStatus)(JNIEnv*, jclass) {
    return ourStatus;
}

jint JNICALL VDK_NATIVE(getTelemetryPeriodMs)(JNIEnv*, jclass) {
    return ourOptions->telemetryPeriod;
}

jboolean JNICALL VDK_NATIVE(isIBM)(JNIEnv*, jclass) {
    return ourIsIBM ? JNI_TRUE : JNI_FALSE;
}

jint JNICALL VDK_NATIVE(getPhase)(JNIEnv*, jclass) {
    return getJVMTIPhase();
}

jint JNICALL VDK_NATIVE(getPID)(JNIEnv*, jclass) {
    return Platform::vdk_getpid();
}

void JNICALL VDK_NATIVE(message)(JNIEnv* env, jclass, jstring text, jstring detail) {
    runNative(env, __LINE__, [&] { writeLogMessage(env, text, detail); });
}

void JNICALL VDK_NATIVE(messageToLogFile)(JNIEnv* env, jclass, jstring text) {
    runNative(env, __LINE__, [&] { Logger::message(toZString(env, text)); });
}

void JNICALL VDK_NATIVE(messageToStderr)(JNIEnv* env, jclass, jstring text) {
    print(env, stderr, text, __LINE__);
}

void JNICALL VDK_NATIVE(messageToStdout)(JNIEnv* env, jclass, jstring text) {
    print(env, stdout, text, __LINE__);
}

void JNICALL VDK_NATIVE(enableExceptionTelemetry)(JNIEnv* env, jclass) {
    setExceptionTelemetry(env, true, __LINE__);
}

void JNICALL VDK_NATIVE(disableExceptionTelemetry)(JNIEnv* env, jclass) {
    setExceptionTelemetry(env, false, __LINE__);
}

jstring JNICALL VDK_NATIVE(validateMethodPattern)(JNIEnv* env, jclass, jstring pattern) {
    jstring result = nullptr;
    runNative(env, __LINE__, [&] { result = validatePattern(env, pattern); });
    return result;
}

jlong JNICALL VDK_NATIVE(createObjectMap)(JNIEnv* env, jclass) {
    jlong result = 0;
    runNative(env, __LINE__, [&] { result = JavaObjectMap::create(); });
    return result;
}

void JNICALL VDK_NATIVE(deleteObjectMap)(JNIEnv* env, jclass, jlong map) {
    runNative(env, __LINE__, [&] { JavaObjectMap::destroy(map); });
}

void JNICALL VDK_NATIVE(objectMapPut)(JNIEnv* env, jclass, jlong map, jobject object, jint value) {
    runNative(env, __LINE__, [&] { JavaObjectMap::put(map, object, value); });
}

jint JNICALL VDK_NATIVE(objectMapGet)(JNIEnv* env, jclass, jlong map, jobject object,
                                      jint fallback) {
    jint result = fallback;
    runNative(env, __LINE__, [&] { result = JavaObjectMap::get(map, object, fallback); });
    return result;
}

jint JNICALL VDK_NATIVE(objectMapRemove)(JNIEnv* env, jclass, jlong map, jobject object,
                                         jint fallback) {
    jint result = fallback;
    runNative(env, __LINE__, [&] { result = JavaObjectMap::remove(map, object, fallback); });
    return result;
}

jboolean JNICALL VDK_NATIVE(objectMapContains)(JNIEnv* env, jclass, jlong map, jobject object) {
    jboolean result = JNI_FALSE;
    runNative(env, __LINE__,
              [&] { result = JavaObjectMap::contains(map, object) ? JNI_TRUE : JNI_FALSE; });
    return result;
}

extern "C" JNIEXPORT jstring JNICALL
Java_com_vandrik_Natives_validateMethodPattern(JNIEnv* env, jclass, jstring pattern) {
    jstring result = nullptr;
    runNative(env, __LINE__, [&] { result = validatePattern(env, pattern); });
    return result;
}
