#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Class files for tests: those of the JDKs and jars of this machine, or compiled on the spot.

struct NamedClass {
    std::string name;
    const unsigned char* bytes;
    int length;
};

// A file of many classes, mapped into memory, as ExtractClasses.java writes it.
class ClassBundle {
public:
    explicit ClassBundle(const std::string& path);
    ~ClassBundle();
    ClassBundle(const ClassBundle&) = delete;
    ClassBundle& operator=(const ClassBundle&) = delete;
    const std::vector<NamedClass>& classes() const { return entries; }

private:
    unsigned char* mapped;
    size_t size;
    std::vector<NamedClass> entries;
};

// Homes of all JDKs of release 17 or later with a compiler.
std::vector<std::string> findJdks();
// Home of the JDK of this release, empty if there is none.
std::string findJdk(const std::string& release);
// The jar files that VDK_LINK_JARS lists, by colons; without it those installed by the system, no
// symbolic links.
std::vector<std::string> findSystemJars();
// Writes the classes of the sources ("jrt", "jrt:module" or jars) to a bundle in the temporary
// directory and gives its path. Throws std::runtime_error.
std::string extractClasses(const std::string& jdk, const std::vector<std::string>& sources);
// Compiles one source file with further javac options and gives the directory of the classes.
std::string compileJava(const std::string& jdk, const std::string& className,
                        const std::string& source, const std::string& options = "");
std::string readBinaryFile(const std::string& path);
void writeBinaryFile(const std::string& path, const std::string& bytes);
// Runs a shell command; its standard output and error go to *output. Gives the exit code.
int runCommand(const std::string& command, std::string* output);
// A fresh directory that is removed when the process ends.
std::string makeTemporaryDirectory();
