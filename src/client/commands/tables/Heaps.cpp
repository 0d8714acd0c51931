// The commands about heaps, live ones and files.
#include "client/commands/Commands.h"
#include "client/commands/tables/Tables.h"
#include "client/heap/HeapReport.h"

namespace vdk {

namespace {

const OptionSpec Timeout = {"--timeout", ValueKind::Duration,
                            "limit for each wait (default 10s to connect, an hour for the work)"};

const std::vector<Command> Table = {
    {"heap",
     "show what holds the memory in a heap dump or snapshot",
     "FILE is a heap dump of a JVM (HPROF, also in gzip form) or a snapshot with a heap. REPORT "
     "is\n" +
         heapReportHelp() +
         "A condition is FIELD OP VALUE with OP one of = != < <= > >= ~ (text with *).\n"
         "Marks are made by `vdk generation`: `sites --since MARK --held-by` tells what was made "
         "since\n"
         "one, is still alive, and is held by which older objects.\n"
         "With --index the analysis is kept in a file and opening the heap again takes no "
         "computing.\n"
         "Without a REPORT a terminal gets the first screen and then the shell, which q ends.\n"
         "A heap has at most 1,073,741,808 objects and 2,147,483,632 references, arrays of any "
         "length; a larger\n"
         "one is refused after the first pass, and so are the PHD files of OpenJ9.\n"
         "`vdk heap live` and `vdk heap capture` ask a running JVM; a file of such a name is "
         "./live.",
     "vdk heap capture app.jar --out /tmp/app.hprof\n"
     "vdk heap /tmp/app.hprof --index /tmp/app.index\n"
     "vdk heap /tmp/app.hprof histogram 'java.util.*' --index /tmp/app.index\n"
     "vdk heap /tmp/app.hprof path 0x7f0a4c18\n"
     "vdk heap before.hprof diff after.hprof --json\n"
     "vdk heap /tmp/app.hprof sql 'select name, count(*) from objects join classes using (class) "
     "group by 1'\n"
     "vdk heap app.snapshot sites --since baseline --held-by",
     {{"FILE", ValueKind::File, "heap dump or snapshot of up to 1.07 billion objects", {}, true},
      {"REPORT", ValueKind::Choice, "what to show", heapReportNames()},
      {"ARGUMENT", ValueKind::Text, "see the reports", {}, false, true},
      {"--top", ValueKind::Number, "lines to show"},
      {"--sort", ValueKind::Text,
       "order: retained, shallow, count or name of classes; of objects also length or a field"},
      {"--where", ValueKind::Text, "with objects: a condition, all of several", {}, false, true},
      {"--subclasses", ValueKind::None, "with objects: those of subclasses too"},
      {"--from", ValueKind::Number, "with show: the first element of an array to show"},
      {"--gate", ValueKind::Number,
       "with suspects: exit code 1 if one holds so many percent of the reached bytes"},
      {"--skip",
       ValueKind::Text,
       "with holders: go past objects of these classes to what holds them",
       {},
       false,
       true},
      {"--by-class", ValueKind::None, "group dominated objects by class"},
      {"--since", ValueKind::Text, "with sites: made since this generation, a number or a name"},
      {"--held-by", ValueKind::None, "with sites --since: which older objects hold the new ones"},
      {"--by",
       ValueKind::Choice,
       "with sites: place of the allocation (default method); with diff: class (default), site, "
       "loader or package",
       {"method", "path", "class", "site", "loader", "package"}},
      {"--max-growth",
       ValueKind::Text,
       "with diff: CLASSES:LIMIT, exit code 1 if they grew more: 10%, 500 objects, 20m bytes",
       {},
       false,
       true},
      {"--no-retained", ValueKind::None, "without retained sizes, which is faster"},
      {"--weak", ValueKind::None, "let a path go through weak, soft and phantom references"},
      {"--exclude", ValueKind::Text,
       "with paths: strengths of references that lead nowhere, of soft,weak,phantom,final (all "
       "four unless given) or none"},
      {"--sqlite", ValueKind::File, "with export: the database file to write"},
      {"--index", ValueKind::File, "keep the analysis in this file and answer from it"},
      {"--dump", ValueKind::Number, "which dump of a file that holds several (default 1)"},
      {"--threads", ValueKind::Number,
       "threads to use; the result is the same (default: one a core, up to 8)"},
      {"--tmp", ValueKind::Folder, "for inflating compressed dumps (default TMPDIR or /tmp)"},
      {"--verify", ValueKind::None, "check dominators and retained sizes by their definition"},
      {"--csv", ValueKind::None, "comma-separated values: the first table of a report"},
      {"--table", ValueKind::Text, "with --csv: another table, by its name in the JSON form"}},
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
      {"--csv", ValueKind::None, "comma-separated values"},
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
};

} // namespace

const std::vector<Command>& heapCommands() {
    return Table;
}

} // namespace vdk
