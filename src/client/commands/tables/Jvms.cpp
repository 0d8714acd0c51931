// The commands about JVMs as such: which there are, and the agent in them.
#include "client/commands/Commands.h"
#include "client/commands/tables/Tables.h"

namespace vdk {

namespace {

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
const OptionSpec OwnProbes = {
    "--probes", ValueKind::Text,
    "register these of the agent's own probes, with commas, or all (default none; `vdk probes`)"};
const OptionSpec NoRedact = {
    "--no-redact", ValueKind::None,
    "let probes record values in SQL and in queries of URLs as they are (no `redact`)"};
const OptionSpec Banner = {"--banner", ValueKind::None,
                           "let the agent write its start messages (no `quiet`)"};
const OptionSpec Eager = {"--eager", ValueKind::None,
                          "put calls into classes as they load, not only when something records"};
const OptionSpec OomDump = {
    "--oom-dump", ValueKind::None,
    "let the agent switch on the JVM's heap dump at an OutOfMemoryError (no `disableoomedumper`)"};

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
      OwnProbes,
      NoRedact,
      Banner,
      OomDump,
      Eager,
      {"--only",
       ValueKind::Text,
       "tracing rewrites the classes of this pattern alone, such as 'com.shop.*'; may be given "
       "several times",
       {},
       false,
       true},
      {"--exceptions", ValueKind::None,
       "ask the JVM for exception events and count exceptions: throwing becomes some 33 times "
       "slower"},
      {"--generations", ValueKind::None,
       "tag the objects that exist before the program's main method, too"},
      {"--locals", ValueKind::None,
       "ask the JVM for local variables, so that heap snapshots name those that hold an object: "
       "code that works on collections and texts becomes some 7 percent slower on 17, 2 on 25"},
      {"--print", ValueKind::None, "print the command line instead of running it"},
      {"--print-option", ValueKind::None, "print the JVM option alone"}},
     true,
     true,
     runRun},
    {"doctor",
     "say whether attach and each kind of recording will work, and why not",
     "Looks at rights, options, C library, folders, namespaces and the agent's library, and "
     "touches\n"
     "nothing of the JVM's. Exit code 1 where attach would not work, or the agent that is there "
     "does\n"
     "not answer.",
     "vdk doctor app.jar\nvdk doctor 4711 --json",
     {Target, AgentPath},
     false,
     true,
     runDoctor},
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
      OwnProbes,
      NoRedact,
      Banner,
      OomDump,
      Eager,
      {"--generations", ValueKind::None, "tag the objects that exist already"},
      {"--timeout", ValueKind::Duration, "limit for each wait (default 10s)"}},
     false,
     true,
     runAttach},
    {"detach",
     "have the agent leave a running JVM",
     "Every recording ends and its data goes; classes get their own bytes back, but for wrappers\n"
     "around natives, which no loaded class can lose, and what class loaders find the agent by; "
     "port,\n"
     "threads and marker of the agent go. The\n"
     "program goes on, and `vdk attach`, or any command that attaches, brings the agent back.",
     "vdk detach app.jar\nvdk detach 4711 --json",
     {Target, {"--timeout", ValueKind::Duration, "limit for each wait but that for classes (15s)"}},
     false,
     true,
     runDetach},
    {"status",
     "show what an agent is and does",
     "",
     "vdk status app.jar\nvdk status :10005 --json",
     {Target},
     false,
     true,
     runStatus},
};

} // namespace

const std::vector<Command>& jvmCommands() {
    return Table;
}

} // namespace vdk
