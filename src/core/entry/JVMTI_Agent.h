#pragma once

#include "core/ground/ZString.h"

#include <jvmti.h>

// The door of the agent: what the JVM calls, and the order in which everything is started and
// stopped. The exported entries are in AgentLibrary.cpp, the steps of loading in AgentLoad.cpp,
// what follows at VMStart, VMInit and with each thread in AgentLifecycle.cpp.

// Results of agentLoadImpl.
enum AgentLoadResult {
    LOAD_OK = 0,
    LOAD_NO_ENVIRONMENT = 1,
    LOAD_JVMTI_TOO_OLD = 2,
    LOAD_INVALID_OPTIONS = 3,
    LOAD_JROCKIT_TOO_OLD = 4,
    LOAD_IBM_TOO_OLD = 5,
    LOAD_NO_CAPABILITIES = 6,
    LOAD_PLATFORM_REFUSED = 7,
    LOAD_NO_ARCHIVE = 8,
    LOAD_NO_JNI = 9,
    LOAD_INIT_FAILED = 10,
    LOAD_INTERNAL_ERROR = 11, // an internal error unwound to the entry
    LOAD_STILL_LEAVING = 12,  // a detach is not over
    LOAD_OTHER_AGENT = 13,    // another copy of the library is in this JVM
};

// Entries of the JVM. onLoad ends the process on a refusal, unless the option "optional" was given;
// an internal error makes the agent inert and lets the application start. onAttach leaves a running
// JVM alive in both cases.
jint agentOnLoad(JavaVM* vm, const char* options);
jint agentOnAttach(JavaVM* vm, const char* options);
jint jvmOnLoad();

// Everything up to the point where a starting JVM takes over through its events; in a live JVM
// everything. The result is one of AgentLoadResult.
int agentLoadImpl(JavaVM* vm, const char* options);

// What is left to do of it where the agent was away.
int startAgain(const char* options);

// Undoes what a start that was refused has done: events, tables, options. A later attach finds the
// process as it was. The caller is no event handler and holds no lock.
void abandonStart(long capabilities, long status);

// The same for a start at load; the log tells that the application runs unprofiled.
void goOnWithoutAgent();

// Disposes every environment and forgets it: no event arrives any more.
void disposeEnvironments();

// A new environment for tags of one kind. A failure prints the reason and ends the process, or with
// the option "optional" throws.
jvmtiEnv* createTaggableJVMTIEnv(bool withObjectFree);

// Whether this system can run the agent at all.
bool checkPlatformCapabilities();

// Ends the process with exit code 1.
[[noreturn]] void doExit();

// Whether the runtime classes that this JVM may have were brought by this library.
bool areRuntimeClassesOurs();

// Natives registered; runs in the start phase or on attach.
void agentStart(JNIEnv* env);
// The Java side started and the agent's own threads; false when the Java side refuses.
bool agentInit(JNIEnv* env);
// The modes that the options ask for.
void startProfiling(JNIEnv* env);

// Gives the thread its ThreadInfo. A native id of 0 means another thread than the current one: a
// global reference to it is kept.
void threadStartImpl(JNIEnv* env, jthread thread, long nativeID);

// Gives a ThreadInfo to every live thread that has none: on attach to all, at VMInit to those that
// began before thread events were sent.
void registerLiveThreads(JNIEnv* env);

// JVMTI event handlers.
void JNICALL vmStart(jvmtiEnv* environment, JNIEnv* env);
void JNICALL vmInit(jvmtiEnv* environment, JNIEnv* env, jthread thread);
void JNICALL vmDeath(jvmtiEnv* environment, JNIEnv* env);
void JNICALL threadStart(jvmtiEnv* environment, JNIEnv* env, jthread thread);
void JNICALL threadEnd(jvmtiEnv* environment, JNIEnv* env, jthread thread);
