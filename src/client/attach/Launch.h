// How a program is started so that its JVM loads the agent.
#pragma once

#include <string>
#include <vector>

namespace vdk {

constexpr char ToolOptionsVariable[] = "JAVA_TOOL_OPTIONS";

// What is run, and with which environment.
struct Launch {
    std::vector<std::string> command;
    std::string environment; // value of JAVA_TOOL_OPTIONS, if it is to be set
};

// Puts the agent's option right behind the launcher or, where the program is no tool of a JDK, into
// the environment of the JVMs that it starts.
Launch makeLaunch(const std::vector<std::string>& command, const std::string& option);

// The program is `java` itself, so that its process is the JVM's.
bool isJavaLauncher(const std::string& program);

// Becomes the program. Comes back, with errno, only if it cannot be started.
void execute(const Launch& launch);

// The name from the root folder on.
std::string absoluteName(const std::string& path);

} // namespace vdk
