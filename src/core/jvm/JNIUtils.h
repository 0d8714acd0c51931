#pragma once

#include "core/ground/Here.h"
#include "core/ground/ZString.h"

#include <jni.h>

// Helpers around JNI calls of the agent's own.

// Nothing without a pending Java exception. Otherwise logs the exception and ends the process with
// exit(-1): the agent's own Java code failed where it must not. An agent that attached throws
// VDKRuntimeException instead.
void assertJNIImpl(JNIEnv* env, const char* file, int line);

#define ASSERT_JNI(env) assertJNIImpl((env), VDK_HERE)

// Class name and message of a throwable, "name: message". Leaves no exception pending.
ZString getExceptionMessage(JNIEnv* env, jthrowable exception);

// Logs the pending exception behind the text and clears it. Whether there was one.
bool logPendingException(JNIEnv* env, const char* what);

// Makes a java.lang.RuntimeException with the text pending. Nothing if one is pending already.
void throwException(JNIEnv* env, const char* message);
// The same with " (a, b)" behind the text.
void throwException(JNIEnv* env, const char* message, int a, int b);
// What a Java caller is told about an internal error.
void throwExceptionAssertionFailed(JNIEnv* env);

// Tells the JVM that a JVMTI function has handed out so many local references, which it may do
// without asking: its JNI checks would complain of them otherwise.
void announceLocalReferences(JNIEnv* env, jint count);

// The class by its internal name, as a local reference. Without it as assertJNIImpl.
jclass findClass(JNIEnv* env, const char* name);

// The text of a Java string in modified UTF-8; empty for null or when the JVM gives nothing.
ZString toZString(JNIEnv* env, jstring text);

// The text of a Java string as the system's paths have it, in plain UTF-8. A zero character in it
// is an internal error: no path has one.
ZString toPath(JNIEnv* env, jstring text);

// A new Java string, of UTF-8 modified or not, as a local reference; null with an exception pending
// when memory is short.
jstring toJavaString(JNIEnv* env, const ZString& text);
// The same for a refusal: null for the empty text, with which everything went well.
jstring toJavaRefusal(JNIEnv* env, const ZString& refusal);

// The modified UTF-8 text of a Java string, released at the end of the block.
class JavaChars {
public:
    JavaChars(JNIEnv* javaEnv, jstring javaText);
    ~JavaChars();
    JavaChars(const JavaChars&) = delete;
    JavaChars& operator=(const JavaChars&) = delete;
    // Null for a null string.
    const char* get() const { return chars; }

private:
    JNIEnv* env;
    jstring text;
    const char* chars;
};

// Sets aside the exception that is pending when a callback begins: it belongs to the application.
// The agent's own JNI calls run without it; it is pending again when the block ends.
class PendingException {
public:
    explicit PendingException(JNIEnv* javaEnv);
    ~PendingException();
    PendingException(const PendingException&) = delete;
    PendingException& operator=(const PendingException&) = delete;

private:
    JNIEnv* env;
    jthrowable exception;
};
