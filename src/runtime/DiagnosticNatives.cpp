#include "runtime/DiagnosticNatives.h"

#include "core/ground/Guard.h"
#include "core/jvm/JNIUtils.h"

// Sets an option of the JVM, unless its user has chosen the value, through the implementation of
// the diagnostic bean. Asking the factory for the bean instead starts all providers of beans, which
// takes a tenth of a second of the application's start and initialises what its main method may
// still configure. JNI reaches the class in a package that Java code may not enter.

// Its initialiser loads the native library that the bean needs.
static const char PROVIDER_CLASS[] = "com/sun/management/internal/PlatformMBeanProviderImpl";
static const char BEAN_CLASS[] = "com/sun/management/internal/HotSpotDiagnostic";

static jmethodID findMethod(JNIEnv* env, jclass type, const char* name, const char* signature) {
    return type == nullptr ? nullptr : env->GetMethodID(type, name, signature);
}

// Null with an exception pending on failure.
static jobject makeBean(JNIEnv* env, jclass* beanClass) {
    if (env->FindClass(PROVIDER_CLASS) == nullptr) {
        return nullptr;
    }
    *beanClass = env->FindClass(BEAN_CLASS);
    jmethodID constructor = findMethod(env, *beanClass, "<init>", "()V");
    return constructor == nullptr ? nullptr : env->NewObject(*beanClass, constructor);
}

// Calls a method without parameters that gives an object; null with an exception pending.
static jobject get(JNIEnv* env, jobject object, const char* name, const char* signature) {
    if (object == nullptr) {
        return nullptr;
    }
    jclass type = env->GetObjectClass(object);
    jmethodID method = findMethod(env, type, name, signature);
    env->DeleteLocalRef(type);
    jobject result = method == nullptr ? nullptr : env->CallObjectMethod(object, method);
    return env->ExceptionCheck() ? nullptr : result;
}

// The name of the origin of an option's value: "DEFAULT" where nobody has chosen it. Empty with an
// exception pending.
static ZString originOf(JNIEnv* env, jobject bean, jclass beanClass, jstring name) {
    jmethodID getter = findMethod(env, beanClass, "getVMOption",
                                  "(Ljava/lang/String;)Lcom/sun/management/VMOption;");
    if (getter == nullptr) {
        return ZString();
    }
    jobject option = env->CallObjectMethod(bean, getter, name);
    if (env->ExceptionCheck()) {
        return ZString();
    }
    jobject origin = get(env, option, "getOrigin", "()Lcom/sun/management/VMOption$Origin;");
    return toZString(env, static_cast<jstring>(get(env, origin, "name", "()Ljava/lang/String;")));
}

enum SetResult { SET_FAILED = 0, SET_DONE = 1, SET_CHOSEN_BY_USER = 2 };

// origins: words with blanks between them.
static SetResult setOptionImpl(JNIEnv* env, jstring name, jstring value, jstring origins) {
    jclass beanClass = nullptr;
    jobject bean = makeBean(env, &beanClass);
    if (bean == nullptr) {
        return SET_FAILED;
    }
    const ZString origin = originOf(env, bean, beanClass, name);
    if (env->ExceptionCheck()) {
        return SET_FAILED;
    }
    ZVectorSafe<ZString> accepted;
    toZString(env, origins).split(" ", accepted);
    bool isAccepted = false;
    for (int i = 0; i < accepted.getSize(); i++) {
        isAccepted = isAccepted || origin == accepted[i];
    }
    if (!isAccepted) {
        return SET_CHOSEN_BY_USER;
    }
    jmethodID setter =
        findMethod(env, beanClass, "setVMOption", "(Ljava/lang/String;Ljava/lang/String;)V");
    if (setter == nullptr) {
        return SET_FAILED;
    }
    env->CallVoidMethod(bean, setter, name, value);
    return env->ExceptionCheck() ? SET_FAILED : SET_DONE;
}

static jint JNICALL setOption(JNIEnv* env, jclass, jstring name, jstring value, jstring origins) {
    SetResult result = SET_FAILED;
    runGuarded(VDK_HERE, [&] {
        result = setOptionImpl(env, name, value, origins);
        env->ExceptionClear();
    });
    return result;
}

bool registerDiagnosticNatives(JNIEnv* env, jclass oomeDumper) {
    const JNINativeMethod method = {
        const_cast<char*>("setOption"),
        const_cast<char*>("(Ljava/lang/String;Ljava/lang/String;Ljava/lang/String;)I"),
        reinterpret_cast<void*>(setOption)};
    return env->RegisterNatives(oomeDumper, &method, 1) == JNI_OK;
}
