// The commands about probes and what they record.
#include "client/commands/Commands.h"
#include "client/commands/tables/Tables.h"

namespace vdk {

namespace {

const OptionSpec Top = {"--top", ValueKind::Number, "rows or groups to show (default 30)"};

const std::vector<Command> Table = {
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
