#pragma once

#include "core/ground/ZSet.h"
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

// The natives that were wrapped as classes were loaded, by their names, which stand here as hashes.
class WrappedNatives {
public:
    WrappedNatives() : methods(256) {}
    // The new natives among the methods of a class that has just been rewritten.
    void add(const ZString& className, ClassFile& classFile);
    bool contains(const ZString& className, const ZString& renamed) const;

private:
    ZSet<long> methods;
};

// A class that is being redefined, with the natives that were wrapped when it was loaded.
class Redefinition final : public NativeSelection {
public:
    // Reads the methods of the loaded class.
    Redefinition(jclass type, const ZString& name, const WrappedNatives& known);
    bool hasWrapped() const { return isUntold || !wrapped.isEmpty(); }
    bool isRedefinition() const override { return true; }
    bool wasWrapped(const MethodInfo* method) const override;

private:
    const ZString& className;
    const WrappedNatives& atLoad;
    // The JVM does not tell the methods of a class that is not linked, nor when it is about to end.
    bool isUntold = false;
    ZVectorSafe<ZString> wrapped; // renamed methods, with their descriptors
};
