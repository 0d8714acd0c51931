#pragma once

// JNIRedirect: objects that native code creates through JNI pass through no bytecode. The JNI
// functions that create objects are replaced by wrappers which call the JVM's own and report the
// result to allocation recording. Any thread may be in a wrapper; none takes a lock of its own.

// Replaces the sixteen creating functions in the JVM's table. Called at start, again where an
// attach follows one that failed; a JVMTI failure is an internal error.
void redirectJNIFunctions();

// Puts the JVM's own table back, if it was replaced. Threads that still are in a wrapper, or that
// took their table before, only pass calls on: recording is off by then.
void restoreJNIFunctions();
