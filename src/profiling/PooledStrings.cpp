#include "profiling/PooledStrings.h"

#include "core/jvm/JNIUtils.h"
#include "db/DB.h"

int getPooledStrID(JNIEnv* env, jstring text) {
    JavaChars chars(env, text);
    return ourDB->stringPool->getDBIndex(chars.get() == nullptr ? "" : chars.get(), true);
}
