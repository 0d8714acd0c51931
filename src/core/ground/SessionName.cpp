#include "core/ground/SessionName.h"

#include "core/ground/Logger.h"
#include "platform/Platform.h"

namespace {

const char* const IDE_LAUNCHERS[] = {"idea.exe", "netbeans.exe", "netbeans", "nbexec.exe",
                                     "nbexec"};
// Options of the launcher whose value is the argument behind them. All but the first two came with
// modules; without them a module path would pass for the main class.
const char* const OPTIONS_WITH_VALUE[] = {"-cp",
                                          "-classpath",
                                          "--class-path",
                                          "-p",
                                          "--module-path",
                                          "--add-modules",
                                          "--upgrade-module-path",
                                          "--limit-modules",
                                          "--add-exports",
                                          "--add-opens",
                                          "--add-reads",
                                          "--patch-module",
                                          "--source",
                                          "--enable-native-access"};
const char IDE_RUNNER[] = "com.intellij.rt.execution.application.AppMain";
const struct {
    const char* mainClass;
    const char* name;
} KNOWN_SERVERS[] = {
    {"com.sun.enterprise.glassfish.bootstrap.ASMain", "GlassFish"},
    {"org.apache.catalina.startup.Bootstrap", "Tomcat"},
    {"org.eclipse.jetty.start.Main", "Jetty"},
};
const char JAR_ENDING[] = ".jar";

void pushArgument(const char* argument, void* context) {
    static_cast<ZVectorSafe<ZString>*>(context)->push(argument);
}

ZString textBehindLast(const ZString& text, char separator) {
    return text.substring(text.lastIndexOf(separator) + 1);
}

ZString fileName(const ZString& path) {
    return textBehindLast(textBehindLast(path, '/'), '\\');
}

bool isIdeLauncher(const ZString& launcher) {
    ZString lower(launcher);
    for (int i = 0; i < lower.getLength(); i++) {
        const char c = lower.data()[i];
        lower.data()[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
    }
    for (const char* name : IDE_LAUNCHERS) {
        if (lower.endsWith(name)) {
            return true;
        }
    }
    return false;
}

// The name of the application by its main class or JAR file.
ZString applicationName(const ZString& argument, bool isJar) {
    ZString name = fileName(argument);
    if (isJar) {
        return name.endsWith(JAR_ENDING)
                   ? name.substring(0, name.getLength() - static_cast<int>(sizeof JAR_ENDING) + 1)
                   : name;
    }
    for (const auto& server : KNOWN_SERVERS) {
        if (name.endsWith(server.mainClass)) {
            return server.name;
        }
    }
    return textBehindLast(name, '.');
}

} // namespace

void getCommandLineParameters(ZVectorSafe<ZString>* out, int pid) {
    Logger::assertTrue(out->isEmpty(), VDK_HERE);
    Platform::processArguments(pid, pushArgument, out);
}

bool isOptionWithValue(const ZString& argument) {
    for (const char* option : OPTIONS_WITH_VALUE) {
        if (argument == option) {
            return true;
        }
    }
    return false;
}

int findApplicationArgument(const ZVectorSafe<ZString>& commandLine) {
    for (int i = 1; i < commandLine.getSize(); i++) {
        const ZString& argument = commandLine[i];
        if (isOptionWithValue(argument)) {
            i++;
            continue;
        }
        // An argument that begins with "@" names a file of further arguments.
        if (!argument.endsWith(IDE_RUNNER) && !argument.startsWith("-") &&
            !argument.startsWith("@")) {
            return i;
        }
    }
    return commandLine.getSize();
}

ZString getSessionNameByCommandLine(const ZVectorSafe<ZString>& commandLine) {
    if (commandLine.isEmpty()) {
        return "unknown";
    }
    const int index = findApplicationArgument(commandLine);
    if (isIdeLauncher(commandLine[0]) || index == commandLine.getSize()) {
        return fileName(commandLine[0]);
    }
    return applicationName(commandLine[index], commandLine[index - 1] == "-jar");
}
