#pragma once

#include "classfile/ClassFile.h"

#include <gtest/gtest.h>
#include <string>

// What the tests of class files share.

// Tests whose code logs what they don't look at.
class QuietTest : public testing::Test {
protected:
    QuietTest() {
        Logger::setSink([](const char*) {});
    }
    ~QuietTest() override { Logger::setSink(nullptr); }
};

inline std::string writtenClass(ClassFile& classFile) {
    ZVector<unsigned char> bytes(4096);
    DataOutput output(bytes);
    classFile.writeClass(output);
    return std::string(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<size_t>(bytes.getSize()));
}

// A class parsed from bytes that live as long as it.
struct ParsedClass {
    explicit ParsedClass(const std::string& bytes, bool strip = false)
        : text(bytes),
          input(reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())),
          classFile(input, strip) {}
    CodeAttribute* code(const char* name) {
        bool ambiguous;
        return classFile.findFirstMethod(name, &ambiguous)->getCodeAttribute();
    }
    std::string write() { return writtenClass(classFile); }

    std::string text;
    DataInput input;
    ClassFile classFile;
};
