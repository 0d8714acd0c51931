#pragma once

#include "core/ground/ZSet.h"

#include <jvmti.h>

// ClassNameTags: the names of objects' classes as rows of string, kept as tags of one environment,
// so that the second question for a class, or an object, is the reading of a tag.
//
// A class's name stands in the upper half of the class's own tag. The lower half belongs to the
// object as such, whatever else it may be: a class may be a monitor too, of the class
// java.lang.Class then. Strings that tags name are not collected before clear(). Caller holds
// ourLock in every operation.
class ClassNameTags {
public:
    explicit ClassNameTags(jvmtiEnv*& tagEnvironment) : environment(tagEnvironment), names(64) {}
    ClassNameTags(const ClassNameTags&) = delete;
    ClassNameTags& operator=(const ClassNameTags&) = delete;

    // Row of a text that stays as those of the tags do.
    int getNameStrID(const char* text);
    // Number of texts that stay.
    int getNameCount() const { return names.getSize(); }
    // The name of the object's class; 0 while the JVM ends.
    int getClassNameStrID(JNIEnv* env, jobject object);
    // The tag of an object, 0 without one or while the JVM ends.
    jlong getTag(jobject object) const;
    void setTag(jobject object, jlong tag) const;

    // Takes all tags of the environment away, by a walk over the heap if there can be any.
    void clear();
    // The same for a new database, in whose JVM no tag is left.
    void reset();

private:
    jvmtiEnv*& environment; // one of the globals, which a start sets
    ZSet<int> names;
};
