// Binds the natives of the runtime classes in a plain JVM: the real ones of the control socket
// and of fields, made-up ones of Callback that hand over to the Java class FakeNatives.
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/JvmGlobals.h"
#include "runtime/ControlSocketNatives.h"
#include "runtime/DiagnosticNatives.h"

#define ROW(name, signature)                                                                       \
    {const_cast<char*>(#name), const_cast<char*>(signature),                                       \
     reinterpret_cast<void*>(Java_com_vandrik_runtime_Callback_##name)},
#define BUILT_ROW(name, signature, type, parameters) ROW(name, signature)
#define MISSING_ROW(name, signature, type, parameters, ability) ROW(name, signature)

static const JNINativeMethod rows[] = {VDK_CALLBACK_NATIVES(BUILT_ROW, MISSING_ROW)};

static jclass ourFakes;
static jlong ourCalibration;

static jmethodID fake(JNIEnv* env, const char* name, const char* signature) {
    return env->GetStaticMethodID(ourFakes, name, signature);
}

extern "C" {

void JNICALL Java_com_vandrik_runtime_Callback_messageToLogFile(JNIEnv* env, jclass, jstring text) {
    env->CallStaticVoidMethod(ourFakes, fake(env, "log", "(Ljava/lang/String;)V"), text);
}

// Triggers may do everything.
jlong JNICALL Java_com_vandrik_runtime_Callback_getCapabilities(JNIEnv*, jclass) {
    return 0x60000;
}

void JNICALL Java_com_vandrik_runtime_Callback_startCalibrating(JNIEnv* env, jclass) {
    ourCalibration = -1;
    env->ThrowNew(env->FindClass("java/lang/RuntimeException"), VDK_MISSING_TEXT("CPU tracing"));
}

jlong JNICALL Java_com_vandrik_runtime_Callback_getCalibrationResult(JNIEnv*, jclass) {
    return ourCalibration;
}

void JNICALL Java_com_vandrik_runtime_Callback_setCalibrationResult(JNIEnv*, jclass, jlong costNs) {
    ourCalibration = costNs;
}

jint JNICALL Java_com_vandrik_runtime_Callback_createUserTable(JNIEnv* env, jclass,
                                                               jstring description) {
    return env->CallStaticIntMethod(ourFakes, fake(env, "createUserTable", "(Ljava/lang/String;)I"),
                                    description);
}

jlong JNICALL Java_com_vandrik_runtime_Callback_getStatus(JNIEnv*, jclass) {
    return 0x600;
}

jint JNICALL Java_com_vandrik_runtime_Callback_getTelemetryPeriodMs(JNIEnv*, jclass) {
    return 1000;
}

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
    // What the natives of fields ask.
    if (vm->GetEnv(reinterpret_cast<void**>(&ourJVMTI), JVMTI_VERSION_1_2) != JNI_OK) {
        return JNI_ERR;
    }
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) {
        return -1;
    }
    jclass fakes = env->FindClass("com/vandrik/runtime/FakeNatives");
    jclass callback = env->FindClass("com/vandrik/runtime/Callback");
    jclass controlSocket = env->FindClass("com/vandrik/runtime/ControlSocket");
    jclass oomeDumper = env->FindClass("com/vandrik/runtime/OOMEDumper");
    if (fakes == nullptr || callback == nullptr || controlSocket == nullptr ||
        oomeDumper == nullptr) {
        return -1;
    }
    ourFakes = static_cast<jclass>(env->NewGlobalRef(fakes));
    bool bound = env->RegisterNatives(callback, rows, sizeof rows / sizeof *rows) == JNI_OK &&
                 registerControlSocketNatives(env, controlSocket) &&
                 registerDiagnosticNatives(env, oomeDumper);
    return bound ? JNI_VERSION_1_6 : -1;
}
}
