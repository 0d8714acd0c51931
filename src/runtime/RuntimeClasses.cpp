#include "runtime/RuntimeClasses.h"

#include "core/ground/Logger.h"
#include "core/jvm/JNIUtils.h"
#include "runtime/RuntimeArchive.h"

bool ourDefinesRuntimeClasses = false;

namespace {

// True when the pending exception says that the class exists already; it is cleared then.
bool isAlreadyDefined(JNIEnv* env) {
    jthrowable exception = env->ExceptionOccurred();
    env->ExceptionClear();
    jclass linkageError = env->FindClass("java/lang/LinkageError");
    const bool known = linkageError != nullptr && env->IsInstanceOf(exception, linkageError);
    if (!known) {
        env->ExceptionClear();
        Logger::message(ZString("Runtime class refused: ") + getExceptionMessage(env, exception));
    }
    env->DeleteLocalRef(linkageError);
    env->DeleteLocalRef(exception);
    return known;
}

bool defineClass(JNIEnv* env, const RuntimeArchiveIterator& entry) {
    jclass defined = env->DefineClass(
        entry.name(), nullptr, reinterpret_cast<const jbyte*>(entry.bytes()), entry.length());
    if (env->ExceptionCheck()) {
        Logger::assertTrue(isAlreadyDefined(env), VDK_HERE);
        return false;
    }
    env->DeleteLocalRef(defined);
    return true;
}

} // namespace

int defineRuntimeClasses(JNIEnv* env) {
    RuntimeArchiveIterator classes;
    int count = 0;
    while (classes.next()) {
        count += defineClass(env, classes) ? 1 : 0;
    }
    Logger::assertTrue(!classes.isBroken(), VDK_HERE);
    return count;
}
