#include "client/profile/Report.h"

#include "client/console/Text.h"
#include "client/profile/TreeWalk.h"
#include "db/Records.h"

#include <algorithm>

namespace vdk {

double percentOf(int64_t part, int64_t whole) {
    return whole <= 0 ? 0 : double(part) * 100 / double(whole);
}

std::string sampledText(const SampledCpu& cpu) {
    return cpu.isKnown()
               ? "sampled " + formatNs(cpu.chargedNs) + " of " + formatNs(cpu.usedNs) + " CPU"
               : "";
}

void writeSampled(JsonWriter& json, const SampledCpu& cpu) {
    json.key("sampledCpuNs");
    cpu.isKnown() ? json.value(cpu.chargedNs) : json.nullValue();
    json.key("usedCpuNs");
    cpu.isKnown() ? json.value(cpu.usedNs) : json.nullValue();
}

namespace {

bool isWallTime(const Profile& profile, int method) {
    return method >= 0 && (profile.methods[size_t(method)].flags & METHOD_WALL_TIME) != 0;
}

std::string label(const Profile& profile, int method, const ReportChoices& choices) {
    return printable(methodName(profile, method, choices.signatures)) +
           (isWallTime(profile, method) ? " (w)" : "");
}

TreeLimits limitsOf(const CallTree& tree, const ReportChoices& choices) {
    TreeLimits limits;
    limits.minNs = std::max<int64_t>(int64_t(double(tree.totalNs()) * choices.minPercent / 100), 1);
    limits.maxDepth = choices.depth;
    return limits;
}

void printMethods(Console& console, const Profile& profile, const CallTree& tree,
                  const ReportChoices& choices) {
    std::vector<TextTable::Column> columns = {{"OWN", TextTable::Right},
                                              {"OWN%", TextTable::Right},
                                              {"TOTAL", TextTable::Right},
                                              {"TOTAL%", TextTable::Right}};
    if (profile.hasCounts) {
        columns.push_back({"CALLS", TextTable::Right});
    }
    columns.push_back({"METHOD"});
    TextTable table(columns);
    std::vector<HotMethod> methods = hotMethods(tree);
    for (size_t i = 0; i < std::min(methods.size(), choices.top); i++) {
        const HotMethod& method = methods[i];
        std::vector<std::string> cells = {
            formatNs(method.ownNs), formatPercent(percentOf(method.ownNs, tree.totalNs())),
            formatNs(method.totalNs), formatPercent(percentOf(method.totalNs, tree.totalNs()))};
        if (profile.hasCounts) {
            cells.push_back(std::to_string(method.count));
        }
        cells.push_back(label(profile, method.method, choices));
        table.add(cells);
    }
    table.print(console);
    if (methods.size() > choices.top) {
        console.note("... and " + std::to_string(methods.size() - choices.top) +
                     " more; --top shows them");
    }
}

void printTree(Console& console, const Profile& profile, const CallTree& tree,
               const ReportChoices& choices) {
    walkTree(
        tree, limitsOf(tree, choices),
        [&](const CallTree::Node& node, int depth) {
            std::string percent = formatPercent(percentOf(node.totalNs, tree.totalNs()));
            console.out << std::string(6 - std::min<size_t>(6, percent.size()), ' ') << percent
                        << "%  " << std::string(size_t(depth) * 2, ' ')
                        << label(profile, node.method, choices) << "  " << formatNs(node.totalNs);
            if (node.ownNs > 0) {
                console.out << ", own " << formatNs(node.ownNs);
            }
            if (node.count > 0) {
                console.out << ", calls " << node.count;
            }
            console.out << "\n";
        },
        [](const CallTree::Node&, int) {});
}

void printSections(Console& console, const Profile& profile, int thread,
                   const ReportChoices& choices) {
    CallTree tree = makeCallTree(profile, {choices.filters, thread});
    if (choices.methods) {
        console.out << console.styled("Hot methods", "1") << " (" << formatNs(tree.totalNs())
                    << (choices.filters ? ", filters on)\n" : ")\n");
        printMethods(console, profile, tree, choices);
    }
    if (choices.tree) {
        console.out << (choices.methods ? "\n" : "") << console.styled("Call tree", "1") << " ("
                    << formatNs(tree.totalNs()) << (choices.filters ? ", filters on)\n" : ")\n");
        printTree(console, profile, tree, choices);
    }
}

void writeMethodFields(JsonWriter& json, const Profile& profile, int method) {
    json.field("name", methodName(profile, method, false));
    if (method >= 0) {
        const ProfileMethod& info = profile.methods[size_t(method)];
        json.field("class", info.className).field("method", info.name);
        json.field("parameters", info.parameters);
    }
    if (isWallTime(profile, method)) {
        json.field("wallTime", true);
    }
}

void writeTimes(JsonWriter& json, const Profile& profile, int64_t ownNs, int64_t totalNs,
                int64_t count, int64_t whole) {
    json.field("ownNs", ownNs).field("totalNs", totalNs);
    json.field("ownPercent", percentOf(ownNs, whole));
    json.field("totalPercent", percentOf(totalNs, whole));
    if (profile.hasCounts) {
        json.field("calls", count);
    }
}

void writeSections(JsonWriter& json, const Profile& profile, int thread,
                   const ReportChoices& choices) {
    CallTree tree = makeCallTree(profile, {choices.filters, thread});
    json.field("totalNs", tree.totalNs());
    if (choices.methods) {
        json.key("methods").beginArray();
        std::vector<HotMethod> methods = hotMethods(tree);
        for (size_t i = 0; i < std::min(methods.size(), choices.top); i++) {
            const HotMethod& method = methods[i];
            json.beginObject();
            writeMethodFields(json, profile, method.method);
            writeTimes(json, profile, method.ownNs, method.totalNs, method.count, tree.totalNs());
            json.endObject();
        }
        json.endArray();
    }
    if (choices.tree) {
        json.key("tree").beginArray();
        walkTree(
            tree, limitsOf(tree, choices),
            [&](const CallTree::Node& node, int) {
                json.beginObject();
                writeMethodFields(json, profile, node.method);
                writeTimes(json, profile, node.ownNs, node.totalNs, node.count, tree.totalNs());
                json.key("children").beginArray();
            },
            [&](const CallTree::Node&, int) { json.endArray().endObject(); });
        json.endArray();
    }
}

} // namespace

void printReport(Console& console, const Profile& profile, const ReportChoices& choices) {
    const std::string sampled = sampledText(profile.sampledCpu());
    if (!sampled.empty()) {
        console.out << "In all " << sampled << "\n\n";
    }
    if (!choices.byThread) {
        printSections(console, profile, -1, choices);
        return;
    }
    bool first = true;
    for (const ThreadTime& time : threadTimes(profile)) {
        const ProfileThread& thread = profile.threads[size_t(time.thread)];
        console.out << (first ? "" : "\n")
                    << console.styled("Thread " + printable(thread.name), "1;36") << " ("
                    << formatNs(time.ownNs) << ", "
                    << formatPercent(percentOf(time.ownNs, profile.totalNs())) << "%)";
        const std::string ofThread = sampledText(thread.sampled);
        console.out << (ofThread.empty() ? "" : ", " + ofThread) << "\n";
        printSections(console, profile, time.thread, choices);
        first = false;
    }
}

void writeReport(JsonWriter& json, const Profile& profile, const ReportChoices& choices) {
    json.field("filters", choices.filters);
    writeSampled(json, profile.sampledCpu());
    if (!choices.byThread) {
        writeSections(json, profile, -1, choices);
        return;
    }
    json.field("totalNs", profile.totalNs()).key("threads").beginArray();
    for (const ThreadTime& time : threadTimes(profile)) {
        const ProfileThread& thread = profile.threads[size_t(time.thread)];
        json.beginObject().field("thread", thread.name).field("group", thread.group);
        json.field("trn", thread.trn);
        writeSampled(json, thread.sampled);
        writeSections(json, profile, time.thread, choices);
        json.endObject();
    }
    json.endArray();
}

} // namespace vdk
