#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Text.h"

namespace vdk {

int runList(Console& console, const Arguments& arguments) {
    Machine machine;
    std::vector<Jvm> jvms;
    for (const Jvm& jvm : machine.finder.findAll()) {
        if (jvm.isProfiled() || !arguments.has("--profiled")) {
            jvms.push_back(jvm);
        }
    }
    if (console.json) {
        JsonDocument json(console, "vdk.list/1");
        json.key("jvms").beginArray();
        for (const Jvm& jvm : jvms) {
            json.beginObject().field("pid", jvm.pid).field("name", jvm.shortName());
            json.field("main", jvm.mainName).field("arguments", jvm.arguments);
            json.field("user", jvm.user).field("javaVersion", jvm.javaVersion);
            json.field("profiled", jvm.isProfiled()).key("port");
            jvm.isProfiled() ? json.value(jvm.port) : json.nullValue();
            json.field("session", jvm.session).endObject();
        }
        json.endArray();
        json.end();
        return 0;
    }
    if (arguments.has("--plain")) {
        for (const Jvm& jvm : jvms) {
            console.out << jvm.pid << "\t" << printable(jvm.shortName()) << "\n";
        }
        return 0;
    }
    TextTable table({{"PID", TextTable::Right},
                     {"PORT", TextTable::Right},
                     {"SESSION"},
                     {"USER"},
                     {"JAVA"},
                     {"MAIN"}});
    for (const Jvm& jvm : jvms) {
        table.add({std::to_string(jvm.pid), jvm.isProfiled() ? std::to_string(jvm.port) : "-",
                   jvm.isProfiled() ? printable(jvm.session, 46) : "-", printable(jvm.user, 32),
                   printable(jvm.javaVersion.empty() ? "?" : jvm.javaVersion, 20),
                   printable(jvm.mainName + " " + jvm.arguments, 100)});
    }
    if (table.isEmpty()) {
        console.note("no JVMs found");
    } else {
        table.print(console);
    }
    return 0;
}

} // namespace vdk
