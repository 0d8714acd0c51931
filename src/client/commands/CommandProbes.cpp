// The command about probes: which there are, and registering them.
#include "client/attach/AgentOptions.h"
#include "client/commands/Commands.h"
#include "client/commands/ProbeFiles.h"
#include "client/commands/Sources.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cstring>

namespace vdk {

namespace {

std::string shortName(const std::string& name) {
    return startsWith(name, BuiltInProbePackage) ? name.substr(strlen(BuiltInProbePackage)) : name;
}

// The agent's own probes may be named by their last word.
std::string fullProbeName(const std::string& name, const std::vector<std::string>& known) {
    const std::string builtIn = BuiltInProbePackage + name;
    return std::find(known.begin(), known.end(), builtIn) == known.end() ? name : builtIn;
}

void list(Console& console, const LiveAgent& agent, const AgentClient::KnownProbes& probes) {
    const auto isRegistered = [&](const std::string& name) {
        return std::find(probes.registered.begin(), probes.registered.end(), name) !=
               probes.registered.end();
    };
    if (console.json) {
        JsonDocument json(console, "vdk.probes/1");
        json.field("pid", agent.info.pid);
        json.field("session", agent.info.sessionName).key("probes").beginArray();
        for (const std::string& name : probes.available) {
            json.beginObject().field("name", name).field("registered", isRegistered(name));
            json.field("builtIn", startsWith(name, BuiltInProbePackage)).endObject();
        }
        json.endArray();
        json.end();
        return;
    }
    TextTable table({{"STATE"}, {"PROBE"}});
    for (const std::string& name : probes.available) {
        table.add({isRegistered(name) ? "on" : "off", printable(shortName(name))});
    }
    table.print(console);
}

void add(AgentClient& client, const std::vector<std::string>& names,
         const std::vector<std::string>& known) {
    std::vector<std::string> byName, byBytes;
    for (const std::string& name : names) {
        const std::string full = fullProbeName(name, known);
        if (full == name && namesProbeFile(name)) {
            const std::vector<std::string> classes = readProbeFile(name);
            byBytes.insert(byBytes.end(), classes.begin(), classes.end());
        } else {
            byName.push_back(full);
        }
    }
    if (!byBytes.empty()) {
        client.registerProbesByBytecode(byBytes);
    }
    if (!byName.empty()) {
        client.registerProbes(byName);
    }
}

void remove(AgentClient& client, const std::vector<std::string>& names,
            const AgentClient::KnownProbes& known) {
    std::vector<std::string> full;
    for (const std::string& name : names) {
        full.push_back(fullProbeName(name, known.available));
        if (std::find(known.registered.begin(), known.registered.end(), full.back()) ==
            known.registered.end()) {
            throw ClientError(ExitCode::Refused, "probe.unknown",
                              "no probe '" + printable(name) + "' is registered" +
                                  didYouMean(full.back(), known.registered),
                              "`vdk probes` shows those that are");
        }
    }
    client.unregisterProbes(full);
}

} // namespace

int runProbes(Console& console, const Arguments& arguments) {
    const std::string action = arguments.text("ACTION", "list");
    const std::vector<std::string>& names = arguments.all("PROBE");
    if ((action == "list") != names.empty()) {
        throw ClientError(ExitCode::Usage, "usage",
                          action == "list" ? "list takes no probe"
                                           : action + " wants the name of a probe");
    }
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    const AgentClient::KnownProbes known = agent.client.probes();
    if (action == "list") {
        list(console, agent, known);
        return 0;
    }
    if (action == "add") {
        add(agent.client, names, known.available);
    } else {
        remove(agent.client, names, known);
    }
    writeDone(console, "vdk.probes.changed/1", agent,
              action == "add" ? "probes registered" : "probes unregistered");
    return 0;
}

} // namespace vdk
