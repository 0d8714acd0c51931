#pragma once

#include <jni.h>

// Index in the string pool of ourDB of a Java string's text, made if need be; that of the empty
// string for null. Caller holds ourLock, and stores the index in a record before releasing it.
int getPooledStrID(JNIEnv* env, jstring text);
