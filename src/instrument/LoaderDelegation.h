#pragma once

#include "classfile/ClassFile.h"

// Class loaders that pass only java.* on, as those of module systems do, would not find the class
// that inserted calls name, and every rewritten class in them would fail at its first call. Their
// loadClass methods are given a beginning that sends names of the agent's package to the loader
// that defined the loader's own class. That one is of the JDK, and asks the boot loader, or begins
// in the same way. Class.forName does it, with the caller's loader: naming the boot loader instead
// would need a permission.

enum class Delegation {
    NONE,      // no loadClass method
    PATCHED,   // all of them are changed
    IMPOSSIBLE // one can't be changed
};

// Whether this class may need it: the JDK's own loaders ask the boot loader in any case.
bool mayDefineLoader(const Utf8View& className);

// Whether the class has a loadClass method of its own that would have to be changed.
bool declaresLoadClass(ClassFile* classFile);

// Changes every loadClass method of the class.
Delegation patchLoaderDelegation(ClassFile* classFile);
