// The usage text: one table of the documented options and the layout around it.
#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/ground/Version.h"

#include <cstdio>
#include <cstring>

namespace {

const int DESCRIPTION_COLUMN = 19;

struct UsageEntry {
    const char* option;
    const char* description; // a newline in it continues in the description column
};

const UsageEntry USAGE[] = {
    {"port=<value>", "port to listen on (1-65535, by default any free port is chosen)"},
    {"listen=<ip>:<port>", "same as 'port', but bind agent socket to particular IP only"},
    {"onlylocal", "allow only local connections to profiled application"},
    {"dir=<custom dir>",
     "directory where snapshots are created (by default <user home>/Snapshots)"},
    {"delay=<ms>", "postpone start of telemetry"},
    {"telemetrylimit=<N>", "limit telemetry buffer capacity to N hours (approximately)"},
    {"telemetryperiod=<ms>",
     "specify how often telemetry information is obtained (default 1000 ms = 1 sec)"},
    {"onexit=memory", "always capture memory snapshot on exit"},
    {"onexit=snapshot", "always capture performance snapshot on exit (i.e. without heap)"},
    {"sampling", "startup with CPU sampling"},
    {"tracing", "startup with CPU tracing (cannot be used together with 'disabletracing')"},
    {"noj2ee", "do not perform J2EE high level profiling (use only in combination with 'sampling' "
               "or 'tracing')"},
    {"alloceach=<N>",
     "startup with object allocation recording: record each N-th allocation;\n"
     "can be used together with 'allocsizelimit'; cannot be used together with 'disablealloc'"},
    {"allocsizelimit=<B>",
     "startup with object allocation recording: record objects with size >= B bytes\n"
     "can be used together with 'alloceach'; cannot be used together with 'disablealloc'"},
    {"monitors", "startup with monitor usage profiling"},
    {"triggers=<file path>", "read trigger description from the file"},
    {"usedmem=<percent>", "capture memory snapshot when used heap memory reaches the threshold "
                          "(deprecated; use triggers instead)"},
    {"periodicperf=<seconds>",
     "periodically capture performance snapshots (deprecated; use triggers instead)"},
    {"periodicmem=<seconds>",
     "periodically capture memory snapshots (*.snapshot) (deprecated; use triggers instead)"},
    {"periodichprof=<seconds>", "periodically capture HPROF snapshots (Sun Java only) (deprecated; "
                                "use triggers instead)"},
    {"probe=<full qualified class name>",
     "specify which probe class(es) to be registered on startup"},
    {"probeclasspath=<classpath>, probebootclasspath=<classpath>",
     "specify where to find probe class(es) which are registered by class name"},
    {"probewarningsaserrors",
     "treat probe registration warnings as errors (use with 'probe=<...>')"},
    {"builtinprobes=all", "register all built-in probes on startup (default behavior)"},
    {"builtinprobes=none", "register none of the built-in probes on startup"},
    {"noprobe=<built-in probe short class name>",
     "do not register particular built-in probe on startup"},
    {"disablealloc", "do not instrument bytecode for object allocation recording"},
    {"disabletracing", "do not instrument bytecode for CPU tracing"},
    {"disablej2ee", "do not instrument bytecode for J2EE profiling"},
    {"disablestacktelemetry", "do not collect thread stack and status information"},
    {"disableexceptiontelemetry", "do not collect exception telemetry"},
    {"disableoomedumper", "disable on OutOfMemoryError snapshots"},
    {"disableall", "disable several capabilities at once"},
    {"noexceptionevents", "do not ask the JVM for exception events: having them slows down each "
                          "throw, even while nothing is recorded"},
    {"latetelemetry", "no telemetry record before the first period is over, while nothing else is "
                      "recorded: a program that ends sooner loads no class of the JVM's for it"},
    {"samplelines", "samples tell the lines of the source"},
    {"keepfiltered",
     "calls of filtered methods from filtered ones take no native call while tracing"},
    {"noidlestacks", "the table of loaded classes tells by whom only while something is recorded"},
    {"nolocals", "do not ask the JVM for local variables: having them slows compiled code down; "
                 "heap snapshots then have no names of those that hold an object"},
    {"redact", "let probes mask literals in SQL and values in the queries of URLs"},
    {"allowcommands", "let triggers run programs (RunCommand)"},
    {"allowwebhooks", "let triggers send messages to URLs (PostWebhook)"},
    {"onlyuser", "serve only clients of the user that runs the application, and root"},
    {"optional", "let the application start without the agent where the agent cannot start"},
    {"nostartgeneration", "do not tag the objects of the heap for the generation that is opened "
                          "at start; the next mark or snapshot tags them"},
    {"exitsnapshot=<file>", "capture a performance snapshot on exit and write it to this file"},
    {"noexitsnapshot", "never capture a snapshot on exit, not even while CPU times are measured"},
    {"tellsnapshot", "tell on standard error where the snapshot captured on exit lies"},
    {"loglimit=<megabytes>", "begin a new log file beyond this size, and keep one older one; "
                             "default is 10, 0 means no limit"},
};

void appendBlanks(ZString& text, int count) {
    for (int i = 0; i < count; i++) {
        text.appendChar(' ');
    }
}

void appendEntry(ZString& text, const UsageEntry& entry) {
    text.append(entry.option);
    const int length = static_cast<int>(strlen(entry.option));
    if (length < DESCRIPTION_COLUMN) {
        appendBlanks(text, DESCRIPTION_COLUMN - length);
    } else {
        text.append("\n");
        appendBlanks(text, DESCRIPTION_COLUMN);
    }
    for (const char* c = entry.description; *c != 0; c++) {
        text.appendChar(*c);
        if (*c == '\n') {
            appendBlanks(text, DESCRIPTION_COLUMN);
        }
    }
    text.append("\n");
}

} // namespace

void Options::printUsage() {
    ZString text("\n" VDK_FULL_NAME
                 " JVMTI agent usage: -agentpath:<path to agent library>=[<option>, ...]\n\n"
                 "Option             Description\n"
                 "------------------ ----------------------------------------\n");
    for (const UsageEntry& entry : USAGE) {
        appendEntry(text, entry);
    }
    text.append("\nPlease find detailed description of the startup options at\n"
                "    " VDK_OPTIONS_PAGE "\n\n"
                "Examples:\n"
                "    java -agentpath:/opt/vandrik/libvdkagent.so Main\n"
                "    java -agentpath:/opt/vandrik/libvdkagent.so=sampling,onlylocal,"
                "sessionname=shop Main\n");
    Logger::printToConsole(stdout, text);
    fflush(stdout);
}
