// The commands about probes and what they record.
#include "client/commands/Commands.h"
#include "client/commands/tables/Tables.h"

namespace vdk {

namespace {

const OptionSpec Top = {"--top", ValueKind::Number, "rows or groups to show (default 30)"};

const OptionSpec Pattern = {
    "PATTERN", ValueKind::Text, "the methods, such as com.shop.Cart:add", {}, true, false, ""};
const OptionSpec Min = {"--min", ValueKind::Duration, "only calls that took so long, such as 10ms"};
const OptionSpec Where = {"--where", ValueKind::Text, "only calls that meet this condition",
                          {},        false,           true};
const OptionSpec InstanceOf = {"--instance-of", ValueKind::Text,
                               "only objects of this class or interface"};
const OptionSpec Depth = {"--depth", ValueKind::Number,
                          "frames of a stack at most, up to 1024 (default 64)"};

const std::vector<Command> Table = {
    {"watch",
     "print the calls of a method as they happen",
     "One line a call when it ends: time of day, thread, method, arguments, result or exception,\n"
     "duration. PATTERN is CLASS:METHOD, * stands for any text, (int, String) behind it chooses "
     "among\n"
     "methods of one name. The methods are rewritten for the time of the watch; the agent is "
     "loaded\n"
     "where it is not there yet. Without --args, --result, --this and --exception it is all but "
     "--this.\n"
     "Conditions compare args[0], result, this, exception, ms and thread, with == != < <= > >= "
     "~ (contains),\n"
     "joined by && || ! and parentheses; args[0].name reads a field. No code of the application "
     "runs unless\n"
     "--to-string is given. A line of a file of masks, `*:login(*) args[1]`, hides what it names. "
     "Calls that\n"
     "come faster than they can be read are counted and left out.",
     "vdk watch app.jar com.shop.Cart:add\n"
     "vdk watch app.jar 'com.shop.*:find*(*)' --min 10ms --stack\n"
     "vdk watch app.jar com.shop.Cart:add --where 'args[0] == \"x\" && result == false'\n"
     "vdk watch app.jar 'com.shop.Login:*' --masks secrets --count 20 --json",
     {Target,
      Pattern,
      {"--args", ValueKind::None, "show the arguments"},
      {"--result", ValueKind::None, "show the result"},
      {"--this", ValueKind::None, "show the object"},
      {"--exception", ValueKind::None, "show messages of exceptions, not their class alone"},
      Min,
      Where,
      InstanceOf,
      {"--stack", ValueKind::None, "with the stacks of the calls"},
      Depth,
      {"--count", ValueKind::Number, "end after so many calls"},
      {"--masks", ValueKind::File, "file that names the values that must not be shown"},
      {"--to-string", ValueKind::None, "print objects by their own toString()"}},
     false,
     true,
     runWatch},
    {"stack",
     "show who calls a method",
     "The stacks of the next calls, each with how often it was seen, the most frequent first; "
     "Ctrl-C\n"
     "shows what there is by then. PATTERN and conditions are those of `vdk watch`.",
     "vdk stack app.jar com.shop.Cart:add\n"
     "vdk stack app.jar java.io.FileInputStream:open --count 1000 --depth 10\n"
     "vdk stack app.jar com.shop.Cart:add --where 'ms > 50' --each",
     {Target,
      Pattern,
      {"--count", ValueKind::Number,
       "end after so many calls, 0 for Ctrl-C only (default 100, with --each 0)"},
      Min,
      Where,
      InstanceOf,
      Depth,
      {"--each", ValueKind::None, "each call as it comes, not the sum of all"},
      {"--top", ValueKind::Number, "stacks to show (default 30)"}},
     false,
     true,
     runStack},
    {"monitor",
     "count and time the calls of methods, period by period",
     "For each period a table: calls, how many an exception left, mean, median, 95th and 99th "
     "percentile,\n"
     "and the longest; at the end the same of all. The JVM counts, so that no call is lost; "
     "percentiles\n"
     "are exact to 7 %. With --json one object a line. Waits for monitors and locks are those of\n"
     "`vdk monitors`.",
     "vdk monitor app.jar 'com.shop.Cart:*' --every 5s\n"
     "vdk monitor app.jar com.shop.Cart:add --where 'thread ~ \"http\"' --count 12 --json",
     {Target,
      Pattern,
      {"--every", ValueKind::Duration, "the period (default 5s)"},
      {"--count", ValueKind::Number, "end after so many periods"},
      Min,
      Where,
      InstanceOf},
     false,
     true,
     runMonitor},
    {"probes",
     "show, add and remove probes",
     "A probe records calls of the methods that its patterns name. The agent's own ones have "
     "short\n"
     "names, such as Databases. A probe of yours comes from a class or a jar that you name here, "
     "or "
     "by\n"
     "its class name from the agent's probe class path. Loaded classes are rewritten meanwhile; "
     "those\n"
     "of a removed probe get back what they were.",
     "vdk probes app.jar\n"
     "vdk probes app.jar add Databases Servlets\n"
     "vdk probes app.jar add my-probes.jar\n"
     "vdk probes app.jar remove Databases",
     {Target,
      {"ACTION", ValueKind::Choice, "what to do (default list)", {"list", "add", "remove"}},
      {"PROBE", ValueKind::Text, "a class name, or a .jar or .class file", {}, false, true, ""}},
     false,
     true,
     runProbes},
    {"triggers",
     "show, set and add triggers: actions on events",
     "A trigger is a line with a listener, such as a timer or a threshold, and lines with the "
     "actions\n"
     "that it sets off. set replaces all triggers by those of the file, - being standard input; "
     "add takes\n"
     "a listener and its actions, each with its properties, beside those that are there. The text "
     "is\n"
     "checked before the agent gets it. docs/triggers.md tells of all listeners and actions.",
     "vdk triggers app.jar set my.triggers\n"
     "vdk triggers app.jar add TimerListener delay=1h AdvanceGeneration\n"
     "vdk triggers app.jar add HeapMemoryUsageListener usageThresholdPercent=80 "
     "CaptureMemorySnapshot\n"
     "vdk triggers app.jar\n"
     "vdk triggers app.jar clear\n"
     "vdk triggers check my.triggers",
     {Target,
      {"ACTION", ValueKind::Choice, "what to do (default show)", {"show", "set", "add", "clear"}},
      {"LINE", ValueKind::TriggerLine, "for set a file, for add lines", {}, false, true, ""}},
     false,
     true,
     runTriggers},
    {"triggers check",
     "tell what is wrong with a file of triggers",
     "No JVM is asked. Each fault is told with its line and what would be right; the exit code is "
     "1 if\n"
     "there is one. Options that the agent has to be given for the file are told as well.",
     "vdk triggers check my.triggers && vdk run triggers=my.triggers -- java -jar app.jar",
     {{"FILE", ValueKind::File, "file with triggers, - is standard input", {}, true}},
     false,
     true,
     runTriggersCheck},
    {"tables",
     "show the tables that probes record into",
     "",
     "vdk tables app.jar\nvdk tables app.snapshot --json",
     {Source},
     false,
     true,
     runTables},
    {"table",
     "show the rows of a probe's table",
     "Conditions, of which a row must meet all, are COLUMN=TEXT, COLUMN!=TEXT, COLUMN~PART "
     "(letters\n"
     "compared without case), COLUMN>N and COLUMN<N. A column is one of the table, one of the "
     "table that\n"
     "a row belongs to (\"Connections.Database\"), or time, cpu, thread or method. With --follow "
     "and\n"
     "--json one object a line.",
     "vdk table app.jar Queries\n"
     "vdk table app.jar Queries --by SQL\n"
     "vdk table app.snapshot Queries --where 'time>100ms' --longest --stack\n"
     "vdk table app.jar Connections --where time=open --stack\n"
     "vdk table app.jar \"Socket Connections\" --follow",
     {Source,
      {"NAME", ValueKind::Text, "name or number of the table", {}, true, false, ""},
      {"--where", ValueKind::Text, "only rows that meet this condition", {}, false, true},
      {"--by", ValueKind::Text, "rows with one text in this column as one line, with sums"},
      Top,
      {"--longest", ValueKind::None, "the longest rows, not the last ones"},
      {"--stack", ValueKind::None, "with the stacks of the rows"},
      {"--follow", ValueKind::None, "rows as they come, until Ctrl-C"}},
     false,
     true,
     runTable},
    {"sql",
     "show the SQL statements that were executed",
     "What the probe Databases has recorded: statements that differ in their literals only are "
     "one.\n"
     "IN A ROW is how often one was executed on a thread with nothing else in between; from 10 on "
     "it is\n"
     "marked, since a loop may ask there what one statement could.",
     "vdk probes app.jar add Databases && vdk sql app.jar\nvdk sql app.snapshot --callers",
     {Source, Top, {"--callers", ValueKind::None, "with the methods that executed them"}},
     false,
     true,
     runSql},
    {"requests",
     "show the requests that servlets answered, by URI",
     "What the probe Servlets has recorded. SQL is what the probe Databases has seen on the same "
     "thread\n"
     "meanwhile.",
     "vdk probes app.jar add Servlets Databases && vdk requests app.jar",
     {Source, Top},
     false,
     true,
     runRequests},
    {"files",
     "show files that were opened, read and written",
     "What the probes FileStreams, RandomAccessFiles and FileChannels have recorded.",
     "vdk probes app.jar add FileStreams && vdk files app.jar",
     {Source, Top},
     false,
     true,
     runFiles},
    {"sockets",
     "show connections, and what went through them",
     "What the probe Sockets has recorded.",
     "vdk probes app.jar add Sockets && vdk sockets app.jar",
     {Source, Top},
     false,
     true,
     runSockets},
};

} // namespace

const std::vector<Command>& probeCommands() {
    return Table;
}

} // namespace vdk
