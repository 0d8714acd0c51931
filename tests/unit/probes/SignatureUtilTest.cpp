#include "probes/SignatureUtil.h"

#include <gtest/gtest.h>
#include <string>

namespace {
// Parses a pattern; the six outputs as "class|method|parameters|return|annotation|annotation", or
// the message.
std::string parsed(const char* pattern) {
    ZString className;
    ZString methodName;
    ZString parameters;
    ZString returnType;
    ZString classAnnotation;
    ZString methodAnnotation;
    const ZString error = SignatureUtil::parseMethodPattern(
        pattern, className, methodName, parameters, returnType, classAnnotation, methodAnnotation);
    if (!error.isEmpty()) {
        return error.c_str();
    }
    std::string text = className.c_str();
    for (const ZString* output :
         {&methodName, &parameters, &returnType, &classAnnotation, &methodAnnotation}) {
        text += "|";
        text += output->c_str();
    }
    return text;
}

constexpr const char* SYNTAX = "invalid pattern syntax, must be <class>:<method>(<params>)";
constexpr const char* CLASS_ANNOTATION =
    "class pattern with annotation is invalid, must be: @<annotation pattern> <class pattern>";
constexpr const char* METHOD_ANNOTATION =
    "method pattern with annotation is invalid, must be: @<annotation pattern> <method pattern>";
} // namespace

TEST(SignatureUtil, validPatterns) {
    const char* const rows[][2] = {
        {"a.b:c()", "a.b|c|()|*||"},
        {"a.b:c( int , String ) java.lang.String[]",
         "a.b|c|(int, java.lang.String)|java.lang.String[]||"},
        {"a.b:c(*)", "a.b|c|(*)|*||"},
        {"@foo.Ann a.b:@bar.Ann c()", "a.b|c|()|*|foo.Ann|bar.Ann"},
        {"@ foo.Ann  a.b : @bar.* get*( )", "a.b|get*|()|*|foo.Ann|bar.*"},
        {"java.io.RandomAccessFile : read()", "java.io.RandomAccessFile|read|()|*||"},
        {"a.b:c(,int)", "a.b|c|(int)|*||"},
        {"a.b:c(int,)", "a.b|c|(int)|*||"},
        {"a:<init>()", "a|<init>|()|*||"},
        {"a:<clinit>()", "a|<clinit>|()|*||"},
        {"*:*(*)", "*|*|(*)|*||"},
        {"a:b(Object, String[],Object[],Strings)",
         "a|b|(java.lang.Object, java.lang.String[], java.lang.Object[], Strings)|*||"},
        {"a:b(String[][])", "a|b|(String[][])|*||"},
        {"a:b() String", "a|b|()|String||"},
        {"a:b()  int[] ", "a|b|()|int[]||"},
        {"a:b() ", "a|b|()|*||"},
        {"\tfoo.*\n:b(\tint\t)", "foo.*|b|(int)|*||"},
        {"caf\xC3\xA9.T\xC3\xA9l:m()", "caf\xC3\xA9.T\xC3\xA9l|m|()|*||"},
        {"$Proxy1:_x$()", "$Proxy1|_x$|()|*||"},
        {"a:b(foo.*[], int[*])", "a|b|(foo.*[], int[*])|*||"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row[1], parsed(row[0])) << row[0];
    }
}

TEST(SignatureUtil, firstFailureDecidesTheMessage) {
    const char* const rows[][2] = {
        {"", SYNTAX},
        {"foo:bar", SYNTAX},
        {"a:b(", SYNTAX},
        {"a:b)(", SYNTAX},
        {"a(:b)", SYNTAX},
        {"@a.b:c()", CLASS_ANNOTATION},
        {"@ b:c()", CLASS_ANNOTATION},
        {"@:c()", CLASS_ANNOTATION},
        {"a..b:c()", "class name pattern is invalid: a..b"},
        {".a:c()", "class name pattern is invalid: .a"},
        {":c()", "class name pattern is invalid: "},
        {"a b:c()", "class name pattern is invalid: a b"},
        {"1a:c()", "class name pattern is invalid: 1a"},
        {"@1x a:c()", "class annotation pattern is invalid: 1x"},
        {"@foo..X a:c()", "class annotation pattern is invalid: foo..X"},
        {"a:@b()", METHOD_ANNOTATION},
        {"a:1b()", "method name pattern is invalid: 1b"},
        {"a:b.c()", "method name pattern is invalid: b.c"},
        {"a:<foo>()", "method name pattern is invalid: <foo>"},
        {"a:()", "method name pattern is invalid: "},
        {"a:@1 b()", "method annotation pattern is invalid: 1"},
        {"a:b() 1", "return type pattern is invalid: 1"},
        {"a:b(1) 1", "return type pattern is invalid: 1"},
        {"a:b(1)", "parameter pattern is invalid: 1"},
        {"a.b:c( ,int)", "parameter pattern is invalid: "},
        {"a:b(int, )", "parameter pattern is invalid: "},
        {"a:b([]int)", "parameter pattern is invalid: []int"},
        {"..:1b(1) 1", "class name pattern is invalid: .."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row[1], parsed(row[0])) << row[0];
    }
}

TEST(SignatureUtil, methodDescriptorsBecomeParameters) {
    const char* const rows[][2] = {
        {"([BII)V", "(byte[], int, int)"},
        {"()V", "()"},
        {"(Ljava/lang/String;[[Ljava/util/Map;J)Z", "(java.lang.String, java.util.Map[][], long)"},
        {"(BCDFIJSZ)V", "(byte, char, double, float, int, long, short, boolean)"},
        {"(X)V", "()"},
        {"(IX)V", "(int, )"},
        {"(Lbroken)V", "(broken)"},
        {"([", "()"},
        {"([)", "([])"},
        {"", "()"},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(row[1], SignatureUtil::convertMethodSignatureToParameters(row[0]).c_str())
            << row[0];
    }
}

TEST(SignatureUtil, classSignaturesBecomeNames) {
    const char* const rows[][2] = {
        {"[[Ljava/lang/String;", "java.lang.String[][]"},
        {"I", "int"},
        {"[Z", "boolean[]"},
        {"V", "void"},
        {"java/lang/Object", "java.lang.Object"},
        {"LB;", "B"},
        {"X", "X"},
        {"", ""},
        {"[", "[]"},
        {"L", "L"},
        {";", ";"},
        {"L;", ""},
        {"Labc", "Labc"},
    };
    for (const auto& row : rows) {
        EXPECT_STREQ(row[1], SignatureUtil::convertClassSignatureToFullName(row[0]).c_str())
            << row[0];
    }
}
