#pragma once

#include "core/ground/ZString.h"

#include <jvmti.h>

// Rows of the table `method` by JVM handle and by name.

// The row of a method handle: one hash probe after the first call of a method. Caller holds
// ourLock.
//
// A handle stays good as a key after its class is unloaded: the JVM never hands the same handle out
// for another method (HotSpot keeps the memory of handles of unloaded classes and clears what they
// point at). A handle whose class was unloaded before it was ever asked for has no name any more:
// such frames share the row "<unloaded>.<unknown>".
int getMethodByID(JNIEnv* env, jmethodID id);

// The agent's own prefix of natives that were renamed to be wrapped.
extern const char* const ourNativeMethodPrefix;

class ZMethod {
public:
    // Forgets all rows, for a new database.
    static void reset();

    // The row of a name, made with its flags if need be. className is the dotted full name,
    // parameters the text such as "(byte[], int)". Caller holds ourLock.
    static int getByName(const char* className, const char* methodName, const char* parameters);
    // The same for a class whose name was looked up in the string pool, under this hold of the
    // lock: for all methods of a class one after the other.
    static int getByName(int classNameStrID, const char* className, const char* methodName,
                         const char* parameters);

    // Frees a row that nothing names: no frame, and no code of a class that is or will be loaded.
    static void free(int index);
    // Forgets which handle belongs to which row; handles that are met again are looked up anew.
    static void forgetHandles();
};
