#pragma once

// JNIRedirect: objects that native code creates through JNI pass through no bytecode. The JNI
// functions that create objects are replaced by wrappers which call the JVM's own and report the
// result to allocation recording. Any thread may be in a wrapper; none takes a lock of its own.

// Replaces the sixteen creating functions in the JVM's table. Called once at start; a JVMTI failure
// is an internal error.
void redirectJNIFunctions();

// Puts the JVM's own table back. Threads that still are in a wrapper, or that took their table
// before, only pass calls on: recording is off by then.
void restoreJNIFunctions();
