#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

namespace vdk {

int runDetach(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    AgentClient::Detached result;
    {
        ProgressBar bar(console, "giving classes back");
        result = agent.client.detach([&](int percent) { bar.update(percent); });
    }
    const int code = result.notDone.empty() ? 0 : int(ExitCode::AgentFailed);
    if (console.json) {
        JsonDocument json(console, "vdk.detach/1");
        json.field("pid", agent.info.pid).field("session", agent.info.sessionName);
        json.field("classes", result.classes).field("wrappedClasses", result.withWrappers);
        json.field("loaderClasses", result.loaders);
        json.field("longestStopNs", result.longestStopNs);
        json.key("notDone").beginArray();
        for (const std::string& part : result.notDone) {
            json.value(part);
        }
        json.endArray();
        json.end();
        return code;
    }
    console.out << "detached from process " << agent.info.pid << " ("
                << printable(agent.info.sessionName) << "), " << formatCount(result.classes)
                << " classes given back";
    if (result.classes > 0) {
        console.out << ", longest stop " << formatNs(result.longestStopNs);
    }
    console.out << "\n";
    if (result.withWrappers > 0) {
        console.note(formatCount(result.withWrappers) +
                     " classes keep wrappers around their natives, which the JVM takes out of no "
                     "loaded class");
    }
    if (result.loaders > 0) {
        console.note(formatCount(result.loaders) +
                     " classes of loaders go on finding the agent, for calls that are under way");
    }
    for (const std::string& part : result.notDone) {
        console.warn("not done: " + printableLines(part, 1000));
    }
    return code;
}

} // namespace vdk
