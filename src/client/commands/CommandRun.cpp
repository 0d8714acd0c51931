#include "client/attach/AgentLibraryFile.h"
#include "client/attach/AgentOptions.h"
#include "client/commands/Commands.h"
#include "client/console/Errors.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace vdk {

// How the launcher takes an option for its JVM: java as it is, the tools of a JDK behind -J.
static std::string launcherPrefix(const std::string& program) {
    std::string name = program.substr(program.rfind('/') + 1);
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
    throw ClientError(
        ExitCode::Usage, "run.launcher", "'" + printable(name) + "' is no Java launcher",
        "for a script that starts java itself, put what `vdk run --print ... -- java` "
        "shows into the variable JAVA_TOOL_OPTIONS or the script's own options");
}

int runRun(Console& console, const Arguments& arguments) {
    std::string prefix = launcherPrefix(arguments.command.front());
    AgentOptionChoices choices;
    choices.remote = arguments.has("--remote");
    choices.verbose = arguments.has("--banner");
    choices.exceptions = arguments.has("--exceptions");
    choices.tmpDir = ownPrivateDirectory();
    std::string options = composeAgentOptions(arguments.all("OPTION"), choices);
    std::string library = findAgentLibrary(arguments.text("--agent"), ExitCode::CannotRun);
    std::vector<std::string> command = arguments.command;
    command.insert(command.begin() + 1, prefix + "-agentpath:" + library + "=" + options);
    if (arguments.has("--print")) {
        for (std::string& word : command) {
            word = shellWord(word);
        }
        console.out << join(command, " ") << "\n";
        return 0;
    }
    std::vector<char*> pointers;
    for (std::string& word : command) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    console.out.flush();
    restoreSignalHandlers();
    execvp(pointers[0], pointers.data());
    throw ClientError(ExitCode::CannotRun, "run.exec",
                      "cannot run " + command.front() + ": " + strerror(errno));
}

} // namespace vdk
