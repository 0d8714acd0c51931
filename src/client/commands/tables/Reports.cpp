// The commands that show or save what was recorded.
#include "client/commands/Commands.h"
#include "client/commands/tables/Tables.h"

namespace vdk {

namespace {

const OptionSpec Out = {
    "--out", ValueKind::File, "write to this file, - is standard output", {}, false, false, "-o"};
const OptionSpec Filters = {"--filters",
                            ValueKind::Choice,
                            "charge filtered methods' time to their callers (default off)",
                            {"on", "off"}};

const std::vector<std::string> Groupings = {"method", "tree",  "class", "package",
                                            "thread", "group", "line"};
const OptionSpec Thread = {
    "--thread", ValueKind::Text, "only threads of this name or thread group, * being any text",
    {},         false,           true};
const OptionSpec Include = {
    "--include", ValueKind::Text, "only stacks with this method, class or package",
    {},          false,           true};
const OptionSpec Exclude = {"--exclude", ValueKind::Text, "no stacks with it", {}, false, true};
const OptionSpec NoWaits = {"--no-waits", ValueKind::None,
                            "leave out stacks with methods that are measured in elapsed time, (w)"};
const OptionSpec Focus = {"--focus", ValueKind::Text, "only stacks with it, shown from there on",
                          {},        false,           true};

const std::vector<Command> Table = {
    {"top",
     "show hot methods and threads, refreshing",
     "On a terminal until q or Ctrl-C; elsewhere once, or --count times. The numbers are those of\n"
     "the last interval; tracing adds the calls made in it. The head tells the time that threads\n"
     "were blocked by monitors, and the exceptions, where these are recorded. While allocations "
     "are\n"
     "recorded a list tells what was allocated in the interval, a second. With --json one object "
     "a\n"
     "line.\n"
     "--show takes one view instead, of what is recorded: what the interval brought, a second, "
     "and\n"
     "beside it the sums that `vdk report` shows; of live objects the sums and how they change. On "
     "a\n"
     "terminal keys switch the view, sort, pause and more: h tells them.\n"
     "Of several JVMs, or with --all, lines of all stand in one list, with a column for the JVM; "
     "those\n"
     "that are started later and match a TARGET join, one that ends or does not answer stays as "
     "that.\n"
     "TARGET is then a process id, an address, or a part of the names of any number of JVMs.",
     "vdk top app.jar\nvdk top --all\nvdk top app.jar --sample --interval 5s\nvdk top app.jar "
     "--count 3 --json\n"
     "vdk top app.jar --show allocations --by method\nvdk top app.jar --show monitors --by tree",
     {{"TARGET", ValueKind::Target, "the JVM, or several", {}, false, true},
      {"--all", ValueKind::None, "all profiled JVMs of the user, also those that come later"},
      {"--interval", ValueKind::Duration, "time between refreshes, at least 100ms (default 2s)"},
      {"--count", ValueKind::Number, "end after so many refreshes"},
      {"--top", ValueKind::Number,
       "methods to show (default 20, or what the terminal has lines for)"},
      Filters,
      {"--sample", ValueKind::None, "start sampling if it is off, and stop it at the end"},
      {"--show",
       ValueKind::Choice,
       "one view in place of the overview",
       {"cpu", "allocations", "garbage", "live", "monitors", "exceptions"}},
      {"--by", ValueKind::Choice,
       "how to group the view (default class; CPU times and monitors: method)", Groupings},
      Thread,
      Include,
      Exclude,
      NoWaits,
      Focus},
     false,
     true,
     runTop},
    {"threads",
     "show the threads of a JVM or snapshot",
     "With --now of a JVM of this machine, which needs no agent: CPU time of the moment, native "
     "ids,\n"
     "who blocks whom, and deadlocks. The JVM is asked twice for a thread dump, which stops all "
     "its\n"
     "threads. Those of a pool that do the same are one line.",
     "vdk threads app.jar\nvdk threads app.jar --now",
     {Source,
      {"--now", ValueKind::None, "who runs and who blocks whom, by the JVM's own thread dumps"},
      {"--interval", ValueKind::Duration, "with --now: time between the dumps (default 500ms)"},
      {"--each", ValueKind::None, "with --now: a line for each thread of a pool"},
      {"--all", ValueKind::None, "also threads that have ended"},
      {"--life", ValueKind::None,
       "when threads were started and ended, as the probe Threads has recorded it"},
      {"--top", ValueKind::Number, "with --life: rows to show (default 30)"},
      {"--stack", ValueKind::None, "with --life: where they were started"}},
     false,
     true,
     runThreads},
    {"telemetry",
     "show memory, threads, classes and CPU over time",
     "",
     "vdk telemetry app.jar\nvdk telemetry app.snapshot --last 60 --json",
     {Source, {"--last", ValueKind::Number, "records to show (default 20)"}},
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
     "`--show j2ee` lists requests, SQL statements and JNDI look-ups by the time that was spent "
     "in\n"
     "them; the tree has them below the methods that they went through, marked <servlet>, <SQL>, "
     "...\n"
     "--by takes one list in place of all these: lines are those of CPU samples; `group` are\n"
     "thread groups.\n"
     "--include, --exclude, --focus and --callers take a method (`Cart.add`), a class (`Cart`), a\n"
     "package (`com.shop`) or a pattern with * (`com.shop.*`), and may come again.",
     "vdk report app.jar --show live --by class\nvdk report app.snapshot\nvdk report app.jar "
     "--by-thread --filters on\n"
     "vdk report app.snapshot --show tree --min-percent 5\nvdk report app.jar --show j2ee\n"
     "vdk report app.jar --callers HashMap.put --thread 'http-*'\n"
     "vdk report app.jar --show monitors --json",
     {Source,
      {"--show",
       ValueKind::Choice,
       "sections (default all)",
       {"all", "cpu", "methods", "tree", "j2ee", "allocations", "live", "garbage", "monitors",
        "exceptions"}},
      {"--by", ValueKind::Choice,
       "one list of CPU times, allocations, live objects, garbage, monitors or exceptions, grouped "
       "so",
       Groupings},
      {"--callers",
       ValueKind::Text,
       "trees from this method, class or package to its callers, in place of the others",
       {},
       false,
       true},
      Thread,
      Include,
      Exclude,
      NoWaits,
      Focus,
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
    {"diff",
     "compare two recordings: methods, call paths, allocations, waits, exceptions, SQL",
     "A is before, B is now: snapshots or JVMs, or two heap dumps, which `vdk heap A diff B` "
     "compares.\n"
     "Own values and what is new or gone, the largest changes first. Of two snapshots of `vdk "
     "record`\n"
     "values are compared by the second of recording; --per says otherwise, and the output tells. "
     "Limits\n"
     "end it with exit code 1 and the reasons: --max-growth is about totals of methods of which "
     "one "
     "side\n"
     "has --min-percent at least, --max-own about their share of all. PATTERN is as in `vdk "
     "report\n"
     "--include`, or total. --out writes a flame graph colored by change.",
     "vdk diff yesterday.snapshot today.snapshot\n"
     "vdk diff old.snapshot new.snapshot --max-growth 'com.shop.*:10%' --max-growth total:5%\n"
     "vdk diff old.snapshot new.snapshot --out change.html\nvdk diff before.hprof after.hprof",
     {{"A", ValueKind::Source, "before: a snapshot file, or a JVM with the agent", {}, true},
      {"B", ValueKind::Source, "now", {}, true},
      {"--per",
       ValueKind::Choice,
       "what values are compared by (default second where it is known, else nothing)",
       {"second", "call", "request", "share", "nothing"}},
      {"--show",
       ValueKind::Choice,
       "one of these alone",
       {"all", "cpu", "allocations", "monitors", "exceptions", "sql"}},
      {"--max-growth", ValueKind::Text, "PATTERN:10%, how much totals may grow", {}, false, true},
      {"--max-own",
       ValueKind::Text,
       "PATTERN:5%, how much of all methods may have",
       {},
       false,
       true},
      {"--min-percent", ValueKind::Number, "what limits of growth look at (default 1)"},
      {"--top", ValueKind::Number, "lines of each list (default 15 methods, 5 paths; JSON all)"},
      {"--no-paths", ValueKind::None, "without call paths"},
      {"--out", ValueKind::File, "write a flame graph (.html)", {}, false, false, "-o"},
      Thread,
      Include,
      Exclude,
      NoWaits,
      Focus,
      {"--signatures", ValueKind::None, "parameter types in names"},
      {"--raw-names", ValueKind::None, "keep the numbers of generated classes"}},
     false,
     true,
     runDiff},
    {"export",
     "write stacks as a flame graph, or for other tools",
     "--out tells the form by its end, or --format. The flame graph (.html) is one page that "
     "loads\n"
     "nothing: CPU times, allocations, waits and exceptions, whatever was recorded, with search,\n"
     "threads, callers and callees of a method. The .svg is one that stands still, for documents. "
     "pprof (.pb.gz) has all of them too, threads as "
     "labels.\n"
     "The profile for profiler.firefox.com (.firefox.json, or .firefox.json.gz) tells each thread, "
     "with\n"
     "rows of probes as markers and telemetry as counters; .openmetrics is what `vdk metrics` "
     "serves.\n"
     "A database for sqlite3 (.sqlite) has what reports show and all tables behind it; CSV one of "
     "these\n"
     "tables, named by --show.\n"
     "The others are of CPU times alone. Collapsed stacks have one line a stack: frames from the "
     "outermost on, a blank, and own time\n"
     "in whole units (microseconds unless --unit says otherwise). The speedscope form has one\n"
     "profile a thread, weighted in nanoseconds.",
     "vdk export app.snapshot --out app.html\n"
     "vdk export app.snapshot --out app.pb.gz && go tool pprof -top app.pb.gz\n"
     "vdk export app.snapshot --collapsed --out app.collapsed\n"
     "vdk export app.jar --speedscope -o app.speedscope.json",
     {Source,
      {"--collapsed", ValueKind::None, "collapsed stacks, for flame graph tools"},
      {"--speedscope", ValueKind::None, "speedscope's JSON"},
      {"--format",
       ValueKind::Choice,
       "one of these forms",
       {"html", "svg", "collapsed", "speedscope", "pprof", "firefox", "csv", "sqlite",
        "openmetrics"}},
      {"--depth", ValueKind::Number, "levels that .svg shows (default 60)"},
      {"--min-percent", ValueKind::Number, "leave smaller frames out of .svg (default 0.1)"},
      {"--show", ValueKind::Text,
       "CSV: the table or view, such as methods (the default), call_tree, monitors"},
      Out,
      Filters,
      Thread,
      Include,
      Exclude,
      NoWaits,
      Focus,
      {"--unit", ValueKind::Choice, "unit of collapsed counts (default us)", {"ns", "us", "ms"}},
      {"--by-thread", ValueKind::None, "the thread as outermost frame of collapsed stacks"},
      {"--signatures", ValueKind::None, "parameter types in frame names"},
      {"--raw-names", ValueKind::None, "keep the numbers of generated classes"}},
     false,
     true,
     runExport},
};

} // namespace

const std::vector<Command>& reportCommands() {
    return Table;
}

} // namespace vdk
