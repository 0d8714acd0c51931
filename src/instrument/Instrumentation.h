#pragma once

#include "instrument/NativeWrapping.h"

#include <jvmti.h>

// Instrumentation: the class load hook, which decides about every class, and the switching of what
// was inserted.

// Enters the hook, the exception handlers and the tracing switch where the agent looks for them.
// To be called before the agent is loaded. callback: the class file of Callback, which stays.
void installInstrumentation(const unsigned char* callback, int callbackSize);

// The event handler. It holds ourLock for all of its work; anything that goes wrong leaves the JVM
// its bytes.
void JNICALL class_file_load_hook_handler(jvmtiEnv* environment, JNIEnv* env,
                                          jclass classBeingRedefined, jobject loader,
                                          const char* name, jobject protectionDomain,
                                          jint classDataLength, const unsigned char* classData,
                                          jint* newClassDataLength, unsigned char** newClassData);

// Decides about one class and rewrites it. The outputs stay untouched when the class is left as it
// is; otherwise they are a copy in JVMTI memory. natives: null leaves all of them as they are.
// Caller holds ourLock.
void classFileLoadHookHandlerImpl(const ZString& name, int length, const unsigned char* data,
                                  jint* newLength, unsigned char** newData,
                                  const NativeSelection* natives);

// The agent's own classes stay as they are, but for the work that calibration measures.
bool isAgentClass(const ZString& internalName);

// Whether a class may carry anything but wrappers around natives, whether it may have those, and
// whether it is a loader's that finds the agent. Internal name. Caller holds ourLock, as in the two
// below.
bool mayBeChanged(const ZString& name);
bool mayHaveWrappedNatives(const ZString& name);
bool isPatchedLoader(const ZString& name);
// All of them have their own bytes again.
void forgetChangedClasses();
// Whether there are classes whose redefinition by others would fail, or lose what code that goes on
// needs, without the hook.
bool keepsHookInAnyCase();

// One log line: how many classes were rewritten, and how their methods ended.
void logInstrumentationTotals();

// One log line about a class, with the JVMTI phase in front unless it is the live one.
void logClass(const ZString& dottedName, const char* text);
