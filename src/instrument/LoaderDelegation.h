#pragma once

#include "classfile/ClassFile.h"

// Class loaders that pass only java.* on, as those of module systems do, would not find the class
// that inserted calls name, and every rewritten class in them would fail at its first call. Their
// loadClass methods are given a beginning that sends names of the agent's package to the boot
// loader.

// Whether this class may need it: the JDK's own loaders ask the boot loader in any case.
bool mayDefineLoader(const Utf8View& className);

// Changes every loadClass method of the class. False if there is none, or none that can be changed.
bool patchLoaderDelegation(ClassFile* classFile);
