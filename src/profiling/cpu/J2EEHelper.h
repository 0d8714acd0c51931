#pragma once

#include <jni.h>

// J2EE profiling: high-level events of the application, such as SQL statements and requests. A row
// of j2ee is one name, kind, thread and stack; its time is what the stack's row of cpuprofiling
// grew by between entry and exit, so it follows whichever way CPU times are taken.
//
// Virtual threads share the row "<Virtual threads>". Their events travel with them; one that ends
// on another carrier than it began on has no time.
//
// An event that an exception leaves is closed without time: by the probe's handler
// (vdkJ2eeLeave), or where that is missing by the first that is seen of the thread further up its
// stack: a handler, or the next event.

// What the inserted calls do, with ourLock held and the bit of the status set.
void vdkJ2EEEntryImpl(JNIEnv* env, int nameStrID, int type);
void vdkJ2EEExitImpl(JNIEnv* env);

namespace J2EEHelper {

// Before events come; finds what the JVM has of virtual threads.
void prepare(JNIEnv* env);
// A handler of the current thread runs: closes what lies above its frame. Takes ourLock if the
// thread has open events.
void unwind(JNIEnv* env);
// All data are forgotten: open events of virtual threads too. Caller holds ourLock.
void forgetVirtualEvents();
// For a new database.
void reset();

} // namespace J2EEHelper
