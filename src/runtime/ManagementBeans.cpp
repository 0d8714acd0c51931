// The beans of the platform, past java.lang.management: its class starts all providers of beans,
// which takes as much of the application's start as all else of the agent. JNI reaches the JDK's
// own factory in a package that Java code may not enter.
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/NativeEntry.h"

namespace {

const char FACTORY_CLASS[] = "sun/management/ManagementFactoryHelper";

struct Getter {
    const char* name;
    const char* signature;
};

// In the order in which the Java side expects them.
const Getter GETTERS[] = {
    {"getMemoryMXBean", "()Ljava/lang/management/MemoryMXBean;"},
    {"getClassLoadingMXBean", "()Ljava/lang/management/ClassLoadingMXBean;"},
    {"getThreadMXBean", "()Ljava/lang/management/ThreadMXBean;"},
    {"getRuntimeMXBean", "()Ljava/lang/management/RuntimeMXBean;"},
    {"getGarbageCollectorMXBeans", "()Ljava/util/List;"},
    {"getMemoryPoolMXBeans", "()Ljava/util/List;"},
};
constexpr jsize GETTER_COUNT = sizeof GETTERS / sizeof GETTERS[0];

// Null, with or without an exception pending, where the factory does not know the bean.
jobject getBean(JNIEnv* env, jclass factory, const Getter& getter) {
    jmethodID method = env->GetStaticMethodID(factory, getter.name, getter.signature);
    jobject bean = method == nullptr ? nullptr : env->CallStaticObjectMethod(factory, method);
    return env->ExceptionCheck() ? nullptr : bean;
}

bool fillBeans(JNIEnv* env, jclass factory, jobjectArray beans) {
    for (jsize i = 0; i < GETTER_COUNT; i++) {
        jobject bean = getBean(env, factory, GETTERS[i]);
        if (bean == nullptr) {
            return false;
        }
        env->SetObjectArrayElement(beans, i, bean);
        env->DeleteLocalRef(bean);
    }
    return true;
}

// All or none.
jobjectArray findBeans(JNIEnv* env) {
    jclass factory = env->FindClass(FACTORY_CLASS);
    jclass type = factory == nullptr ? nullptr : env->FindClass("java/lang/Object");
    jobjectArray beans =
        type == nullptr ? nullptr : env->NewObjectArray(GETTER_COUNT, type, nullptr);
    return beans != nullptr && fillBeans(env, factory, beans) ? beans : nullptr;
}

} // namespace

jobjectArray JNICALL VDK_CALLBACK_NATIVE(getManagementBeans)(JNIEnv* env, jclass) {
    return nativeResult<jobjectArray>(env, VDK_HERE, nullptr, [&] {
        jobjectArray beans = findBeans(env);
        if (beans == nullptr) {
            env->ExceptionClear(); // the Java side asks java.lang.management
        }
        return beans;
    });
}
