// The natives that are too small to have an owner of their own: state of the agent, messages, and
// the object maps of probes.
#include "core/entry/JavaObjectMap.h"
#include "core/ground/Globals.h"
#include "core/ground/Guard.h"
#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/NativeEntry.h"
#include "platform/Platform.h"
#include "probes/SignatureUtil.h"
#include "profiling/events/Exceptions.h"
#include "profiling/threads/ThreadInfo.h"

namespace {

const char MESSAGES_CLASS[] = "com/vandrik/probes/builtin/Messages";
const char MESSAGES_SIGNATURE[] = "(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)V";
const char MESSAGE_SOURCE[] = "Profiler";

// Stores a row in the table of messages. The store must not be profiled as the caller's work.
void storeMessage(JNIEnv* env, jstring text, jstring detail) {
    jclass messages = env->FindClass(MESSAGES_CLASS);
    jmethodID method = messages == nullptr
                           ? nullptr
                           : env->GetStaticMethodID(messages, "message", MESSAGES_SIGNATURE);
    jstring source = method == nullptr ? nullptr : env->NewStringUTF(MESSAGE_SOURCE);
    if (source != nullptr) {
        setThreadTemporaryEnabled(true);
        env->CallStaticVoidMethod(messages, method, source, text, detail);
        logPendingException(env, "message");
        setThreadTemporaryEnabled(false);
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

void print(JNIEnv* env, FILE* stream, jstring text, const char* file, int line) {
    runNative(env, file, line, [&] {
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

jlong JNICALL VDK_CALLBACK_NATIVE(getCapabilities)(JNIEnv*, jclass) {
    return ourCapabilities;
}

jlong JNICALL VDK_CALLBACK_NATIVE(getStatus)(JNIEnv*, jclass) {
    return ourStatus;
}

jint JNICALL VDK_CALLBACK_NATIVE(getTelemetryPeriodMs)(JNIEnv*, jclass) {
    return ourOptions->telemetryPeriod;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(isIBM)(JNIEnv*, jclass) {
    return ourIsIBM ? JNI_TRUE : JNI_FALSE;
}

jint JNICALL VDK_CALLBACK_NATIVE(getPhase)(JNIEnv*, jclass) {
    return getJVMTIPhase();
}

jint JNICALL VDK_CALLBACK_NATIVE(getPID)(JNIEnv*, jclass) {
    return Platform::vdk_getpid();
}

void JNICALL VDK_CALLBACK_NATIVE(message)(JNIEnv* env, jclass, jstring text, jstring detail) {
    runNative(env, VDK_HERE, [&] { writeLogMessage(env, text, detail); });
}

void JNICALL VDK_CALLBACK_NATIVE(messageToLogFile)(JNIEnv* env, jclass, jstring text) {
    runNative(env, VDK_HERE, [&] { Logger::message(toZString(env, text)); });
}

void JNICALL VDK_CALLBACK_NATIVE(messageToStderr)(JNIEnv* env, jclass, jstring text) {
    print(env, stderr, text, VDK_HERE);
}

void JNICALL VDK_CALLBACK_NATIVE(messageToStdout)(JNIEnv* env, jclass, jstring text) {
    print(env, stdout, text, VDK_HERE);
}

void JNICALL VDK_CALLBACK_NATIVE(enableExceptionTelemetry)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { Exceptions::enable(env, true); });
}

void JNICALL VDK_CALLBACK_NATIVE(disableExceptionTelemetry)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { Exceptions::enable(env, false); });
}

jstring JNICALL VDK_CALLBACK_NATIVE(validateMethodPattern)(JNIEnv* env, jclass, jstring pattern) {
    jstring result = nullptr;
    runNative(env, VDK_HERE, [&] { result = validatePattern(env, pattern); });
    return result;
}

jlong JNICALL VDK_CALLBACK_NATIVE(createObjectMap)(JNIEnv* env, jclass) {
    jlong result = 0;
    runNative(env, VDK_HERE, [&] { result = JavaObjectMap::create(); });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(deleteObjectMap)(JNIEnv* env, jclass, jlong map) {
    runNative(env, VDK_HERE, [&] { JavaObjectMap::destroy(map); });
}

void JNICALL VDK_CALLBACK_NATIVE(objectMapPut)(JNIEnv* env, jclass, jlong map, jobject object,
                                               jint value) {
    runNative(env, VDK_HERE, [&] { JavaObjectMap::put(map, object, value); });
}

jint JNICALL VDK_CALLBACK_NATIVE(objectMapGet)(JNIEnv* env, jclass, jlong map, jobject object,
                                               jint fallback) {
    jint result = fallback;
    runNative(env, VDK_HERE, [&] { result = JavaObjectMap::get(map, object, fallback); });
    return result;
}

jint JNICALL VDK_CALLBACK_NATIVE(objectMapRemove)(JNIEnv* env, jclass, jlong map, jobject object,
                                                  jint fallback) {
    jint result = fallback;
    runNative(env, VDK_HERE, [&] { result = JavaObjectMap::remove(map, object, fallback); });
    return result;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(objectMapContains)(JNIEnv* env, jclass, jlong map,
                                                        jobject object) {
    jboolean result = JNI_FALSE;
    runNative(env, VDK_HERE,
              [&] { result = JavaObjectMap::contains(map, object) ? JNI_TRUE : JNI_FALSE; });
    return result;
}

VDK_CLIENT_NATIVE(jstring, validateMethodPattern)(JNIEnv* env, jclass, jstring pattern) {
    jstring result = nullptr;
    runNative(env, VDK_HERE, [&] { result = validatePattern(env, pattern); });
    return result;
}
