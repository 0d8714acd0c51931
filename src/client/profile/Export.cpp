#include "client/profile/Export.h"

#include "client/console/Json.h"
#include "client/console/Text.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/TreeWalk.h"
#include "core/ground/Version.h"

#include <algorithm>
#include <map>

namespace vdk {

namespace {

// A text fit for a collapsed stack: in place of the format's separators, and of characters that
// move a terminal's cursor, stands a colon.
std::string collapsedText(const std::string& text) {
    std::string result = replaceUnprintable(text, [](unsigned) { return std::string(":"); });
    std::replace(result.begin(), result.end(), ';', ':');
    return result;
}

// The same without blanks, which end a stack.
std::string collapsedName(const std::string& name) {
    std::string result = collapsedText(name);
    result.erase(std::remove(result.begin(), result.end(), ' '), result.end());
    return result;
}

std::string frameName(const Profile& profile, int method, const ExportChoices& choices) {
    std::string name = methodName(profile, method, choices.signatures);
    return choices.rawNames ? name : cleanFrameName(name);
}

// Names of methods, each made once.
class NameCache {
public:
    NameCache(const Profile& profile, const ExportChoices& choices)
        : profile(profile), choices(choices) {}

    const std::string& get(int method) {
        auto [entry, added] = names.try_emplace(method);
        if (added) {
            entry->second = frameName(profile, method, choices);
        }
        return entry->second;
    }

private:
    const Profile& profile;
    const ExportChoices& choices;
    std::map<int, std::string> names;
};

void collapseTree(std::ostream& out, const CallTree& tree, const std::string& prefix,
                  NameCache& names, int64_t unitNs) {
    std::string line = prefix;
    std::vector<size_t> ends;
    walkTree(
        tree, TreeLimits(),
        [&](const CallTree::Node& node, int) {
            ends.push_back(line.size());
            line += (line.empty() ? "" : ";") + collapsedName(names.get(node.method));
            const int64_t units = (node.own + unitNs / 2) / unitNs;
            if (units > 0) {
                out << line << ' ' << units << '\n';
            }
        },
        [&](const CallTree::Node&, int) {
            line.resize(ends.back());
            ends.pop_back();
        });
}

} // namespace

void writeCollapsed(std::ostream& out, const Profile& profile, const ExportChoices& choices) {
    NameCache names(profile, choices);
    const int64_t unitNs = profile.measure == &SampleCounts ? 1 : choices.unitNs;
    if (!choices.byThread) {
        collapseTree(out, makeCallTree(profile, {choices.filters, -1}), "", names, unitNs);
        return;
    }
    for (const ThreadTime& time : threadTimes(profile)) {
        const ProfileThread& thread = profile.threads[size_t(time.thread)];
        std::string prefix =
            "[" + collapsedText(thread.name) + " trn=" + std::to_string(thread.trn) + "]";
        collapseTree(out, makeCallTree(profile, {choices.filters, time.thread}), prefix, names,
                     unitNs);
    }
}

namespace {

// A thread's stacks: what the "samples" and "weights" of its profile come from. The walk is made
// twice, as the format wants all samples ahead of all weights.
template <typename Visitor>
void eachStack(const CallTree& tree, std::map<int, int>& frames, Visitor visitor) {
    std::vector<int> stack;
    walkTree(
        tree, TreeLimits(),
        [&](const CallTree::Node& node, int) {
            stack.push_back(frames.try_emplace(node.method, int(frames.size())).first->second);
            if (node.own > 0) {
                visitor(stack, node.own);
            }
        },
        [&](const CallTree::Node&, int) { stack.pop_back(); });
}

void writeSpeedscopeThread(JsonWriter& json, const CallTree& tree, const ProfileThread& thread,
                           const char* unit, std::map<int, int>& frames) {
    json.beginObject().field("type", "sampled");
    json.field("name", thread.name + " (trn " + std::to_string(thread.trn) + ")");
    json.field("unit", unit).field("startValue", 0).field("endValue", tree.total());
    json.key("samples").beginArray();
    eachStack(tree, frames, [&](const std::vector<int>& stack, int64_t) {
        json.beginArray();
        for (int frame : stack) {
            json.value(frame);
        }
        json.endArray();
    });
    json.endArray().key("weights").beginArray();
    eachStack(tree, frames, [&](const std::vector<int>&, int64_t own) { json.value(own); });
    json.endArray().endObject();
}

} // namespace

void writeSpeedscope(std::ostream& out, const Profile& profile, const ExportChoices& choices) {
    JsonWriter json(out, false);
    json.beginObject();
    json.field("$schema", "https://www.speedscope.app/file-format-schema.json");
    json.field("name", choices.name).field("exporter", "vdk@" VDK_VERSION);
    json.field("activeProfileIndex", 0);
    const char* const unit = profile.measure == &SampleCounts ? "none" : "nanoseconds";
    std::map<int, int> frames; // index of a method among the shared frames
    json.key("profiles").beginArray();
    for (const ThreadTime& time : threadTimes(profile)) {
        if (time.own > 0) {
            writeSpeedscopeThread(json, makeCallTree(profile, {choices.filters, time.thread}),
                                  profile.threads[size_t(time.thread)], unit, frames);
        }
    }
    json.endArray();
    std::vector<int> methods(frames.size());
    for (const auto& [method, index] : frames) {
        methods[size_t(index)] = method;
    }
    json.key("shared").beginObject().key("frames").beginArray();
    for (int method : methods) {
        json.beginObject().field("name", frameName(profile, method, choices)).endObject();
    }
    json.endArray().endObject().endObject();
    out << '\n';
}

} // namespace vdk
