// The program `jfr` of a JDK of this machine, which knows the form of recordings.
#pragma once

#include <cstdio>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vdk {

class JfrProgram {
public:
    // Starts that of the latest JDK among JAVA_HOME and those below /usr/lib/jvm. Throws
    // ClientError CannotRun "foreign.jfr" if there is none.
    explicit JfrProgram(std::vector<std::string> arguments);
    ~JfrProgram();
    JfrProgram(const JfrProgram&) = delete;
    JfrProgram& operator=(const JfrProgram&) = delete;

    const std::string& path() const { return program; }
    FILE* output() const { return out; }
    // Its exit code; output() is closed behind it.
    int await();

private:
    std::string program;
    pid_t child = -1;
    FILE* out = nullptr;
};

} // namespace vdk
