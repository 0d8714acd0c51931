#include "core/ground/WildcardMatch.h"
#include "core/jvm/NativeEntry.h"

#include <jni.h>

// A null pattern matches any text; a null text is matched by that alone.
VDK_CLIENT_NATIVE(jboolean, matches)(JNIEnv* env, jclass, jstring pattern, jstring text) {
    return nativeResult<jboolean>(env, VDK_HERE, JNI_FALSE, [&] {
        const JavaChars patternChars(env, pattern);
        const JavaChars textChars(env, text);
        const bool both = patternChars.get() != nullptr && textChars.get() != nullptr;
        const bool matched =
            both ? wildcardMatch(patternChars.get(), textChars.get()) : pattern == nullptr;
        return matched ? JNI_TRUE : JNI_FALSE;
    });
}
