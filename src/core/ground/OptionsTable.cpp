// The table of the options, and parsing by it.
#include "core/ground/ConfigFile.h"
#include "core/ground/Globals.h"
#include "core/ground/JavaNames.h"
#include "core/ground/Logger.h"
#include "core/ground/Options.h"

#include <cstdlib>
#include <cstring>
#include <limits.h>

namespace {

const int MAX_PORT = 65535;

// Bits of ourCapabilities that only the Java side asks for; Constants.java has them too.
constexpr long CAPABILITY_ALLOWS_COMMANDS = 0x20000;
constexpr long CAPABILITY_ALLOWS_WEBHOOKS = 0x40000;

// A limit above the range of int is as good as its largest value.
int clampToInt(long value) {
    return value > INT_MAX ? INT_MAX : static_cast<int>(value);
}

} // namespace

// One option: its key, what it does, and the text of its refusal. A key that ends in "=" takes the
// rest of the piece as its value; any other must be the whole piece.
struct Options::Row {
    enum Kind { FLAG, NUMBER, TEXT, STATUS, CAPABILITY, PERMISSION, TRIGGER, ACTION };

    const char* key;
    Kind kind;
    bool Options::*flag = nullptr;
    bool flagValue = true;
    int Options::*number = nullptr;
    int least = INT_MIN;
    int most = INT_MAX;
    const char* error = nullptr;
    ZString Options::*text = nullptr;
    long clearedBit = 0;
    long setBit = 0;
    const char* beforeNumber = nullptr;
    const char* afterNumber = nullptr;
    bool (Options::*action)(const ZString&) = nullptr;

    static constexpr Row flagRow(const char* key, bool Options::*flag, bool value = true) {
        Row row{key, FLAG};
        row.flag = flag;
        row.flagValue = value;
        return row;
    }
    static constexpr Row numberRow(const char* key, int Options::*number, int least = INT_MIN,
                                   int most = INT_MAX, const char* error = nullptr) {
        Row row{key, NUMBER};
        row.number = number;
        row.least = least;
        row.most = most;
        row.error = error;
        return row;
    }
    static constexpr Row textRow(const char* key, ZString Options::*text) {
        Row row{key, TEXT};
        row.text = text;
        return row;
    }
    static constexpr Row clearRow(const char* key, Kind kind, long bit) {
        Row row{key, kind};
        row.clearedBit = bit;
        return row;
    }
    static constexpr Row permissionRow(const char* key, long bit) {
        Row row{key, PERMISSION};
        row.setBit = bit;
        return row;
    }
    static constexpr Row triggerRow(const char* key, const char* before, const char* after,
                                    int least, int most, const char* error) {
        Row row{key, TRIGGER};
        row.beforeNumber = before;
        row.afterNumber = after;
        row.least = least;
        row.most = most;
        row.error = error;
        return row;
    }
    static constexpr Row actionRow(const char* key, bool (Options::*action)(const ZString&)) {
        Row row{key, ACTION};
        row.action = action;
        return row;
    }
};

#define VDK_TIMER "TimerListener delay="

// The options in the order in which they are tried.
// clang-format off
const Options::Row Options::ourRows[] = {
    Row::actionRow("help", &Options::help),
    Row::flagRow("tracing", &Options::tracing),
    Row::flagRow("noj2ee", &Options::noJ2EE),
    Row::flagRow("noperclassgc", &Options::perClassGC, false),
    Row::clearRow("disablealloc", Row::CAPABILITY, CAPABILITY_CAN_RECORD_ALLOCATIONS),
    Row::clearRow("disablecounts", Row::CAPABILITY, CAPABILITY_CAN_TRACE),
    Row::clearRow("disabletracing", Row::CAPABILITY, CAPABILITY_CAN_TRACE),
    Row::flagRow("disablenatives", &Options::disableNatives),
    Row::actionRow("ondemand", &Options::putCallsOnDemand),
    Row::textRow("traceonly=", &Options::traceOnly),
    Row::actionRow("disablej2ee", &Options::disableJ2EE),
    Row::actionRow("redact", &Options::redact),
    Row::permissionRow("allowcommands", CAPABILITY_ALLOWS_COMMANDS),
    Row::permissionRow("allowwebhooks", CAPABILITY_ALLOWS_WEBHOOKS),
    Row::flagRow("probewarningsaserrors", &Options::probeWarningsAsErrors),
    Row::actionRow("probe=", &Options::probe),
    Row::actionRow("probeclasspath=", &Options::probeClassPath),
    Row::actionRow("probebootclasspath=", &Options::probeBootClassPathAction),
    Row::actionRow("builtinprobes=all", &Options::allBuiltInProbes),
    Row::actionRow("builtinprobes=none", &Options::noBuiltInProbes),
    Row::actionRow("noprobe=", &Options::noProbe),
    Row::numberRow("probetablelengthlimit=", &Options::probeTableLengthLimit, 1, INT_MAX,
                   "'probetablelengthlimit' value is invalid (should be positive)"),
    Row::numberRow("deadthreadlimit=", &Options::deadThreadLimit, 1, INT_MAX,
                   "'deadthreadlimit' value is invalid (should be positive)"),
    Row::clearRow("disableexceptiontelemetry", Row::STATUS, EXCEPTION_TELEMETRY),
    Row::clearRow("disablestacktelemetry", Row::STATUS, STACK_TELEMETRY),
    Row::flagRow("disableoomedumper", &Options::disableOOMEDumper),
    Row::triggerRow("periodicmem=", VDK_TIMER, "s\n  CaptureMemorySnapshot\n", 1, INT_MAX,
                    "'periodicmem' value is invalid (should be positive)"),
    Row::actionRow("periodichprof=", &Options::periodicHprof),
    Row::triggerRow("periodicperf=", VDK_TIMER, "s\n  CapturePerformanceSnapshot\n", 1, INT_MAX,
                    "'periodicperf' value is invalid (should be positive)"),
    Row::flagRow("handlebadtimes", &Options::handleBadTimes),
    Row::actionRow("disableall", &Options::disableAll),
    Row::flagRow("monitors", &Options::monitors),
    Row::flagRow("noparks", &Options::noParks),
    Row::flagRow("sampling", &Options::sampling),
    Row::actionRow("alloceach=", &Options::allocationEach),
    Row::actionRow("allocsizelimit=", &Options::allocationSizeLimit),
    Row::actionRow("allocsampled=", &Options::allocationSampled),
    Row::numberRow("port=", &Options::port, 1, MAX_PORT, "'port' value is invalid"),
    Row::actionRow("listen=", &Options::listen),
    Row::flagRow("quiet", &Options::quiet),
    Row::flagRow("optional", &Options::optional),
    Row::flagRow("stripstackmaptable", &Options::stripStackMapTable),
    Row::actionRow("debug=", &Options::debug),
    Row::flagRow("oldibm", &Options::oldIBM),
    Row::flagRow("withdebugger", &Options::withDebugger),
    Row::actionRow("delay=-1", &Options::noDelay),
    Row::actionRow("delay=", &Options::delayBy),
    Row::actionRow("telemetrylimit=", &Options::telemetryHours),
    Row::flagRow("onlylocal", &Options::onlyLocal),
    Row::flagRow("onlyuser", &Options::onlyUser),
    Row::flagRow("onexit=memory", &Options::onExitMemory),
    Row::flagRow("onexit=snapshot", &Options::onExitSnapshot),
    Row::triggerRow("usedmem=", "HeapMemoryUsageListener usageThresholdPercent=",
                    " minimumTimeToActivateMs=0 maxTriggerCount=1\n  CaptureMemorySnapshot\n", 50, 90,
                    "usedmem parameter is invalid; should be an integer in the range 50..90"),
    Row::textRow("dir=", &Options::snapshotDir),
    Row::textRow("tmpdir=", &Options::tmpDir),
    Row::textRow("filters=", &Options::filters),
    Row::textRow("walltimespec=", &Options::wallTimeSpec),
    Row::textRow("triggers=", &Options::triggers),
    Row::textRow("sessionname=", &Options::sessionName),
    Row::textRow("profileruipath=", &Options::profilerUIPath),
    Row::numberRow("ideport=", &Options::idePort),
    Row::numberRow("samplingperiod=", &Options::samplingPeriod, 0, INT_MAX, "sampling period is invalid"),
    Row::numberRow("samplingdelta=", &Options::samplingDelta, 0, INT_MAX, "sampling period delta is invalid"),
    Row::flagRow("sampler=walk", &Options::signalSampler, false),
    Row::flagRow("sampler=signal", &Options::signalSampler),
    Row::flagRow("samplelines", &Options::sampleLines),
    Row::numberRow("telemetryperiod=", &Options::telemetryPeriod, 0, INT_MAX, "telemetry period is invalid"),
    Row::actionRow("exitonexception", &Options::exitOnException),
    Row::flagRow("noexceptionevents", &Options::noExceptionEvents),
    Row::flagRow("latetelemetry", &Options::lateTelemetry),
    Row::flagRow("keepfiltered", &Options::keepFiltered),
    Row::flagRow("noidlestacks", &Options::noIdleStacks),
    Row::flagRow("nolocals", &Options::noLocals),
    Row::flagRow("nostartgeneration", &Options::noStartGeneration),
    Row::textRow("exitsnapshot=", &Options::exitSnapshot),
    Row::flagRow("noexitsnapshot", &Options::noExitSnapshot),
    Row::flagRow("tellsnapshot", &Options::tellSnapshot),
    Row::numberRow("loglimit=", &Options::logLimit, 0, INT_MAX, "'loglimit' value is invalid (should not be negative)"),
    Row::actionRow("optionsfile=", &Options::optionsFile),
};
// clang-format on

namespace {

ZString makeTrigger(const char* before, const ZString& number, const char* after) {
    return ZString(before) + longToString(atoi(number.c_str())) + after;
}

} // namespace

bool Options::periodicHprof(const ZString& value) {
    if (ourIsIBM) {
        reportInvalidOption("'periodichprof' can be used with Sun Java only; with IBM Java, use "
                            "'periodicmem' instead");
        return false;
    }
    if (ourIsJRockit && !ourIsJRockitR28) {
        reportInvalidOption("'periodichprof' can be used with JRockit R28.0.0 or newer only; with "
                            "your JRockit version, use 'periodicmem' instead");
        return false;
    }
    if (atoi(value.c_str()) < 1) {
        reportInvalidOption("'periodichprof' value is invalid (should be positive)");
        return false;
    }
    triggerText.append(makeTrigger(VDK_TIMER, value, "s\n  CaptureHPROFSnapshot\n"));
    return true;
}

// The attach protocol of older JVMs takes 1024 bytes: what does not fit comes in a file, as one
// line, and is parsed as if it stood in the option's place.
bool Options::optionsFile(const ZString& value) {
    ZString content;
    if (!readPrivateFile(value, &content)) {
        reportInvalidOption(ZString("'optionsfile' cannot be read: ") + value);
        return false;
    }
    ZVectorSafe<ZString> lines;
    content.split("\n", lines);
    ZVectorSafe<ZString> pieces;
    if (lines.getSize() > 0) {
        lines[0].split(",", pieces);
    }
    for (int i = 0; i < pieces.getSize(); i++) {
        if (pieces[i].startsWith("optionsfile=")) {
            reportInvalidOption("'optionsfile' cannot be used in an options file");
            return false;
        }
        if (!parsePiece(pieces[i])) {
            return false;
        }
    }
    return true;
}

bool Options::apply(const Row& row, const ZString& value) {
    switch (row.kind) {
    case Row::FLAG:
        this->*row.flag = row.flagValue;
        return true;
    case Row::TEXT:
        this->*row.text = value;
        return true;
    case Row::STATUS:
        ourStatus &= ~row.clearedBit;
        return true;
    case Row::CAPABILITY:
        ourCapabilities &= ~row.clearedBit;
        return true;
    case Row::PERMISSION:
        ourCapabilities |= row.setBit;
        return true;
    case Row::ACTION:
        return (this->*row.action)(value);
    case Row::NUMBER:
    case Row::TRIGGER:
        break;
    }
    const int number = atoi(value.c_str());
    if (number < row.least || number > row.most) {
        reportInvalidOption(row.error);
        return false;
    }
    if (row.kind == Row::NUMBER) {
        this->*row.number = number;
    } else {
        triggerText.append(makeTrigger(row.beforeNumber, value, row.afterNumber));
    }
    return true;
}

bool Options::parsePiece(const ZString& piece) {
    for (const Row& row : ourRows) {
        const int length = static_cast<int>(strlen(row.key));
        const bool takesValue = row.key[length - 1] == '=';
        if (takesValue ? piece.startsWith(row.key) : piece == row.key) {
            return apply(row, unquote(piece.substring(length)));
        }
    }
    reportInvalidOption(piece);
    return false;
}

bool Options::checkCombinations() const {
    const bool canTrace = (ourCapabilities & CAPABILITY_CAN_TRACE) != 0;
    const bool canAllocate = (ourCapabilities & CAPABILITY_CAN_RECORD_ALLOCATIONS) != 0;
    const struct {
        bool broken;
        const char* message;
    } rules[] = {
        {tracing && sampling, "'tracing' cannot be used in combination with 'sampling'"},
        {!canAllocate && allocEachSet,
         "'alloceach' cannot be used in combination with 'disablealloc'"},
        {!canAllocate && allocSizeLimitSet,
         "'allocsizelimit' cannot be used in combination with 'disablealloc'"},
        {allocSampled != 0 && (allocEachSet || allocSizeLimitSet),
         "'allocsampled' cannot be used in combination with 'alloceach' or 'allocsizelimit'"},
        {!canTrace && tracing, "'tracing' cannot be used in combination with 'disabletracing'"},
        {!traceOnly.isEmpty() && !onDemand,
         "'traceonly' should be used in combination with 'ondemand'"},
        {!filters.isEmpty() && !tracing, "'filters' should be used in combination with 'tracing'"},
        {!wallTimeSpec.isEmpty() && !tracing && !sampling,
         "'walltimespec' should be used in combination with 'tracing' or 'sampling'"},
    };
    for (const auto& rule : rules) {
        if (rule.broken) {
            reportInvalidOption(rule.message);
            return false;
        }
    }
    return true;
}

void Options::findEarly(const char* options) {
    ZVectorSafe<ZString> pieces;
    if (options != nullptr) {
        ZString(options).split(",", pieces);
    }
    for (int i = 0; i < pieces.getSize(); i++) {
        quiet = quiet || pieces[i] == "quiet";
        optional = optional || pieces[i] == "optional";
    }
}

bool Options::parse(const char* options) {
    addProbe(LOADING_PROBE_DOTTED);
    addProbe(J2EE_PROBE_DOTTED);
    ZVectorSafe<ZString> pieces;
    if (options != nullptr) {
        ZString(options).split(",", pieces);
    }
    for (int i = 0; i < pieces.getSize(); i++) {
        if (!parsePiece(pieces[i])) {
            return false;
        }
    }
    if (!checkCombinations()) {
        return false;
    }
    if (telemetryPeriod > 0) {
        telemetryLimit = clampToInt(static_cast<long>(telemetryLimit) * 1000 / telemetryPeriod);
    }
    return true;
}
