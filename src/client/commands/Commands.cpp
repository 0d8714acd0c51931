#include "client/commands/Commands.h"

#include "client/commands/Command.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <algorithm>

namespace vdk {

namespace {

const OptionSpec Target = {"TARGET", ValueKind::Target, "the JVM", {}, true, false, ""};
const OptionSpec FileOrTarget = {
    "SOURCE", ValueKind::Source, "a snapshot file, or a JVM with the agent", {}, true, false, ""};
const OptionSpec AgentOptions = {
    "OPTION",
    ValueKind::Text,
    "agent options, such as sampling or port=10005; `vdk help options` lists them",
    {"sampling", "tracing", "port=", "sessionname=", "dir=", "filters=", "onexit=snapshot"},
    false,
    true,
    ""};
const OptionSpec AgentPath = {"--agent", ValueKind::File,
                              "the agent library (default: beside vdk, or VDK_AGENT)"};
const OptionSpec Remote = {
    "--remote", ValueKind::None,
    "accept connections from other machines, of whoever it be (no `onlylocal`, no `onlyuser`)"};
const OptionSpec AllUsers = {"--all-users", ValueKind::None,
                             "serve every user of this machine (no `onlyuser`)"};
const OptionSpec Banner = {"--banner", ValueKind::None,
                           "let the agent write its start messages (no `quiet`)"};
const OptionSpec OomDump = {
    "--oom-dump", ValueKind::None,
    "let the agent switch on the JVM's heap dump at an OutOfMemoryError (no `disableoomedumper`)"};
const OptionSpec Out = {
    "--out", ValueKind::File, "write to this file, - is standard output", {}, false, false, "-o"};
const OptionSpec Timeout = {"--timeout", ValueKind::Duration,
                            "limit for each wait (default 10s to connect, an hour for the work)"};
const OptionSpec Filters = {"--filters",
                            ValueKind::Choice,
                            "charge filtered methods' time to their callers (default off)",
                            {"on", "off"}};

#define FILTER_FILES                                                                               \
    "A filter file has one pattern a line, * being any text: `java.*` leaves these classes out,\n" \
    "`+java.util.*` leaves some of them in all the same, whatever the order; # begins a remark."

// The one table of commands. A group of commands of its own, such as those on heap snapshots, has
// its rows and its run functions (heap*.cpp) declared in Commands.h and listed here; help, shell
// completion and checks follow from the row. docs/vdk.1 is printed from this table, which a test
// checks.
const std::vector<Command> Table = {
    {"list",
     "show the JVMs of this machine",
     "Profiled ones have a port. Others are found by the JVM's own files and by the libraries "
     "that\n"
     "processes map; JVMs of other users show only as far as the system lets this user look.",
     "vdk list\nvdk list --profiled --json",
     {{"--profiled", ValueKind::None, "only those with an agent"},
      {"--plain", ValueKind::None, "process id and name alone, a tab between, for scripts"}},
     false,
     true,
     runList},
    {"run",
     "start a Java program with the agent",
     "The program replaces vdk: its signals, output and exit code are its own. Its agent listens "
     "on\n"
     "this machine only, serves your user and root alone, keeps its files in a private folder, "
     "and\n"
     "writes to the console only why it could not start (the program then runs without it) and\n"
     "where the snapshot lies that it leaves when the JVM ends while CPU times are measured.\n"
     "For java and the tools of a JDK the agent goes onto the command line. Any other program, "
     "such\n"
     "as ./mvnw, gets it in JAVA_TOOL_OPTIONS: every JVM that it starts loads the agent and says\n"
     "\"Picked up JAVA_TOOL_OPTIONS\" on standard error.\n"
     "Exits with 127 if the program cannot be started.",
     "vdk run sampling -- java -jar app.jar\n"
     "vdk run sampling --out app.snapshot -- ./mvnw test\n"
     "vdk run sampling port=10005 --require-agent -- java -cp classes com.example.Main",
     {AgentOptions,
      {"--out",
       ValueKind::File,
       "the snapshot at the JVM's end goes here (a name in .snapshot); of further JVMs beside it, "
       "numbered",
       {},
       false,
       false,
       "-o"},
      {"--no-snapshot", ValueKind::None, "leave no snapshot when the JVM ends"},
      {"--require-agent", ValueKind::None, "end the program if the agent cannot start"},
      AgentPath,
      Remote,
      AllUsers,
      Banner,
      OomDump,
      {"--exceptions", ValueKind::None,
       "ask the JVM for exception events and count exceptions: throwing becomes some 33 times "
       "slower"},
      {"--print", ValueKind::None, "print the command line instead of running it"},
      {"--print-option", ValueKind::None, "print the JVM option alone"}},
     true,
     true,
     runRun},
    {"attach",
     "load the agent into a running JVM",
     "Works through the JVM's attach socket, also into a container. The agent then listens on "
     "this\n"
     "machine only and serves the JVM's user and root alone. Objects that exist already are not "
     "tagged for generations, which would pause\n"
     "the JVM (6 s on 17 and 28 s on 25 at 30 million objects), unless --generations is given.\n"
     "JVMs of 21 and later print a warning about dynamic loading, unless they were started with\n"
     "-XX:+EnableDynamicAgentLoading.",
     "vdk attach 4711\nvdk attach app.jar sampling\nvdk attach com.example.Main port=10005 --json",
     {Target,
      AgentOptions,
      AgentPath,
      Remote,
      AllUsers,
      Banner,
      OomDump,
      {"--generations", ValueKind::None, "tag the objects that exist already"},
      {"--timeout", ValueKind::Duration, "limit for each wait (default 10s)"}},
     false,
     true,
     runAttach},
    {"status",
     "show what an agent is and does",
     "",
     "vdk status app.jar\nvdk status :10005 --json",
     {Target},
     false,
     true,
     runStatus},
    {"sample",
     "start or stop CPU sampling",
     "Data of earlier sampling stays until `vdk clear`. " FILTER_FILES,
     "vdk sample start app.jar\nvdk sample stop app.jar",
     {{"ACTION", ValueKind::Choice, "what to do", {"start", "stop"}, true},
      Target,
      {"--filter-file", ValueKind::File, "filters, in place of the agent's own"},
      {"--wall-time-file", ValueKind::File,
       "methods measured in wall time, in place of the agent's"}},
     false,
     true,
     runSample},
    {"trace",
     "start or stop CPU tracing: exact numbers of calls, and the time of each",
     "The first start in a process measures the cost of a traced call, which takes a second or "
     "two.\n"
     "Data of earlier profiling stays until `vdk clear`. Without a filter file every method of "
     "every\n"
     "class is counted, which can slow a busy server down a hundred times; with one only what it "
     "leaves in.\n" FILTER_FILES,
     "vdk trace start app.jar\nvdk trace stop app.jar",
     {{"ACTION", ValueKind::Choice, "what to do", {"start", "stop"}, true},
      Target,
      {"--filter-file", ValueKind::File, "filters, in place of the agent's own"},
      {"--wall-time-file", ValueKind::File,
       "methods measured in wall time, in place of the agent's"}},
     false,
     true,
     runTrace},
    {"alloc",
     "start or stop the recording of allocations",
     "Where objects come from and how many bytes they take. By default every object is counted, "
     "and\n"
     "every 10th and each of 1 MB and more is recorded, exactly; --each 1 records all. --sampled "
     "asks\n"
     "the JVM for about one object in so many allocated bytes instead: it costs next to nothing, "
     "needs\n"
     "no rewritten class, and gives estimates. Data stays until `vdk clear --allocations`.",
     "vdk alloc start app.jar\nvdk alloc start app.jar --sampled\n"
     "vdk alloc start app.jar --each 1\nvdk report app.jar --show allocations\n"
     "vdk alloc stop app.jar",
     {{"ACTION", ValueKind::Choice, "what to do", {"start", "stop"}, true},
      Target,
      {"--each", ValueKind::Number, "record every so many objects (default 10)"},
      {"--size-limit", ValueKind::Size, "record every object of so many bytes (default 1m)"},
      {"--sampled", ValueKind::None, "estimate from samples of the JVM (every 512k)"},
      {"--interval", ValueKind::Size, "with --sampled: bytes between two samples (default 512k)"},
      {"--no-classes", ValueKind::None, "do not tell allocations by class"}},
     false,
     true,
     runAlloc},
    {"retransform",
     "rewrite the classes that were loaded before an attach",
     "Their methods can be traced afterwards; their native methods cannot. Starting tracing does "
     "this\n"
     "by itself, for the classes that its filters leave in. Classes that are done stay done.",
     "vdk retransform app.jar\nvdk retransform app.jar --filter-file /etc/app.filters",
     {Target,
      {"--filter-file", ValueKind::File,
       "leave filtered classes out; a whole path, in the JVM's view"}},
     false,
     true,
     runRetransform},
    {"monitors",
     "start or stop the recording of waits for monitors and locks",
     "Who waited for whose monitor or lock, where and for how long: contended synchronized "
     "methods\n"
     "and blocks, Object.wait(), and java.util.concurrent, where threads that wait for an owner, "
     "for\n"
     "others and for work are told apart. Of virtual threads waits for monitors alone. Data of\n"
     "earlier recordings stays until `vdk clear --monitors`. `vdk report --show monitors` shows "
     "it.",
     "vdk monitors start app.jar\nvdk report app.jar --show monitors",
     {{"ACTION", ValueKind::Choice, "what to do", {"start", "stop"}, true}, Target},
     false,
     true,
     runMonitors},
    {"exceptions",
     "switch the counting of exceptions on or off",
     "By class, thread, and the stacks that threw and caught them. `on` puts calls into the "
     "constructors\n"
     "of Throwable and the catch blocks of classes that the filters let through, `off` takes them "
     "out\n"
     "again: each exception counts where it was created. Only where the JVM's own events were "
     "asked\n"
     "for at its start (`vdk run --exceptions`) do these count each throw; they make throwing some "
     "33\n"
     "times slower, even while the counting is off. `vdk report --show exceptions` shows what was\n"
     "counted.",
     "vdk exceptions on app.jar\nvdk report app.jar --show exceptions",
     {{"ACTION", ValueKind::Choice, "what to do", {"on", "off"}, true}, Target},
     false,
     true,
     runExceptions},
    {"generation",
     "mark a moment in the life of the heap",
     "Every object that lives and has no mark yet gets this one, so that a snapshot of the heap "
     "tells\n"
     "what was made before and what since. The application stands still meanwhile, and each object "
     "costs\n"
     "some 90 bytes of the JVM's own memory until it ends: 6 to 28 s and 2 GB at 30 million. "
     "Prints\n"
     "the number of the mark. `vdk heap capture --sites` then writes the heap, and\n"
     "`vdk heap FILE sites --since MARK --held-by` asks it.",
     "vdk generation app.jar baseline\nvdk heap capture app.jar --sites --out app.snapshot\n"
     "vdk heap app.snapshot sites --since baseline --held-by",
     {Target, {"NAME", ValueKind::Text, "what it is called (default \"mark\")"}},
     false,
     true,
     runGeneration},
    {"clear",
     "drop what was recorded",
     "Without an option the CPU data. --all also frees what only the data needed: ended threads,\n"
     "methods of unloaded classes, texts. Stacks that were seen stay.",
     "vdk clear app.jar\nvdk clear app.jar --monitors\nvdk clear app.jar --all",
     {Target,
      {"--cpu", ValueKind::None, "CPU data"},
      {"--monitors", ValueKind::None, "monitor data"},
      {"--allocations", ValueKind::None, "allocation data"},
      {"--exceptions", ValueKind::None, "exception data"},
      {"--all", ValueKind::None, "all of these, and what nothing needs any more"}},
     false,
     true,
     runClear},
    {"top",
     "show hot methods and threads, refreshing",
     "On a terminal until q or Ctrl-C; elsewhere once, or --count times. The numbers are those of "
     "the\n"
     "last interval; tracing adds the calls made in it. The head tells the time that threads were "
     "blocked\n"
     "by monitors, and the exceptions, where these are recorded. While allocations are recorded a "
     "list\n"
     "tells what was allocated in the interval, a second. With --json one object a line.",
     "vdk top app.jar\nvdk alloc start app.jar --sampled && vdk top app.jar --allocations "
     "method\nvdk top app.jar --sample --interval 5s\nvdk top app.jar --count 3 --json",
     {Target,
      {"--interval", ValueKind::Duration, "time between refreshes, at least 100ms (default 2s)"},
      {"--count", ValueKind::Number, "end after so many refreshes"},
      {"--top", ValueKind::Number,
       "methods to show (default 20, or what the terminal has lines for)"},
      Filters,
      {"--sample", ValueKind::None, "start sampling if it is off, and stop it at the end"},
      {"--allocations",
       ValueKind::Choice,
       "how to group allocations, while they are recorded (default class)",
       {"class", "method"}}},
     false,
     true,
     runTop},
    {"threads",
     "show the threads of a JVM or snapshot",
     "",
     "vdk threads app.jar",
     {FileOrTarget, {"--all", ValueKind::None, "also threads that have ended"}},
     false,
     true,
     runThreads},
    {"telemetry",
     "show memory, threads, classes and CPU over time",
     "",
     "vdk telemetry app.jar\nvdk telemetry app.snapshot --last 60 --json",
     {FileOrTarget, {"--last", ValueKind::Number, "records to show (default 20)"}},
     false,
     true,
     runTelemetry},
    {"dump",
     "show a thread dump",
     "A deadlock, of monitors or locks, stands at its end, with what each thread waits for and "
     "who\n"
     "holds that.",
     "vdk dump app.jar\nvdk dump app.jar --out threads.txt",
     {Target, Out},
     false,
     true,
     runDump},
    {"gc", "run the garbage collector", "", "vdk gc app.jar", {Target}, false, true, runGc},
    {"stats",
     "show the sizes of an agent's tables",
     "",
     "vdk stats app.jar",
     {Target},
     false,
     true,
     runStats},
    {"snapshot",
     "save what was measured to a file",
     "The JVM writes the file into its snapshot folder and its path is printed. With --out the "
     "file\n"
     "is fetched, appears under that name when it is complete, and leaves the snapshot folder.\n"
     "With --heap the file also holds every object, for `vdk heap`. The application stands still\n"
     "meanwhile: a quarter to half a minute for ten million objects. Garbage that was not\n"
     "collected yet is in the file too, and costs as much as the rest; --gc collects it first.",
     "vdk snapshot app.jar\nvdk snapshot app.jar --out app.snapshot --compressed\n"
     "vdk snapshot app.jar --heap --out app.snapshot && vdk heap app.snapshot",
     {Target,
      Out,
      {"--heap", ValueKind::None, "with all objects of the heap"},
      {"--gc", ValueKind::None, "run the garbage collector first"},
      {"--keep", ValueKind::None, "with --out: leave the JVM's own copy where it is"},
      {"--compressed", ValueKind::None, "fetch compressed"},
      {"--dir", ValueKind::Folder, "folder in the JVM's view, or \"public\""},
      {"--pattern", ValueKind::Text, "file name (default <sessionname>-<date>)"}},
     false,
     true,
     runSnapshot},
    {"report",
     "show hot methods, the call tree, allocations, waits for monitors and locks, exceptions",
     "Own time is a method's own, total time has its callees in it; percentages are of the sum of\n"
     "all own times. Methods marked w are measured in wall time, the others in CPU time. Without "
     "--show\n"
     "allocations, monitors and exceptions appear where any were recorded. Allocations are told "
     "by\n"
     "class, by the methods that allocated and as a tree with the classes below those. `--show "
     "live`\n"
     "tells the same of the recorded objects that live, `--show garbage` of those that were "
     "collected.\n"
     "--by takes one list in place of all these: of lines it knows the method alone.",
     "vdk report app.jar --show live --by class\nvdk report app.snapshot\nvdk report app.jar "
     "--by-thread --filters on\n"
     "vdk report app.snapshot --show tree --min-percent 5\n"
     "vdk report app.jar --show monitors --json",
     {FileOrTarget,
      {"--show",
       ValueKind::Choice,
       "sections (default all)",
       {"all", "methods", "tree", "allocations", "live", "garbage", "monitors", "exceptions"}},
      {"--by",
       ValueKind::Choice,
       "one list of allocations, live objects, garbage, monitors or exceptions, grouped so",
       {"method", "tree", "class", "thread", "line"}},
      {"--top", ValueKind::Number, "lines of a list to show (default 30)"},
      {"--by-thread", ValueKind::None, "each thread by itself; those of a pool together"},
      {"--threads", ValueKind::Number, "threads or pools to show, by CPU time (default 10)"},
      Filters,
      {"--min-percent", ValueKind::Number, "leave out smaller parts of the tree (default 1)"},
      {"--depth", ValueKind::Number, "levels of the tree to show (default 60)"},
      {"--signatures", ValueKind::None, "show parameter types"},
      {"--raw-names", ValueKind::None, "keep the numbers of generated classes"}},
     false,
     true,
     runReport},
    {"export",
     "write stacks for other tools",
     "Collapsed stacks have one line a stack: frames from the outermost on, a blank, and own time\n"
     "in whole units (microseconds unless --unit says otherwise). The speedscope form has one\n"
     "profile a thread, weighted in nanoseconds.",
     "vdk export app.snapshot --collapsed --out app.collapsed\n"
     "vdk export app.jar --speedscope -o app.speedscope.json",
     {FileOrTarget,
      {"--collapsed", ValueKind::None, "collapsed stacks, for flame graph tools"},
      {"--speedscope", ValueKind::None, "speedscope's JSON"},
      Out,
      Filters,
      {"--unit", ValueKind::Choice, "unit of collapsed counts (default us)", {"ns", "us", "ms"}},
      {"--by-thread", ValueKind::None, "the thread as outermost frame of collapsed stacks"},
      {"--signatures", ValueKind::None, "parameter types in frame names"},
      {"--raw-names", ValueKind::None, "keep the numbers of generated classes"}},
     false,
     true,
     runExport},
    {"heap",
     "show what holds the memory in a heap dump or snapshot",
     "FILE is a heap dump of a JVM (HPROF, also in gzip form) or a snapshot with a heap. REPORT "
     "is\n"
     "  summary             totals, roots, largest classes (default)\n"
     "  histogram [CLASSES] objects, shallow and retained bytes of classes\n"
     "  biggest             objects by retained bytes\n"
     "  dominators [ID]     what an object (or nothing else) keeps alive, one level\n"
     "  refs ID             what an object refers to\n"
     "  referrers ID        what refers to an object\n"
     "  path ID             shortest path from a root to an object\n"
     "  retained NAME...    what objects, or all of some classes, retain together\n"
     "  strings             texts that are there more than once\n"
     "  arrays              empty and nearly empty arrays, by what holds them\n"
     "  diff FILE2          changes by class from FILE to FILE2\n"
     "  generations         objects by the mark behind their birth (snapshots only)\n"
     "  sites [CLASSES]     objects by class and by what allocated them (snapshots only)\n"
     "Marks are made by `vdk generation`: `sites --since MARK --held-by` tells what was made "
     "since\n"
     "one, is still alive, and is held by which older objects.\n"
     "With --index the analysis is kept in a file and opening the heap again takes no computing.\n"
     "`vdk heap live` and `vdk heap capture` ask a running JVM; a file of such a name is ./live.",
     "vdk heap capture app.jar --out /tmp/app.hprof\n"
     "vdk heap /tmp/app.hprof --index /tmp/app.index\n"
     "vdk heap /tmp/app.hprof histogram 'java.util.*' --index /tmp/app.index\n"
     "vdk heap /tmp/app.hprof path 0x7f0a4c18\n"
     "vdk heap before.hprof diff after.hprof --json\n"
     "vdk heap app.snapshot sites --since baseline --held-by",
     {{"FILE", ValueKind::File, "heap dump or snapshot", {}, true},
      {"REPORT",
       ValueKind::Choice,
       "what to show",
       {"summary", "histogram", "biggest", "dominators", "refs", "referrers", "path", "retained",
        "strings", "arrays", "diff", "generations", "sites"}},
      {"ARGUMENT", ValueKind::Text, "see the reports", {}, false, true},
      {"--top", ValueKind::Number, "lines to show"},
      {"--sort", ValueKind::Choice, "order of classes", {"retained", "shallow", "count", "name"}},
      {"--by-class", ValueKind::None, "group dominated objects by class"},
      {"--since", ValueKind::Text, "with sites: made since this generation, a number or a name"},
      {"--held-by", ValueKind::None, "with sites --since: which older objects hold the new ones"},
      {"--by",
       ValueKind::Choice,
       "with sites: place of the allocation (default method)",
       {"method", "path", "class"}},
      {"--no-retained", ValueKind::None, "histogram without retained sizes, which is faster"},
      {"--weak", ValueKind::None, "let a path go through weak, soft and phantom references"},
      {"--index", ValueKind::File, "keep the analysis in this file"},
      {"--dump", ValueKind::Number, "which dump of a file that holds several (default 1)"},
      {"--threads", ValueKind::Number, "1 or 2; the result is the same (default 2)"},
      {"--tmp", ValueKind::Folder, "for inflating compressed dumps (default TMPDIR or /tmp)"},
      {"--verify", ValueKind::None, "check dominators and retained sizes by their definition"}},
     false,
     true,
     runHeap},
    {"heap live",
     "show the classes in the heap of a running JVM",
     "The JVM counts its objects itself, without an agent, and stands still meanwhile: 2 to 3 s "
     "for\n"
     "30 million objects. Enough to see which class grows; what holds the objects is in a dump,\n"
     "which `vdk heap capture` makes. CLASSES is a name with * for any text. Unreachable objects\n"
     "are collected first, unless --all asks for them as well.",
     "vdk heap live app.jar\nvdk heap live 4711 'com.shop.*' --sort count --json",
     {Target,
      {"CLASSES", ValueKind::Text, "only these classes"},
      {"--all", ValueKind::None, "unreachable objects as well; no garbage collection"},
      {"--top", ValueKind::Number, "lines to show (default 50)"},
      {"--sort", ValueKind::Choice, "order (default shallow)", {"shallow", "count", "name"}},
      Timeout},
     false,
     true,
     runHeapLive},
    {"heap capture",
     "write the heap of a running JVM to a file",
     "The JVM writes a heap dump itself, without an agent, and stands still meanwhile. The file "
     "has\n"
     "the fields, arrays and references of all objects, and everything that is secret in them; it\n"
     "appears under its name when it is whole, for its user alone. Where the JVM sees other files\n"
     "or runs as another user it writes into a folder of its own first, which needs the room.\n"
     "Unreachable objects are collected first, unless --all asks for them as well.\n"
     "With --sites the agent writes a snapshot instead, which it is loaded for if need be: it also "
     "has\n"
     "the mark behind each object's birth (`vdk generation`) and what allocated it, as far as that "
     "was\n"
     "recorded (`vdk alloc start`), and takes longer: 2 to 5 s and 90 MB of tags a million "
     "objects.\n"
     "Take it to learn where a leak comes from, the dump for what holds the memory.",
     "vdk heap capture app.jar --out app.hprof\nvdk heap app.hprof\n"
     "vdk heap capture app.jar --sites --out app.snapshot\n"
     "vdk heap capture 4711 --out /data/app.hprof --dir /var/tmp",
     {Target,
      {"--out", ValueKind::File, "the file, - is standard output", {}, true, false, "-o"},
      {"--sites", ValueKind::None, "ask the agent: with allocation sites and generations"},
      {"--overwrite", ValueKind::None, "replace a file that is there"},
      {"--all", ValueKind::None, "unreachable objects as well; no garbage collection"},
      {"--dir", ValueKind::Folder, "where the JVM writes first, in its own view"},
      Timeout},
     false,
     true,
     runHeapCapture},
    {"completions",
     "print a completion script for a shell",
     "",
     "vdk completions bash > ~/.local/share/bash-completion/completions/vdk\n"
     "vdk completions zsh > ~/.local/share/zsh/site-functions/_vdk\n"
     "vdk completions fish > ~/.config/fish/completions/vdk.fish",
     {{"SHELL", ValueKind::Choice, "which shell", {"bash", "zsh", "fish"}, true}},
     false,
     false,
     runCompletions},
};

} // namespace

const std::vector<Command>& commands() {
    return Table;
}

const Command* findCommand(const std::string& name) {
    auto found = std::find_if(Table.begin(), Table.end(),
                              [&](const Command& command) { return command.name == name; });
    return found == Table.end() ? nullptr : &*found;
}

std::vector<std::string> wordsBehind(const Command& command) {
    std::vector<std::string> words;
    for (const Command& other : Table) {
        if (startsWith(other.name, command.name + " ")) {
            words.push_back(other.name.substr(command.name.size() + 1));
        }
    }
    return words;
}

const std::vector<OptionSpec>& commonOptions() {
    static const std::vector<OptionSpec> options = {
        {"--json", ValueKind::None, "machine-readable output"},
        {"--timeout", ValueKind::Duration, "limit for each wait for the agent (default 15s)"},
        {"--color", ValueKind::Choice, "when to use color", {"auto", "always", "never"}},
        {"--quiet", ValueKind::None, "no notes, no progress", {}, false, false, "-q"},
        {"--verbose", ValueKind::None, "show internal log lines", {}, false, false, "-v"},
        {"--help", ValueKind::None, "this help with examples; -h is short", {}, false, false, "-h"},
    };
    return options;
}

std::vector<OptionSpec> allOptions(const Command& command) {
    std::vector<OptionSpec> all = command.options;
    bool asksAgent = std::any_of(all.begin(), all.end(), [](const OptionSpec& option) {
        return option.kind == ValueKind::Target || option.kind == ValueKind::Source;
    });
    for (const OptionSpec& option : commonOptions()) {
        bool own = std::any_of(all.begin(), all.end(),
                               [&](const OptionSpec& other) { return other.name == option.name; });
        bool wanted = option.name == "--json"      ? command.printsData
                      : option.name == "--timeout" ? asksAgent
                                                   : true;
        if (!own && wanted) {
            all.push_back(option);
        }
    }
    return all;
}

std::string Arguments::text(const std::string& name, const std::string& fallback) const {
    auto found = values.find(name);
    return found == values.end() || found->second.empty() ? fallback : found->second.back();
}

long Arguments::number(const std::string& name, long fallback) const {
    return has(name) ? parseNumber(text(name), 0, INT32_MAX).value_or(fallback) : fallback;
}

long Arguments::durationMs(const std::string& name, long fallback) const {
    return has(name) ? parseDurationMs(text(name)).value_or(fallback) : fallback;
}

int Arguments::size(const std::string& name, int fallback) const {
    return has(name) ? parseSize(text(name)).value_or(fallback) : fallback;
}

const std::vector<std::string>& Arguments::all(const std::string& name) const {
    static const std::vector<std::string> none;
    auto found = values.find(name);
    return found == values.end() ? none : found->second;
}

} // namespace vdk
