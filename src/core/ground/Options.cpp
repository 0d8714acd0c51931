#include "core/ground/Options.h"

#include "core/ground/Globals.h"
#include "core/ground/JavaNames.h"
#include "core/ground/Logger.h"
#include "core/ground/SessionName.h"
#include "core/ground/Version.h"
#include "platform/Platform.h"

#include <cstdlib>
#include <cstring>
#include <limits.h>
#include <unistd.h>

const char* const ourBuiltInProbes[] = {
    "com.vandrik.probes.builtin.AWTEvents",
    "com.vandrik.probes.builtin.Databases",
    "com.vandrik.probes.builtin.FileStreams",
    "com.vandrik.probes.builtin.FileChannels",
    "com.vandrik.probes.builtin.JUnitTests",
    "com.vandrik.probes.builtin.Processes",
    "com.vandrik.probes.builtin.RandomAccessFiles",
    "com.vandrik.probes.builtin.Servlets",
    "com.vandrik.probes.builtin.Sockets",
    "com.vandrik.probes.builtin.Threads",
    nullptr,
};

// Made at load and never destroyed: the JVM's own threads may read it to the very end.
Options* ourOptions = new Options();

namespace {

const char BUILT_IN_PREFIX[] = "com.vandrik.probes.builtin.";
const char QUOTED_PREFIX[] = "VDKQUOTED";
const int JBOSS_DELAY_MS = 10000;
const int SECONDS_PER_HOUR = 3600;
const int MAX_PORT = 65535;
const char* const DEBUGGER_ARGUMENTS[] = {"-Xdebug", "-Xrunjdwp", "-agentlib:jdwp"};

void pushArgument(const char* argument, void* context) {
    static_cast<ZVectorSafe<ZString>*>(context)->push(argument);
}

ZString toLowerCase(const ZString& text) {
    ZString lower(text);
    for (int i = 0; i < lower.getLength(); i++) {
        const char c = lower.data()[i];
        if (c >= 'A' && c <= 'Z') {
            lower.data()[i] = static_cast<char>(c + ('a' - 'A'));
        }
    }
    return lower;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool isAttached() {
    return (ourCapabilities & CAPABILITY_ATTACHED_AGENT) != 0;
}

} // namespace

ZString unquote(const ZString& value) {
    if (!value.startsWith(QUOTED_PREFIX)) {
        return value;
    }
    const int start = static_cast<int>(strlen(QUOTED_PREFIX));
    if ((value.getLength() - start) % 2 != 0) {
        return value;
    }
    ZString text;
    for (int i = start; i < value.getLength(); i += 2) {
        const int high = hexDigit(value.charAt(i));
        const int low = hexDigit(value.charAt(i + 1));
        if (high < 0 || low < 0) {
            return value;
        }
        text.appendChar(static_cast<char>(high * 16 + low));
    }
    return text;
}

Options::Options() {
    Platform::processArguments(Platform::vdk_getpid(), pushArgument, &commandLine);
    initialize();
}

Options::Options(const ZVectorSafe<ZString>& arguments) {
    for (int i = 0; i < arguments.getSize(); i++) {
        commandLine.push(arguments[i]);
    }
    initialize();
}

void Options::initialize() {
    withDebugger = false;
    for (const char* argument : DEBUGGER_ARGUMENTS) {
        withDebugger = withDebugger || containsVMArgument(argument);
    }
    delay = !isAttached() && isJBoss() ? JBOSS_DELAY_MS : 0;
    addBuiltInProbes();
}

bool Options::isDebug(const char* category) {
    if (ourOptions == nullptr) {
        return false;
    }
    if (ourOptions->debugAll && category[0] != '_') {
        return true;
    }
    for (int i = 0; i < ourOptions->debugCategories.getSize(); i++) {
        if (ourOptions->debugCategories[i] == category) {
            return true;
        }
    }
    return false;
}

ZString Options::getSessionName() const {
    return sessionName.isEmpty() ? getSessionNameByCommandLine(commandLine) : sessionName;
}

bool Options::isJBoss() const {
    for (int i = 1; i < commandLine.getSize(); i++) {
        if (toLowerCase(commandLine[i]).contains("jboss")) {
            return true;
        }
    }
    return false;
}

bool Options::containsVMArgument(const char* prefix) const {
    for (int i = 1; i < commandLine.getSize(); i++) {
        if (commandLine[i].startsWith(prefix)) {
            return true;
        }
    }
    return false;
}

ZString Options::getHeapDumpPath() const {
    static const char PREFIX[] = "-XX:HeapDumpPath=";
    ZString path;
    for (int i = 0; i < commandLine.getSize(); i++) {
        if (commandLine[i].startsWith(PREFIX)) {
            path = commandLine[i].substring(static_cast<int>(strlen(PREFIX)));
            break;
        }
    }
    if (path.startsWith("/")) {
        return path;
    }
    char directory[PATH_MAX];
    if (getcwd(directory, sizeof directory) == nullptr) {
        return path;
    }
    return path.isEmpty() ? ZString(directory) : ZString(directory) + "/" + path;
}

void Options::removeProbe(const ZString& name) {
    for (int i = probes.getSize() - 1; i >= 0; i--) {
        if (probes[i] == name) {
            probes.removeRange(i, i + 1);
        }
    }
}

void Options::addProbe(const ZString& name) {
    removeProbe(name);
    probes.push(name);
}

void Options::addBuiltInProbes() {
    for (const char* const* name = ourBuiltInProbes; *name != nullptr; name++) {
        addProbe(*name);
    }
}

void Options::removeBuildInProbes() {
    for (const char* const* name = ourBuiltInProbes; *name != nullptr; name++) {
        removeProbe(*name);
    }
}

void Options::reportInvalidOption(const ZString& message) const {
    if (refusalReason != nullptr) {
        *refusalReason = message;
        return;
    }
    const ZString refusal = ZString("Cannot start: invalid option: ") + message;
    if (optional || isAttached()) {
        Logger::refusal(refusal);
        return;
    }
    Logger::message(refusal, stdout);
    printUsage();
}

bool Options::check(const char* options, ZString* reason) {
    refusalReason = reason;
    const bool accepted = parse(options);
    refusalReason = nullptr;
    return accepted;
}

bool Options::help(const ZString&) {
    if (refusalReason != nullptr) {
        *refusalReason = "help";
        return false;
    }
    if (optional || isAttached()) {
        Logger::refusal("Cannot start: 'help' is for a start of its own; the options are told "
                        "at " VDK_OPTIONS_PAGE);
    } else {
        printUsage();
    }
    return false;
}

bool Options::disableJ2EE(const ZString&) {
    ourCapabilities &= ~CAPABILITY_CAN_RECORD_J2EE;
    noJ2EE = true;
    removeProbe(J2EE_PROBE_DOTTED);
    return true;
}

bool Options::redact(const ZString&) {
    ourCapabilities |= CAPABILITY_REDACTS;
    return true;
}

bool Options::putCallsOnDemand(const ZString&) {
    onDemand = true;
    ourCapabilities |= CAPABILITY_ON_DEMAND;
    return true;
}

bool Options::disableAll(const ZString& value) {
    ourCapabilities &= ~(CAPABILITY_CAN_TRACE | CAPABILITY_CAN_RECORD_ALLOCATIONS);
    disableJ2EE(value);
    disableNatives = true;
    removeBuildInProbes();
    ourStatus &= ~(STACK_TELEMETRY | EXCEPTION_TELEMETRY);
    return true;
}

bool Options::probe(const ZString& value) {
    if (value.startsWith(".")) {
        for (const char* const* name = ourBuiltInProbes; *name != nullptr; name++) {
            if (ZString(*name).endsWith(value.c_str())) {
                addProbe(*name);
                return true;
            }
        }
    }
    addProbe(value);
    return true;
}

bool Options::noProbe(const ZString& value) {
    removeProbe(ZString(BUILT_IN_PREFIX) + value);
    return true;
}

bool Options::addProbePaths(const char* option, const char* field, const ZString& paths,
                            ZVectorSafe<ZString>& elements) {
    ZVectorSafe<ZString> pieces;
    paths.split(":", pieces);
    for (int i = 0; i < pieces.getSize(); i++) {
        const ZString& element = pieces[i];
        if (isAttached() && !toLowerCase(element).endsWith(".jar")) {
            reportInvalidOption(ZString("in attach mode '") + option +
                                "' accepts only JAR files: " + element);
            return false;
        }
        elements.push(element);
        Logger::message(ZString(field) + ": " + element);
    }
    return true;
}

bool Options::probeClassPath(const ZString& value) {
    return addProbePaths("probeclasspath", "probeSystemClassPath", value, probeSystemClassPath);
}

bool Options::probeBootClassPathAction(const ZString& value) {
    return addProbePaths("probebootclasspath", "probeBootClassPath", value, probeBootClassPath);
}

bool Options::allBuiltInProbes(const ZString&) {
    addBuiltInProbes();
    return true;
}

bool Options::noBuiltInProbes(const ZString&) {
    removeBuildInProbes();
    return true;
}

bool Options::listen(const ZString& value) {
    const int colon = value.lastIndexOf(':');
    if (colon >= 0) {
        listenHost = value.substring(0, colon);
    }
    port = atoi(value.substring(colon + 1).c_str());
    if (port < 1 || port > MAX_PORT) {
        reportInvalidOption("'listen': port value is invalid");
        return false;
    }
    return true;
}

bool Options::debug(const ZString& value) {
    debugCategories.push(value);
    debugAll = debugAll || value == "all";
    return true;
}

bool Options::noDelay(const ZString&) {
    delay = -1;
    return true;
}

bool Options::delayBy(const ZString& value) {
    if (isAttached()) {
        Logger::message("Warning: ignoring 'delay' in attach mode");
        return true;
    }
    delay = atoi(value.c_str());
    if (delay < 0) {
        reportInvalidOption("'delay' is invalid");
        return false;
    }
    return true;
}

bool Options::telemetryHours(const ZString& value) {
    const int hours = atoi(value.c_str());
    if (hours < 1) {
        reportInvalidOption(
            "'telemetrylimit' value is invalid: number of hours should not be less than 1");
        return false;
    }
    telemetryLimit = hours > INT_MAX / SECONDS_PER_HOUR ? INT_MAX : hours * SECONDS_PER_HOUR;
    return true;
}

bool Options::allocationEach(const ZString& value) {
    allocEachSet = true;
    allocEach = atoi(value.c_str());
    if (allocEach < 1) {
        reportInvalidOption("'alloceach' value is invalid");
        return false;
    }
    return true;
}

bool Options::allocationSizeLimit(const ZString& value) {
    allocSizeLimitSet = true;
    allocSizeLimit = atoi(value.c_str());
    return true;
}

bool Options::allocationSampled(const ZString& value) {
    char* unit = nullptr;
    const long number = strtol(value.c_str(), &unit, 10);
    const long factor = *unit == '\0'            ? 1
                        : strcmp(unit, "k") == 0 ? 1 << 10
                        : strcmp(unit, "m") == 0 ? 1 << 20
                                                 : 0;
    if (factor == 0 || number < 1 || number > INT_MAX / factor) {
        reportInvalidOption("'allocsampled' value is invalid (should be bytes, such as 512k)");
        return false;
    }
    allocSampled = static_cast<int>(number * factor);
    return true;
}

bool Options::exitOnException(const ZString&) {
    Logger::ourExitOnException = true;
    return true;
}
