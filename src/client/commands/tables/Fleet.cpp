// The commands that serve other programs: what is known of the JVMs of a machine, in their terms.
#include "client/commands/Commands.h"
#include "client/commands/tables/Tables.h"

namespace vdk {

namespace {

const std::vector<Command> Table = {
    {"metrics",
     "serve metrics of all profiled JVMs to programs that gather them",
     "An HTTP endpoint, /metrics, in the form of OpenMetrics or in that of Prometheus, as the\n"
     "asker prefers: memory, CPU time, collections, classes and threads of each JVM that has the\n"
     "agent, and what the agent records: CPU times by thread group, waits for locks, exceptions,\n"
     "SQL statements, what it costs and what it lost. JVMs that come and go are followed. One "
     "that\n"
     "does not answer within --deadline has vdk_jvm_up 0 and holds nobody up. TARGET is a process\n"
     "id, an address, or a part of the names of any number of JVMs.",
     "vdk metrics\nvdk metrics --listen 127.0.0.1:9464 app.jar\n"
     "vdk metrics --listen 0.0.0.0:9464 --token-file /etc/vdk/token\nvdk metrics --once",
     {{"TARGET",
       ValueKind::Target,
       "JVMs to tell of, those that come later included (default --all)",
       {},
       false,
       true},
      {"--all", ValueKind::None, "all profiled JVMs of this machine"},
      {"--listen", ValueKind::Text, "address and port (default 127.0.0.1:9464)"},
      {"--deadline", ValueKind::Duration, "longest wait for JVMs in an answer (default 5s)"},
      {"--token-file", ValueKind::File,
       "answer only who sends the token of this file (Authorization: Bearer)"},
      {"--no-token", ValueKind::None, "serve other machines without one"},
      {"--once", ValueKind::None, "print the metrics once instead"},
      {"--names", ValueKind::None, "list the metrics instead"}},
     false,
     true,
     runMetrics},
    {"push",
     "send profiles of JVMs to a store, interval by interval",
     "What the agent recorded in each interval goes as pprof to a store with Pyroscope's "
     "interface,\n"
     "or as OTLP profiles, a signal that is in development, to a receiver of these:\n"
     "CPU times, and allocations, locks and exceptions where these are recorded. Nothing is "
     "switched\n"
     "on but by --sample, which is stopped at the end. A store that does not answer is tried "
     "again\n"
     "with growing pauses, while up to 32 MB wait; then the oldest are dropped, and counted. The\n"
     "system's curl does the sending. Credentials come from a file or from VDK_PUSH_CREDENTIALS:\n"
     "`Bearer TOKEN` or `Basic USER:PASSWORD`. TARGET is a process id, an address, or a part of "
     "the names of any number\n"
     "of JVMs, also of those that start later. Ends with Ctrl-C, --count, or the last JVM where "
     "only\n"
     "process ids and addresses are named.",
     "vdk push app.jar --sample --pyroscope http://127.0.0.1:4040\n"
     "vdk push --all --otlp http://127.0.0.1:4318\n"
     "vdk push app.jar --pyroscope https://profiles.example.org --every 30s --tag env=prod \\\n"
     "    --credentials /etc/vdk/push",
     {{"TARGET",
       ValueKind::Target,
       "the JVMs, those of this name that are started later included",
       {},
       false,
       true},
      {"--all", ValueKind::None, "all profiled JVMs of this machine, also those that come later"},
      {"--pyroscope", ValueKind::Text, "URL of a store with Pyroscope's interface"},
      {"--otlp", ValueKind::Text,
       "URL of a receiver of OTLP profiles (opentelemetry-proto 1.10, in development)"},
      {"--every", ValueKind::Duration, "length of an interval, at least 1s (default 15s)"},
      {"--sample", ValueKind::None, "start sampling if it is off, and stop it at the end"},
      {"--name", ValueKind::Text, "name of the application (default that of the session)"},
      {"--tag", ValueKind::Text, "KEY=VALUE, a label of the profiles", {}, false, true},
      {"--credentials", ValueKind::File, "file with the credentials"},
      {"--count", ValueKind::Number, "end after so many intervals"}},
     false,
     true,
     runPush},
    {"mcp",
     "answer assistants on standard input and output",
     "The Model Context Protocol: messages of JSON-RPC 2.0, one a line. The tools are commands of\n"
     "vdk with their --json: list_jvms, doctor, status, report, threads, thread_dump, telemetry,\n"
     "sql, requests, diff and heap, which keeps the heap open that was asked about last. They "
     "only\n"
     "read, unless --allow-control adds attach, record, sample, monitors and heap_capture.",
     "vdk mcp\nvdk mcp --allow-control",
     {{"--allow-control", ValueKind::None,
       "also offer tools that load the agent, record, and write files"}},
     false,
     false,
     runMcp},
};

} // namespace

const std::vector<Command>& fleetCommands() {
    return Table;
}

} // namespace vdk
