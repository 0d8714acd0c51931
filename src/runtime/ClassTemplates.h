#pragma once

#include <jni.h>

// ClassTemplates: classes of the library that become many, each with names and texts of its own.
//
// DESCRIPTION
//   A template is an ordinary class of src/runtime/templates, compiled by the build and embedded
//   in the library, but no part of the archive: it never runs itself. Its methods are named by
//   markers, $$LIKE_THIS$$; a class made of it gets real names for the ones that are to stay, and
//   loses the others. A further template is its source, its names in CMakeLists.txt and
//   RuntimeArchive.S, and a constant here.

struct ClassTemplate {
    const unsigned char* bytes;
    const int* size;
    // What the Java caller is told of one that does not parse.
    const char* invalid;
};

// The probe of a trigger's method listener.
extern const ClassTemplate METHOD_LISTENER_TEMPLATE;

// The class file that the template gives with each first text of a pair replaced by the second, one
// pair after the other, in all texts of the class; methods that still have a marker for a name are
// left out. Null with a Java exception pending where the array is not made of pairs of texts.
jbyteArray patchClassTemplate(JNIEnv* env, const ClassTemplate& classTemplate,
                              jobjectArray macroAndValuePairs);
