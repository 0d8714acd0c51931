#include "client/profile/Report.h"

#include "client/console/Text.h"
#include "client/profile/TreeWalk.h"
#include "db/Records.h"

#include <algorithm>
#include <map>

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

void printSections(Console& console, const Profile& profile, const std::vector<int>& threads,
                   const ReportChoices& choices) {
    CallTree tree = makeCallTree(profile, {choices.filters, -1, threads});
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

std::vector<ThreadPool> threadPools(const Profile& profile) {
    std::vector<ThreadPool> pools;
    std::map<std::string, size_t> poolOfName;
    for (const ThreadTime& time : threadTimes(profile)) {
        std::string name = profile.threads[size_t(time.thread)].name;
        size_t digits = name.find_last_not_of("0123456789") + 1;
        std::string key = digits < name.size() && digits > 0 ? name.substr(0, digits) + "*" : name;
        auto [entry, added] = poolOfName.try_emplace(key, pools.size());
        if (added) {
            pools.push_back({name, {}, 0});
        } else {
            pools[entry->second].name = key;
        }
        pools[entry->second].threads.push_back(time.thread);
        pools[entry->second].ownNs += time.ownNs;
    }
    std::stable_sort(pools.begin(), pools.end(),
                     [](const ThreadPool& a, const ThreadPool& b) { return a.ownNs > b.ownNs; });
    return pools;
}

void printReport(Console& console, const Profile& profile, const ReportChoices& choices) {
    const std::string sampled = sampledText(profile.sampledCpu());
    if (!sampled.empty()) {
        console.out << "In all " << sampled << "\n\n";
    }
    if (!choices.byThread) {
        printSections(console, profile, {}, choices);
        return;
    }
    std::vector<ThreadPool> pools = threadPools(profile);
    for (size_t i = 0; i < std::min(pools.size(), choices.threads); i++) {
        const ThreadPool& pool = pools[i];
        bool single = pool.threads.size() == 1;
        console.out << (i == 0 ? "" : "\n")
                    << console.styled((single ? "Thread " : "Threads ") + printable(pool.name),
                                      "1;36")
                    << " (" << (single ? "" : std::to_string(pool.threads.size()) + ", ")
                    << formatNs(pool.ownNs) << ", "
                    << formatPercent(percentOf(pool.ownNs, profile.totalNs())) << "%)";
        const std::string ofThread =
            single ? sampledText(profile.threads[size_t(pool.threads[0])].sampled) : "";
        console.out << (ofThread.empty() ? "" : ", " + ofThread) << "\n";
        printSections(console, profile, pool.threads, choices);
    }
    if (pools.size() > choices.threads) {
        console.note("... and " + std::to_string(pools.size() - choices.threads) +
                     " more; --threads shows them");
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
