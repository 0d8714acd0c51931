#pragma once

#include "core/ground/NameBits.h"

// Names of methods to look for in many classes.
class SoughtNames {
public:
    void add(const ZString& name);
    void clear();
    // A few names too many.
    bool mayHave(const unsigned char* name, int length) const;

private:
    // Most texts of a class are told by their length and first byte.
    unsigned long lengths = 0;
    unsigned long firstBytes[4] = {};
    NameBits<4096> names;
};

// ClassScan: what a walk over a class file finds without taking it apart: most classes have neither
// natives nor a loadClass method, and are told by it in some microseconds.
class ClassScan {
public:
    // A file that can't be walked is said to have everything: whoever parses it finds out. names:
    // null for none.
    ClassScan(const unsigned char* data, int length, const SoughtNames* names = nullptr);

    bool hasNatives() const { return natives; }
    // A method of that name, whatever its descriptor.
    bool hasLoadClass() const { return loadClass; }
    // One of the names may be that of a method.
    bool mayHaveNamed() const { return named; }

private:
    bool natives = false;
    bool loadClass = false;
    bool named = false;
};
