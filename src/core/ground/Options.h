#pragma once

#include "core/ground/ZString.h"

// Options: the startup options of the agent, parsed once from the comma-separated string behind the
// agent path, before any other subsystem starts. Read-only once parse has returned, so it is read
// without a lock. The fields are in the order of their documentation.
class Options {
public:
    ZString sessionName;
    ZVectorSafe<ZString> commandLine; // arguments of this process, the executable first
    ZVectorSafe<ZString> debugCategories;
    bool debugAll = false;
    bool sampling = false;
    bool tracing = false;
    bool noJ2EE = false;
    bool disableNatives = false;
    bool onDemand = false; // calls of tracing and allocations are in the classes only while needed
    ZString traceOnly;     // class patterns, ";" between them: tracing rewrites no other class
    bool probeWarningsAsErrors = false;
    bool allocEachSet = false;
    int allocEach = 10;
    bool allocSizeLimitSet = false;
    int allocSizeLimit = 1048576; // bytes
    int allocSampled = 0;         // bytes between two sampled objects, 0 means none are sampled
    bool perClassGC = true;
    bool monitors = false;
    bool noParks = false;
    bool withDebugger;
    int telemetryLimit = 3600; // seconds; records once parse has returned
    int probeTableLengthLimit = 20000;
    int deadThreadLimit = 50;
    bool disableOOMEDumper = false;
    bool handleBadTimes = false;
    int delay; // ms; -1 waits for an explicit start
    bool oldIBM = false;
    int samplingPeriod = 20;    // ms
    int samplingDelta = 0;      // ms
    bool signalSampler = false; // sample by timers and signals
    bool sampleLines = false;   // samples tell lines of the source
    int telemetryPeriod = 1000; // ms; 0 means no telemetry
    int port = -1;              // -1 means any free port
    ZString listenHost;
    int idePort = -1;
    bool quiet = false;
    bool optional = false; // a refusal of the agent lets the application start without it
    bool stripStackMapTable = false;
    ZString snapshotDir;
    ZString tmpDir; // empty means /tmp
    ZVectorSafe<ZString> probes;
    ZVectorSafe<ZString> probeSystemClassPath;
    ZVectorSafe<ZString> probeBootClassPath;
    ZString profilerUIPath;
    bool onExitMemory = false;
    bool onExitSnapshot = false;
    bool onlyLocal = false;
    bool onlyUser = false; // serve this user and root alone
    ZString filters;
    ZString wallTimeSpec;
    ZString triggers;
    ZString triggerText;            // made by the periodic options, in the trigger language
    bool noExceptionEvents = false; // leave the exception capability out
    bool lateTelemetry = false;     // no record before the first period is over
    bool keepFiltered = false;      // filtered calls below filtered ones stay in Java code
    bool noIdleStacks = false;      // loaded classes have stacks only while something is recorded
    bool noLocals = false;          // leave the capability of local variables out
    bool noStartGeneration = false; // the mark at start leaves the objects untagged
    ZString exitSnapshot;           // file of the snapshot at the end; empty means the usual place
    bool noExitSnapshot = false;    // none at the end, whatever is measured then
    bool tellSnapshot = false;      // standard error tells where the one at the end lies
    int logLimit = 10;              // MB of the log file; 0 means no limit

    // Reads the command line of this process and the defaults that depend on it. Runs when the
    // library is loaded, so before the attach flag is set: the default delay of an attached JBoss
    // process is that of a starting one.
    Options();
    // The same for a given command line.
    explicit Options(const ZVectorSafe<ZString>& arguments);

    // Applies an option string; null means none. False when the agent must not start: the user has
    // then been told why.
    bool parse(const char* options);

    // The same for a string that is for another process: nothing is printed, and what would have
    // been refused stands in `reason`.
    bool check(const char* options, ZString* reason);

    // Finds out whether the option string holds "quiet" and "optional", which must be known before
    // the first line is logged or refused, and so before parse.
    void findEarly(const char* options);

    // True when the category was named by debug=, or debug=all was given and the category does
    // not begin with "_". False before the options exist.
    static bool isDebug(const char* category);

    // The name given by sessionname=, or one derived from the command line.
    ZString getSessionName() const;
    bool isJBoss() const;
    // True when an argument from the second on begins with prefix.
    bool containsVMArgument(const char* prefix) const;
    // Where the JVM would write a heap dump, made absolute with the current directory.
    ZString getHeapDumpPath() const;

    // Moves or adds the probe class to the end of the list.
    void addProbe(const ZString& name);
    void addBuiltInProbes();
    void removeBuildInProbes();

    static void printUsage();
    // Standard output gets the refusal and the usage text, unless it is that of an application that
    // runs, or will: then standard error gets the refusal alone.
    void reportInvalidOption(const ZString& message) const;

private:
    struct Row;
    static const Row ourRows[];

    ZString* refusalReason = nullptr; // where a refusal goes instead of the console

    void initialize();
    bool parsePiece(const ZString& piece);
    bool apply(const Row& row, const ZString& value);
    bool checkCombinations() const;
    void removeProbe(const ZString& name);
    bool addProbePaths(const char* option, const char* field, const ZString& paths,
                       ZVectorSafe<ZString>& elements);

    // Actions of options that do more than set one field. False after a reported error.
    bool help(const ZString& value);
    bool disableJ2EE(const ZString& value);
    bool redact(const ZString& value);
    bool putCallsOnDemand(const ZString& value);
    bool disableAll(const ZString& value);
    bool probe(const ZString& value);
    bool noProbe(const ZString& value);
    bool probeClassPath(const ZString& value);
    bool probeBootClassPathAction(const ZString& value);
    bool allBuiltInProbes(const ZString& value);
    bool noBuiltInProbes(const ZString& value);
    bool periodicHprof(const ZString& value);
    bool listen(const ZString& value);
    bool debug(const ZString& value);
    bool noDelay(const ZString& value);
    bool delayBy(const ZString& value);
    bool telemetryHours(const ZString& value);
    bool allocationEach(const ZString& value);
    bool allocationSizeLimit(const ZString& value);
    bool allocationSampled(const ZString& value);
    bool exitOnException(const ZString& value);
    bool optionsFile(const ZString& value);
};

// The probes that are registered unless an option says otherwise, in table order; a null ends them.
extern const char* const ourBuiltInProbes[];

// The options of this process. Made when the library is loaded, never destroyed.
extern Options* ourOptions;

// Text behind "VDKQUOTED" decoded from hexadecimal digits; any other text stands as it is. The
// launcher quotes values that hold commas or blanks. Keep in sync with com.vandrik.runtime.Quoter.
ZString unquote(const ZString& value);
