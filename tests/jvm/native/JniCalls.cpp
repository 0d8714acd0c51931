// Natives of fixtures.JniCalls: some that the JVM finds by their names, some bound when the library
// is loaded.

#include <jni.h>
#include <signal.h>

namespace {

void onTakenSignal(int) {}

jint twice(JNIEnv*, jclass, jint number) {
    return 2 * number;
}

jint length(JNIEnv* env, jclass, jstring text) {
    return env->GetStringLength(text);
}

} // namespace

extern "C" {

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_8) != JNI_OK) {
        return JNI_ERR;
    }
    jclass calls = env->FindClass("fixtures/JniCalls");
    char name[] = "bound";
    char ofNumber[] = "(I)I";
    char ofText[] = "(Ljava/lang/String;)I";
    const JNINativeMethod methods[] = {{name, ofNumber, reinterpret_cast<void*>(twice)},
                                       {name, ofText, reinterpret_cast<void*>(length)}};
    if (calls == nullptr || env->RegisterNatives(calls, methods, 2) != JNI_OK) {
        return JNI_ERR;
    }
    return JNI_VERSION_1_8;
}

JNIEXPORT jlong JNICALL Java_fixtures_JniCalls_mixed(JNIEnv* env, jobject self, jbyte small,
                                                     jlong large, jdouble real,
                                                     jobjectArray objects) {
    const bool holdsSelf =
        env->IsSameObject(env->GetObjectArrayElement(objects, 0), self) == JNI_TRUE;
    return small + large + static_cast<jlong>(real) + env->GetArrayLength(objects) +
           (holdsSelf ? 1000 : 0);
}

JNIEXPORT jint JNICALL Java_fixtures_JniCalls_callsBack(JNIEnv* env, jclass calls, jint number) {
    jmethodID method = env->GetStaticMethodID(calls, "calledBack", "(I)I");
    if (method == nullptr) {
        return 0;
    }
    jint result = env->CallStaticIntMethod(calls, method, number);
    // With an exception on its way there is nothing to be computed.
    return env->ExceptionCheck() ? 0 : result + 1;
}

// As a library does that knows nothing of the other users of a signal.
JNIEXPORT void JNICALL Java_fixtures_JniCalls_takeSignal(JNIEnv*, jclass, jint number) {
    signal(number, onTakenSignal);
}

JNIEXPORT jboolean JNICALL Java_fixtures_JniCalls_holdsSignal(JNIEnv*, jclass, jint number) {
    struct sigaction action;
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == onTakenSignal;
}

JNIEXPORT void JNICALL Java_fixtures_JniCalls_enters(JNIEnv* env, jclass, jobject monitor) {
    if (env->MonitorEnter(monitor) == JNI_OK) {
        env->MonitorExit(monitor);
    }
}

JNIEXPORT void JNICALL Java_fixtures_JniCalls_fails(JNIEnv* env, jclass) {
    jclass exception = env->FindClass("java/lang/IllegalStateException");
    if (exception != nullptr) {
        env->ThrowNew(exception, "expected");
    }
}

} // extern "C"
