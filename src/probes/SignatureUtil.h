#pragma once

#include "core/ground/ZString.h"
#include "core/ground/ZVector.h"

// Method patterns, the one notation in which people name Java methods to the agent, and conversions
// between the JVM's spellings and the dotted one that patterns are matched against:
//   [@annotation ]class:[@annotation ]method(parameters)[ return type]
// A class part is a dotted type name, parameters are types separated by commas, and "*" stands for
// any run of characters anywhere.
class SignatureUtil {
public:
    // Takes a pattern apart into its six texts. Parameters come out with parentheses, items joined
    // by ", "; a return type or annotation that the pattern leaves out as "*" and "". Returns the
    // error message for the user, empty on success; after an error the outputs mean nothing.
    static ZString parseMethodPattern(const ZString& pattern, ZString& className,
                                      ZString& methodName, ZString& parameters, ZString& returnType,
                                      ZString& classAnnotation, ZString& methodAnnotation);

    // "([BII)V" to "(byte[], int, int)".
    static ZString convertMethodSignatureToParameters(const ZString& descriptor);
    // The same, appended to a text that may be used again and again.
    static void appendParameters(const char* descriptor, int length, ZVector<char>& text);

    // "[[Ljava/lang/String;" to "java.lang.String[][]", "I" to "int", "java/lang/Object" to
    // "java.lang.Object".
    static ZString convertClassSignatureToFullName(const char* signature);
};

// A Java identifier, by its ASCII characters only: any other is taken as a letter.
bool isValidJavaIdentifier(const ZString& text, bool allowWildcard);
// Identifiers joined by dots.
bool isValidTypeName(const ZString& text, bool allowWildcard);
// A type name with wildcards, and array brackets behind it.
bool isValidParameterTypePattern(const ZString& text);

// "java.lang.Object" to "Ljava/lang/Object;"; empty for an empty name.
ZString className2signature(const ZString& name);

// Parameter types and return type of a method descriptor, all as descriptors: "(I[J)V" gives "I",
// "[J" and "V". The types are pushed on the vector.
void getSignatureTypes(const ZString& descriptor, ZVectorSafe<ZString>& types, ZString& returnType);
