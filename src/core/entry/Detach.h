#pragma once

#include "core/entry/JVMTI_Agent.h"

// Detach: the agent leaves a JVM that goes on, and comes back with a later attach.
//
// DESCRIPTION
//   A library that natives and callbacks lead into cannot be unloaded, and an environment whose
//   prefix renamed natives cannot be disposed of. So the agent stays where it is and sleeps: it
//   records nothing, has no thread and no port, and classes have their own bytes, but for the
//   wrappers around natives, which the JVM takes out of no loaded class, and the beginning of
//   loadClass in loaders of applications: an activation that goes on with the code it began with
//   may reach its first call only now, and has to find the agent's class. Tables, threads' states
//   and environments are kept and used again.
//   While it is away the JVM sends it the ends of threads that it knows, its own end and, where a
//   class keeps something, redefinitions: it has to be in what others put in its place.
//   The request thread drives a detach, step by step (com.vandrik.runtime.Detach); what fails in
//   one leaves the others.

// What became of the classes.
struct ClassesGivenBack {
    int done = 0;
    int failed = 0;       // these the log names
    int withWrappers = 0; // loaded classes that keep wrappers around natives
    int loaders = 0;      // loaded classes of loaders that go on finding the agent
    long longestStopNs = 0;
};

// From here on no recording begins and no class gets calls; threads of the agent end. False if the
// agent is not there, or the JVM ends.
bool beginDetach();
// Ends all that is recorded, takes out all probes and forgets the data.
void stopRecordings(JNIEnv* env);
// Progress goes to the socket, unless it is 0. Not to be called with ourLock held.
ClassesGivenBack giveClassesBack(JNIEnv* env, int socket);
// The last step: events, JNI functions and tags. An attach may follow.
void endDetach(JNIEnv* env);

// The agent is away, or about to be: an attach brings it back, and loads nothing.
bool isAway();
// Brings it back, with new options. One of AgentLoadResult; unless it is LOAD_OK the agent is as
// far away as before.
int returnToJvm(const char* options);
