#include "client/attach/Launch.h"

#include <climits>
#include <cstdlib>
#include <optional>
#include <unistd.h>

namespace vdk {

namespace {

std::string lastName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// How the program takes an option for its JVM: java as it is, the tools of a JDK behind -J. For any
// other the environment tells the JVMs that it starts, and nothing comes back.
std::optional<std::string> launcherPrefix(const std::string& program) {
    const std::string name = lastName(program);
    if (name == "java") {
        return "";
    }
    static const char* const tools[] = {"javac", "javadoc", "jar",   "jshell",  "jlink",
                                        "jmod",  "javap",   "jdeps", "keytool", "jarsigner"};
    for (const char* tool : tools) {
        if (name == tool) {
            return "-J";
        }
    }
    return std::nullopt;
}

// The value for JAVA_TOOL_OPTIONS: behind what stands there, in quotes where the JVM would split.
std::string toolOptions(const std::string& option) {
    const char* present = getenv(ToolOptionsVariable);
    std::string word =
        option.find_first_of(" \t'") == std::string::npos ? option : "\"" + option + "\"";
    return (present && *present ? std::string(present) + " " : "") + word;
}

} // namespace

Launch makeLaunch(const std::vector<std::string>& command, const std::string& option) {
    Launch launch{command, ""};
    std::optional<std::string> prefix =
        command.empty() ? std::nullopt : launcherPrefix(command.front());
    if (prefix) {
        launch.command.insert(launch.command.begin() + 1, *prefix + option);
    } else {
        launch.environment = toolOptions(option);
    }
    return launch;
}

std::string absoluteName(const std::string& path) {
    char folder[PATH_MAX];
    return path[0] == '/' || !getcwd(folder, sizeof(folder)) ? path
                                                             : std::string(folder) + "/" + path;
}

bool isJavaLauncher(const std::string& program) {
    return lastName(program) == "java";
}

void execute(const Launch& launch) {
    if (!launch.environment.empty()) {
        setenv(ToolOptionsVariable, launch.environment.c_str(), 1);
    }
    std::vector<char*> pointers;
    for (const std::string& word : launch.command) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    execvp(pointers[0], pointers.data());
}

} // namespace vdk
