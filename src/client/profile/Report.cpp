#include "client/profile/Report.h"

#include "client/console/Text.h"
#include "client/profile/J2eeReport.h"
#include "client/profile/TreeWalk.h"
#include "db/Records.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <unistd.h>

namespace vdk {

double percentOf(int64_t part, int64_t whole) {
    return whole <= 0 ? 0 : double(part) * 100 / double(whole);
}

std::string sampledText(const SampledCpu& cpu) {
    return cpu.isKnown()
               ? "sampled " + formatNs(cpu.chargedNs) + " of " + formatNs(cpu.usedNs) + " CPU"
               : "";
}

namespace {

// What stands behind "walk: ", the reason.
std::string walkReason(const Profile& profile) {
    const std::string prefix = "walk: ";
    return startsWith(profile.sampler, prefix) ? profile.sampler.substr(prefix.size()) : "";
}

} // namespace

std::string samplerText(const Profile& profile) {
    if (profile.sampler == "signal") {
        return "by signals";
    }
    if (profile.sampler == "elapsed") {
        return "of elapsed time, by the stack walker";
    }
    const std::string reason = walkReason(profile);
    return reason.empty() ? "by the stack walker"
                          : "by the stack walker, as signals are not possible: " + reason;
}

std::string samplerName(const Profile& profile) {
    if (profile.sampler.empty()) {
        return profile.sampledCpu().isKnown() ? "walk" : "";
    }
    return profile.sampler.substr(0, profile.sampler.find(':'));
}

std::string samplingText(const Profile& profile, const SampledCpu& cpu) {
    if (!cpu.isKnown()) {
        return "";
    }
    std::string text = sampledText(cpu) + "; " + samplerText(profile);
    if (profile.sampler == "signal" || profile.notWalkableNs > 0) {
        text += ", " + formatPercent(percentOf(profile.notWalkableNs, profile.total())) +
                "% not walkable";
    }
    if (profile.lostSamples > 0) {
        text += ", samples lost: " + formatCount(profile.lostSamples);
    }
    if (profile.threadsWithoutTimer > 0) {
        text += ", threads without a timer: " + formatCount(profile.threadsWithoutTimer);
    }
    return text;
}

void writeSampler(JsonWriter& json, const Profile& profile) {
    const std::string name = samplerName(profile);
    json.key("sampler");
    name.empty() ? json.nullValue() : json.value(name);
    json.field("samplerReason", walkReason(profile));
    json.field("lostSamples", profile.lostSamples);
    json.field("threadsWithoutTimer", profile.threadsWithoutTimer);
}

void writeSampled(JsonWriter& json, const SampledCpu& cpu) {
    json.key("sampledCpuNs");
    cpu.isKnown() ? json.value(cpu.chargedNs) : json.nullValue();
    json.key("usedCpuNs");
    cpu.isKnown() ? json.value(cpu.usedNs) : json.nullValue();
}

std::string indentation(int depth, size_t columns) {
    size_t wanted = size_t(depth) * 2, most = columns / 3;
    if (wanted <= most) {
        return std::string(wanted, ' ');
    }
    std::string level = "[" + std::to_string(depth) + "] ";
    return std::string(most - std::min(most, level.size()), ' ') + level;
}

namespace {

std::string label(const Profile& profile, int method, const ReportChoices& choices) {
    return printable(methodName(profile, method, choices.signatures)) +
           (profile.isWallTime(method) ? " (w)" : "");
}

TreeLimits limitsOf(const CallTree& tree, const ReportChoices& choices) {
    TreeLimits limits;
    limits.least = std::max<int64_t>(int64_t(double(tree.total()) * choices.minPercent / 100), 1);
    limits.maxDepth = choices.depth;
    return limits;
}

void printMethods(Console& console, const Profile& profile, const CallTree& tree,
                  const ReportChoices& choices) {
    const Measure& measure = *profile.measure;
    std::vector<TextTable::Column> columns = {{measure.ownTitle, TextTable::Right},
                                              {"OWN%", TextTable::Right},
                                              {"TOTAL", TextTable::Right},
                                              {"TOTAL%", TextTable::Right}};
    if (profile.hasCounts) {
        columns.push_back({measure.countTitle, TextTable::Right});
    }
    columns.push_back({"METHOD"});
    TextTable table(columns);
    std::vector<HotMethod> methods = hotMethods(tree);
    for (size_t i = 0; i < std::min(methods.size(), choices.top); i++) {
        const HotMethod& method = methods[i];
        std::vector<std::string> cells = {
            measure.format(method.own), formatPercent(percentOf(method.own, tree.total())),
            measure.format(method.total), formatPercent(percentOf(method.total, tree.total()))};
        if (profile.hasCounts) {
            cells.push_back(formatCount(method.count));
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
    const Measure& measure = *profile.measure;
    const size_t columns =
        console.outIsTerminal ? size_t(screenSize(STDOUT_FILENO).columns) : SIZE_MAX;
    const TreeLimits limits = limitsOf(tree, choices);
    walkTree(
        tree, limits,
        [&](const CallTree::Node& node, int depth) {
            std::string percent = formatPercent(percentOf(node.total, tree.total()));
            std::string head = std::string(6 - std::min<size_t>(6, percent.size()), ' ') + percent +
                               "%  " + indentation(depth, columns);
            std::string times = "  " + measure.format(node.total);
            if (node.own > 0 && !profile.isOfCallers) {
                times += ", own " + measure.format(node.own);
            }
            if (node.count > 0) {
                times += std::string(", ") + measure.countWord + " " + formatCount(node.count);
            }
            // The end of a line may wrap on a narrow terminal, a name always tells something.
            size_t room = columns - std::min(columns, head.size() + times.size());
            std::string name = label(profile, node.method, choices);
            console.out << head << fitted(name, std::max<size_t>(room, 12)) << times << "\n";
            for (const auto& [key, sums] : j2eeOfNode(profile, node, limits.least)) {
                const std::string margin = "         " + indentation(depth + 1, columns);
                room = columns - std::min(columns, margin.size());
                console.out << margin << fitted(j2eeText(key.first, key.second, sums), room)
                            << "\n";
            }
        },
        [](const CallTree::Node&, int) {});
}

bool isOfAllocations(const Profile& profile) {
    return profile.measure->isOfObjects();
}

void printClasses(Console& console, const Profile& profile, const std::vector<int>& threads,
                  const ReportChoices& choices) {
    const int64_t whole = profile.total();
    TextTable table({{"BYTES", TextTable::Right},
                     {"BYTES%", TextTable::Right},
                     {"OBJECTS", TextTable::Right},
                     {"CLASS"}});
    const std::vector<ClassAllocations> classes = allocatedClasses(profile, threads);
    for (size_t i = 0; i < std::min(classes.size(), choices.top); i++) {
        const ClassAllocations& row = classes[i];
        table.add({formatBytes(row.bytes), formatPercent(percentOf(row.bytes, whole)),
                   formatCount(row.objects), printable(row.name)});
    }
    console.out << console.styled(profile.measure->classTitle, "1") << " (" << formatBytes(whole)
                << ")\n";
    table.print(console);
    if (classes.size() > choices.top) {
        console.note("... and " + std::to_string(classes.size() - choices.top) +
                     " more; --top shows them");
    }
}

// The tree in which a method is charged with what it allocated.
CallTree makeMethodTree(const Profile& profile, const CallTreeChoices& choices) {
    if (!isOfAllocations(profile)) {
        return makeCallTree(profile, choices);
    }
    Profile folded = profile;
    foldAllocatedClasses(folded);
    return makeCallTree(folded, choices);
}

void printSections(Console& console, const Profile& profile, const std::vector<int>& threads,
                   const ReportChoices& choices) {
    const CallTreeChoices which = {choices.filters, -1, threads};
    const auto heading = [&](const char* title, const CallTree& tree) {
        console.out << console.styled(title, "1") << " (" << profile.measure->format(tree.total())
                    << (choices.filters ? ", filters on)\n" : ")\n");
    };
    bool isFirst = true;
    const auto separate = [&] {
        console.out << (isFirst ? "" : "\n");
        isFirst = false;
    };
    if (isOfAllocations(profile) && !profile.isOfCallers) {
        separate();
        printClasses(console, profile, threads, choices);
    }
    if (choices.methods && !profile.isOfCallers) {
        separate();
        const CallTree tree = makeMethodTree(profile, which);
        heading(profile.measure->title, tree);
        const int64_t waits = profile.waitsNs();
        if (waits > 0) {
            console.out << profile.measure->format(waits)
                        << " of it elapsed in methods marked (w), such as reads from sockets; "
                           "--no-waits leaves them out\n";
        }
        printMethods(console, profile, tree, choices);
    }
    if (choices.tree) {
        separate();
        const CallTree tree = makeCallTree(profile, which);
        heading(profile.isOfCallers ? "Callers" : "Call tree", tree);
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
    if (profile.isWallTime(method)) {
        json.field("wallTime", true);
    }
}

void writeTimes(JsonWriter& json, const Profile& profile, int64_t own, int64_t total, int64_t count,
                int64_t whole) {
    const Measure& measure = *profile.measure;
    json.field(measure.ownField, own).field(measure.totalField, total);
    json.field("ownPercent", percentOf(own, whole));
    json.field("totalPercent", percentOf(total, whole));
    if (profile.hasCounts) {
        json.field(measure.countField, count);
    }
}

void writeClasses(JsonWriter& json, const Profile& profile, int thread,
                  const ReportChoices& choices) {
    json.key("classes").beginArray();
    const std::vector<int> threads = thread < 0 ? std::vector<int>() : std::vector<int>{thread};
    const std::vector<ClassAllocations> classes = allocatedClasses(profile, threads);
    for (size_t i = 0; i < std::min(classes.size(), choices.top); i++) {
        json.beginObject().field("class", classes[i].name).field("bytes", classes[i].bytes);
        json.field("objects", classes[i].objects).endObject();
    }
    json.endArray();
}

void writeSections(JsonWriter& json, const Profile& profile, int thread,
                   const ReportChoices& choices) {
    const CallTreeChoices which = {choices.filters, thread};
    const CallTree tree = makeCallTree(profile, which);
    json.field(profile.measure->totalField, tree.total());
    if (isOfAllocations(profile) && !profile.isOfCallers) {
        writeClasses(json, profile, thread, choices);
    }
    if (choices.methods && !profile.isOfCallers) {
        json.key("methods").beginArray();
        std::vector<HotMethod> methods = hotMethods(makeMethodTree(profile, which));
        for (size_t i = 0; i < std::min(methods.size(), choices.top); i++) {
            const HotMethod& method = methods[i];
            json.beginObject();
            writeMethodFields(json, profile, method.method);
            writeTimes(json, profile, method.own, method.total, method.count, tree.total());
            json.endObject();
        }
        json.endArray();
    }
    if (choices.tree) {
        json.key(profile.isOfCallers ? "callers" : "tree").beginArray();
        const TreeLimits limits = limitsOf(tree, choices);
        walkTree(
            tree, limits,
            [&](const CallTree::Node& node, int) {
                json.beginObject();
                writeMethodFields(json, profile, node.method);
                writeTimes(json, profile, profile.isOfCallers ? 0 : node.own, node.total,
                           node.count, tree.total());
                writeJ2eeOfNode(json, profile, node, limits.least);
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
        pools[entry->second].own += time.own;
    }
    std::stable_sort(pools.begin(), pools.end(),
                     [](const ThreadPool& a, const ThreadPool& b) { return a.own > b.own; });
    return pools;
}

void printEstimate(Console& console, const Profile& profile) {
    if (profile.samplingInterval > 0) {
        console.out << "Estimates: one object in " << formatBytes(profile.samplingInterval)
                    << " allocated bytes was seen\n\n";
    }
}

void writeEstimate(JsonWriter& json, const Profile& profile) {
    json.field("estimated", profile.samplingInterval > 0);
    json.field("samplingIntervalBytes", profile.samplingInterval);
}

void printReport(Console& console, const Profile& profile, const ReportChoices& choices) {
    const std::string sampled = samplingText(profile, profile.sampledCpu());
    if (!sampled.empty()) {
        console.out << "In all " << printable(sampled) << "\n\n";
    }
    printEstimate(console, profile);
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
                    << profile.measure->format(pool.own) << ", "
                    << formatPercent(percentOf(pool.own, profile.total())) << "%)";
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
    if (isOfAllocations(profile)) {
        writeEstimate(json, profile);
    } else {
        writeSampled(json, profile.sampledCpu());
        writeSampler(json, profile);
        json.field("notWalkableNs", profile.notWalkableNs);
    }
    if (!choices.byThread) {
        writeSections(json, profile, -1, choices);
        return;
    }
    json.field(profile.measure->totalField, profile.total()).key("threads").beginArray();
    for (const ThreadTime& time : threadTimes(profile)) {
        const ProfileThread& thread = profile.threads[size_t(time.thread)];
        json.beginObject().field("thread", thread.name).field("group", thread.group);
        json.field("trn", thread.trn);
        if (!isOfAllocations(profile)) {
            writeSampled(json, thread.sampled);
        }
        writeSections(json, profile, time.thread, choices);
        json.endObject();
    }
    json.endArray();
}

} // namespace vdk
