#include "core/entry/NativeTable.h"

#include "core/ground/Logger.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/JNIUtils.h"

// Abilities that this version of the agent lacks.
#define VDK_NO_BODY(name, signature, type, parameters)
#define VDK_THROWING_BODY(name, signature, type, parameters, ability)                              \
    type JNICALL VDK_CALLBACK_NATIVE(name) parameters {                                            \
        throwException(env, VDK_MISSING_TEXT(ability));                                            \
        return type();                                                                             \
    }

VDK_CALLBACK_NATIVES(VDK_NO_BODY, VDK_THROWING_BODY)

namespace {

// JNI's structure holds names and signatures as plain char pointers, which it never writes to.
char* text(const char* constant) {
    return const_cast<char*>(constant);
}

} // namespace

#define VDK_ROW(name, signature)                                                                   \
    {text(#name), text(signature), reinterpret_cast<void*>(VDK_CALLBACK_NATIVE(name))},
#define VDK_BUILT_ROW(name, signature, type, parameters) VDK_ROW(name, signature)
#define VDK_MISSING_ROW(name, signature, type, parameters, ability) VDK_ROW(name, signature)

const JNINativeMethod ourAgentNativeMethods[] = {
    VDK_CALLBACK_NATIVES(VDK_BUILT_ROW, VDK_MISSING_ROW)};

const int ourAgentNativeMethodCount = sizeof ourAgentNativeMethods / sizeof(JNINativeMethod);
static_assert(sizeof ourAgentNativeMethods / sizeof(JNINativeMethod) == 112,
              "the Java class declares this many natives");

void registerCallbackNatives(JNIEnv* env, jclass callback) {
    const jint result =
        env->RegisterNatives(callback, ourAgentNativeMethods, ourAgentNativeMethodCount);
    logPendingException(env, "RegisterNatives");
    Logger::assertEquals(result, 0, VDK_HERE);
}
