#pragma once

#include "instrument/NativeWrapping.h"

#include <jvmti.h>

// What the JVM tells about the classes around the one at work, without running Java code.

// A class that is being loaded: those above it may be there already.
class FirstLoad final : public NativeSelection {
public:
    explicit FirstLoad(JNIEnv* javaEnv, jobject definingLoader)
        : env(javaEnv), loader(definingLoader) {}
    bool isNeverSerializable(const Utf8View& name) const override;

private:
    JNIEnv* env;
    jobject loader;
};

// A class that is being redefined, with the natives that were wrapped when it was loaded.
class Redefinition final : public NativeSelection {
public:
    // Reads the methods of the loaded class. name: for the log.
    Redefinition(jclass type, const ZString& name);
    bool hasWrapped() const { return !wrapped.isEmpty(); }
    bool isRedefinition() const override { return true; }
    bool wasWrapped(const MethodInfo* method) const override;

private:
    ZVectorSafe<ZString> wrapped; // renamed methods, with their descriptors
};
