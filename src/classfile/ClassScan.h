#pragma once

// ClassScan: what a walk over a class file finds without taking it apart: most classes have neither
// natives nor a loadClass method, and are told by it in some microseconds.
class ClassScan {
public:
    // A file that can't be walked is said to have everything: whoever parses it finds out.
    ClassScan(const unsigned char* data, int length);

    bool hasNatives() const { return natives; }
    // A method of that name, whatever its descriptor.
    bool hasLoadClass() const { return loadClass; }

private:
    bool natives = false;
    bool loadClass = false;
};
