#pragma once

#include "core/ground/ZVector.h"

#include <jvmti.h>

// TagEnvironment: a JVMTI environment whose tags begin empty and go with it.
class TagEnvironment {
public:
    // An internal error where the JVM gives none.
    TagEnvironment();
    ~TagEnvironment();
    TagEnvironment(const TagEnvironment&) = delete;
    TagEnvironment& operator=(const TagEnvironment&) = delete;

    // Local references to all objects of the class.
    void findInstances(jclass type, ZVector<jobject>& found);
    // Whether findInstances found it and it was not taken before.
    bool take(jobject object);

private:
    jvmtiEnv* jvmti;
};
