// The commands that switch recordings on and off, and drop what they recorded.
#include "client/commands/Commands.h"
#include "client/commands/tables/Tables.h"

namespace vdk {

namespace {

const OptionSpec StartOrStop = {"ACTION", ValueKind::Choice, "what to do", {"start", "stop"}, true};
const OptionSpec FilterFile = {"--filter-file", ValueKind::File,
                               "filters, in place of the agent's own"};
const OptionSpec WallTimeFile = {"--wall-time-file", ValueKind::File,
                                 "methods measured in wall time, in place of the agent's"};

const OptionSpec J2ee = {"--j2ee", ValueKind::None,
                         "charge the times to requests, SQL statements and JNDI look-ups as well"};

const OptionSpec Only = {"--only",
                         ValueKind::Text,
                         "rewrite the classes of this pattern alone, such as 'com.shop.*'; may be "
                         "given several times",
                         {},
                         false,
                         true};

const OptionSpec Sampler = {
    "--sampler",
    ValueKind::Choice,
    "who samples, in place of the agent's option: a walk over stacks, or signals, which are "
    "refused where they are not possible",
    {"walk", "signal"}};

#define FILTER_FILES                                                                               \
    "A filter file has one pattern a line, * being any text: `java.*` leaves these classes out,\n" \
    "`+java.util.*` leaves some of them in all the same, whatever the order; # begins a remark."

const std::vector<Command> Table = {
    {"record",
     "record for a while and write a file: a flame graph, a snapshot, ...",
     "Attaches to each target where the agent is not in it yet, records, switches off what it has\n"
     "switched on, writes, and says what was seen. Ctrl-C ends it early and still writes. The end "
     "of\n"
     "the file's name tells the form; of several targets each has a file of its own, with the "
     "process\n"
     "id in its name (at %p, or ahead of the ending). What was recorded before, and is still in "
     "the "
     "JVM,\n"
     "is not in the file. With a program behind -- its JVMs record from their start to their end, "
     "or of\n"
     "`java` itself for the time of --for; then the exit code is the program's.\n"
     "Without an option CPU times are sampled; what is named is recorded, in one file.",
     "vdk record app.jar --out app.html\nvdk record app.jar --for 1m --wall --locks --out "
     "app.html\n"
     "vdk record 4711 4712 --alloc --out '%p.snapshot'\n"
     "vdk record --out app.html -- java -jar app.jar",
     {{"TARGET",
       ValueKind::Target,
       "process id, part of a main class, JAR or session name, or "
       "[host]:port",
       {},
       false,
       true},
      {"--out",
       ValueKind::File,
       "file to write: .html, .svg, .snapshot, .collapsed, .speedscope.json, .pb.gz, "
       ".firefox.json, "
       ".csv, .sqlite, .openmetrics or .json",
       {},
       true,
       false,
       "-o"},
      {"--for", ValueKind::Duration, "how long (default 30s; of a program until its end)"},
      {"--sample", ValueKind::None, "sample CPU times"},
      Sampler,
      {"--wall", ValueKind::None, "sample elapsed time in place of CPU times"},
      {"--thread", ValueKind::Text,
       "with --wall: only threads of this name or thread group, * being any text"},
      {"--trace", ValueKind::None, "count all calls, with their times; slows the program down"},
      Only,
      {"--alloc",
       ValueKind::Size,
       "estimate allocations from samples, one in so many bytes (default 512k)",
       {},
       false,
       false,
       "",
       true},
      {"--locks", ValueKind::None, "record waits for monitors and locks"},
      {"--exceptions", ValueKind::None, "count exceptions, by inserted calls"},
      {"--agent", ValueKind::File, "the agent library (default: beside vdk, or VDK_AGENT)"}},
     true,
     true,
     runRecord},
    {"sample",
     "start or stop CPU sampling",
     "Data of earlier sampling stays until `vdk clear`. --wall samples elapsed time: where "
     "threads\n"
     "are, running or not, with [running], [runnable], [blocked], [waiting], [parked], [sleeping]\n"
     "or [io] as innermost frame. It is what to ask a slow server first, and not added to CPU\n"
     "times: what there is of these has to be cleared first. " FILTER_FILES,
     "vdk sample start app.jar\nvdk sample start app.jar --j2ee\n"
     "vdk sample start app.jar --wall --thread 'http-*'\n"
     "vdk report app.jar --show j2ee\nvdk sample stop app.jar",
     {StartOrStop,
      Target,
      FilterFile,
      WallTimeFile,
      J2ee,
      Sampler,
      {"--wall", ValueKind::None, "sample elapsed time in place of CPU time"},
      {"--thread", ValueKind::Text,
       "with --wall: only threads of this name or thread group, * being any text"}},
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
     "leaves in.\n"
     "Where the agent has the option ondemand, as `vdk run` and `vdk attach` give it, the classes "
     "are\n"
     "rewritten first, a batch at a time, while the program runs on; with --only just those of "
     "the\n"
     "patterns, and nothing else is slowed down.\n" FILTER_FILES,
     "vdk trace start app.jar\nvdk trace start app.jar --only 'com.shop.*'\n"
     "vdk trace stop app.jar",
     {StartOrStop, Target, Only, FilterFile, WallTimeFile, J2ee},
     false,
     true,
     runTrace},
    {"alloc",
     "start or stop the recording of allocations",
     "Where objects come from and how many bytes they take. By default every object is counted, "
     "and\n"
     "every 10th recorded, exactly; --each 1 records all. --size-limit records the large ones as\n"
     "well, and costs more: the JVM is asked for the size of each. --sampled asks the JVM for "
     "about\n"
     "one object in so many allocated bytes instead: it costs next to nothing, needs no rewritten\n"
     "class, and gives estimates. Data stays until `vdk clear --allocations`.",
     "vdk alloc start app.jar\nvdk alloc start app.jar --sampled\nvdk alloc start app.jar "
     "--sampled=64k\n"
     "vdk alloc start app.jar --each 1\nvdk report app.jar --show allocations\n"
     "vdk alloc stop app.jar",
     {StartOrStop,
      Target,
      {"--each", ValueKind::Number, "record every so many objects (default 10)"},
      {"--size-limit", ValueKind::Size, "record every object of so many bytes and more as well"},
      {"--sampled",
       ValueKind::Size,
       "estimate from samples of the JVM, one in so many bytes (default 512k); a number without k "
       "or m behind a blank is a process",
       {},
       false,
       false,
       "",
       true},
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
     {StartOrStop, Target},
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
};

} // namespace

const std::vector<Command>& recordingCommands() {
    return Table;
}

} // namespace vdk
