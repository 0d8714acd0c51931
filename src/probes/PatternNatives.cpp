#include <jni.h>

#include "core/ground/Guard.h"
#include "core/ground/JNIUtils.h"
#include "probes/WildcardMatch.h"

// A null pattern matches any text; a null text is matched by that alone.
extern "C" JNIEXPORT jboolean JNICALL Java_com_vandrik_Natives_matches(JNIEnv* env, jclass,
                                                                       jstring pattern,
                                                                       jstring text) {
    jboolean result = JNI_FALSE;
    const bool done = runGuarded("PatternNatives", __LINE__, [&] {
        const JavaChars patternChars(env, pattern);
        const JavaChars textChars(env, text);
        const bool both = patternChars.get() != nullptr && textChars.get() != nullptr;
        const bool matched =
            both ? wildcardMatch(patternChars.get(), textChars.get()) : pattern == nullptr;
        result = matched ? JNI_TRUE : JNI_FALSE;
    });
    if (!done) {
        throwExceptionAssertionFailed(env);
    }
    return result;
}
