#include "runtime/DiagnosticNatives.h"

#include "core/ground/Guard.h"

// Sets an option of the JVM through the implementation of the diagnostic bean. Asking the factory
// for the bean instead starts all providers of beans, which takes a tenth of a second of the
// application's start and initialises what its main method may still configure. JNI reaches the
// class in a package that Java code may not enter.

// Its initialiser loads the native library that the bean needs.
static const char PROVIDER_CLASS[] = "com/sun/management/internal/PlatformMBeanProviderImpl";
static const char BEAN_CLASS[] = "com/sun/management/internal/HotSpotDiagnostic";

// Leaves an exception pending on failure.
static bool setOptionImpl(JNIEnv* env, jstring name, jstring value) {
    if (env->FindClass(PROVIDER_CLASS) == nullptr) {
        return false;
    }
    jclass beanClass = env->FindClass(BEAN_CLASS);
    if (beanClass == nullptr) {
        return false;
    }
    jmethodID constructor = env->GetMethodID(beanClass, "<init>", "()V");
    if (constructor == nullptr) {
        return false;
    }
    jmethodID setter =
        env->GetMethodID(beanClass, "setVMOption", "(Ljava/lang/String;Ljava/lang/String;)V");
    if (setter == nullptr) {
        return false;
    }
    jobject bean = env->NewObject(beanClass, constructor);
    if (bean == nullptr) {
        return false;
    }
    env->CallVoidMethod(bean, setter, name, value);
    return !env->ExceptionCheck();
}

static jboolean JNICALL setOption(JNIEnv* env, jclass, jstring name, jstring value) {
    bool done = false;
    runGuarded(VDK_HERE, [&] {
        done = setOptionImpl(env, name, value);
        env->ExceptionClear();
    });
    return done ? JNI_TRUE : JNI_FALSE;
}

bool registerDiagnosticNatives(JNIEnv* env, jclass oomeDumper) {
    const JNINativeMethod method = {const_cast<char*>("setOption"),
                                    const_cast<char*>("(Ljava/lang/String;Ljava/lang/String;)Z"),
                                    reinterpret_cast<void*>(setOption)};
    return env->RegisterNatives(oomeDumper, &method, 1) == JNI_OK;
}
