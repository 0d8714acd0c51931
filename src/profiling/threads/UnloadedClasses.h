#pragma once

#include <cstdint>
#include <jni.h>

// UnloadedClasses: a JVM may load and unload classes for days. A row of `method` is kept as long as
// a frame names it, for the data it is part of, or as long as a class of its name is loaded, for
// the row's number stands in the class's rewritten code. All others are freed here. Caller holds
// ourLock in every function.
//
// IMPLEMENTATION
//   A class that is just being defined has the numbers in its code and is not yet among the loaded
//   classes; the JVM may be away for long, loading its superclass. So the last definitions of each
//   thread count as loaded. One has ended when the thread offers another class from the same place
//   on its stack or from further up: from within the first definition it could only have been
//   offered further down.
namespace UnloadedClasses {

// Rows of method were made for a class that the current thread is defining. classNameStrID: its
// full name. place: on that thread's stack, where the JVM offered the class.
void definitionBegins(int classNameStrID, uintptr_t place);
// The current thread ends, and with it whatever it was defining.
void threadEnds();

// Frees all rows of method that need not be kept, and forgets the handles of all methods: those of
// loaded classes are looked up again. False if the JVM would not tell its classes.
bool freeMethods(JNIEnv* env);
// The same if so many classes were unloaded since the last time that the walk is worth it; to be
// called now and then with the number of classes that the JVM has unloaded since its start.
void freeMethodsIfEarned(JNIEnv* env, int unloadedClasses);

// Forgets everything, for a new database.
void reset();

} // namespace UnloadedClasses
