#pragma once

#include <jni.h>

class ClassNameFilter;

// Rewriting of classes that were loaded before the hook could see them. None of these may be called
// with ourLock held: the hook takes it for each class, on this thread and on others.

// At the JVM's start: everything that was loaded before the hook was enabled, in one batch. What
// the batch refuses is tried one by one.
void retransformPrimordialClasses(JNIEnv* env);

// On attach: marks all loaded classes as not rewritten yet.
void tagClassesLoadedBeforeAttach(JNIEnv* env);

// On attach, once the hook is on: rewrites the application's class loaders, so that classes that
// they load from now on can reach the agent.
void retransformLoadersLoadedBeforeAttach(JNIEnv* env);

// Puts the calls that count exceptions, at their creation and where they are caught, into the
// loaded classes and into those to come, or takes them out, a batch of classes at a time: the JVM
// stands still for each. Not to be called by two threads at once.
void switchExceptionCalls(JNIEnv* env, bool created, bool caught);

// Rewrites the classes so marked, except those that the filter excludes, which stay marked. A null
// filter passes all.
void retransformClassesLoadedBeforeAgentWasAttached(JNIEnv* env, ClassNameFilter* filter);
