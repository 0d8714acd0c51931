// Natives of com.vandrik.Natives that mean something on other operating systems only. They are here
// so that one Java class binds everywhere, and answer 0 or null.

#include "offline/NativesBoundary.h"

// V(result type, name, parameters behind the class)
#define VDK_NATIVES_OF_OTHER_SYSTEMS(V)                                                            \
    V(jstring, getWinRegStringValue, (JNIEnv*, jclass, jint, jstring, jstring))                    \
    V(jint, getWinRegIntValue, (JNIEnv*, jclass, jint, jstring, jstring))                          \
    V(jint, setWinRegStringValue, (JNIEnv*, jclass, jint, jstring, jstring, jstring))              \
    V(jint, setWinRegIntValue, (JNIEnv*, jclass, jint, jstring, jstring, jint))                    \
    V(jint, deleteWinRegValue, (JNIEnv*, jclass, jint, jstring, jstring))                          \
    V(jint, createWinRegKey, (JNIEnv*, jclass, jint, jstring))                                     \
    V(jobjectArray, getWinRegValueNames, (JNIEnv*, jclass, jint, jstring))                         \
    V(jobjectArray, getWinRegSubKeys, (JNIEnv*, jclass, jint, jstring))                            \
    V(jint, createMutex, (JNIEnv*, jclass, jstring))                                               \
    V(jboolean, is64BitMachine, (JNIEnv*, jclass))                                                 \
    V(jint, getWindowsVersion, (JNIEnv*, jclass))                                                  \
    V(jint, getProcessType, (JNIEnv*, jclass, jint))                                               \
    V(jstring, getShortPath, (JNIEnv*, jclass, jstring))

#define VDK_NATIVE_OF_OTHER_SYSTEM(type, name, parameters)                                         \
    VDK_CLIENT_NATIVE(type, name) parameters {                                                     \
        return type();                                                                             \
    }
VDK_NATIVES_OF_OTHER_SYSTEMS(VDK_NATIVE_OF_OTHER_SYSTEM)

VDK_CLIENT_NATIVE(jintArray, getSpecialJavaPIDs)(JNIEnv* env, jclass) {
    return runGuardedNative<jintArray>(env, VDK_HERE, nullptr,
                                       [&](NativeErrors&) { return env->NewIntArray(0); });
}
