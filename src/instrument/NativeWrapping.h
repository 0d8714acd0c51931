#pragma once

#include "instrument/LeaveOut.h"

// Wrapping of native methods: a native m becomes a Java method that calls a new native named
// prefix + m, so that calls can be inserted into it. The JVM finds the implementation through the
// prefix that was registered with it.

// What the JVM knows beyond the class's bytes. This one knows nothing: a class that it meets for
// the first time.
class NativeSelection {
public:
    virtual ~NativeSelection() = default;
    // Whether a superclass or interface of this name is known not to be serializable.
    virtual bool isNeverSerializable(const Utf8View&) const { return false; }
    // Redefinition can neither add nor drop a method: what was wrapped is wrapped again, no more.
    virtual bool isRedefinition() const { return false; }
    virtual bool wasWrapped(const MethodInfo*) const { return false; }
};

// Wraps the natives of a class that may be wrapped; false if there are none. Classes and methods
// that must stay native are in the tables of NativeWrapping.cpp. prefix: the one registered with
// the JVM. Counts may be null.
bool wrapNativeMethods(ClassFile* classFile, const char* prefix, const NativeSelection& selection,
                       InstrumentationCounts* counts);

// The reason why no native of this class is wrapped, or null.
const char* reasonToLeaveNatives(const Utf8View& className);
