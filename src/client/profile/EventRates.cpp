#include "client/profile/EventRates.h"

#include "client/console/Text.h"
#include "client/profile/TreeWalk.h"

#include <algorithm>
#include <unistd.h>

namespace vdk {

namespace {

// Live objects are a level that falls as well; all else only grows until it is cleared.
bool isLevel(const EventData& data) {
    return data.what == Shown::Live;
}

EventSum between(const EventSum& before, const EventSum& now, bool level) {
    const auto difference = [&](int64_t from, int64_t to) {
        return level ? to - from : std::max<int64_t>(to - from, 0);
    };
    return {difference(before.amount, now.amount), difference(before.count, now.count)};
}

// Of each frame what the interval brought.
std::vector<Charge> chargesBetween(const std::vector<Charge>& before,
                                   const std::vector<Charge>& now, bool level) {
    std::map<int, EventRate> frames; // `interval` is the sum of the earlier moment here
    for (const Charge& charge : now) {
        frames[charge.frame].sum += {charge.own, charge.count};
    }
    for (const Charge& charge : before) {
        frames[charge.frame].interval += {charge.own, charge.count};
    }
    std::vector<Charge> charges;
    for (const auto& [frame, sums] : frames) {
        const EventSum change = between(sums.interval, sums.sum, level);
        if (change.amount != 0 || change.count != 0) {
            charges.push_back({0, frame, change.amount, change.count});
        }
    }
    return charges;
}

// For each node of the tree what the other tree has for the same stack.
std::vector<EventSum> beside(const CallTree& tree, const CallTree& other) {
    std::vector<int> same(tree.nodes.size(), -1);
    std::vector<EventSum> sums(tree.nodes.size());
    same[0] = 0;
    for (size_t i = 1; i < tree.nodes.size(); i++) {
        const int parent = same[size_t(tree.nodes[i].parent)];
        if (parent < 0) {
            continue;
        }
        for (int child : other.nodes[size_t(parent)].children) {
            const CallTree::Node& node = other.nodes[size_t(child)];
            if (node.method == tree.nodes[i].method) {
                same[i] = child;
                sums[i] = {node.total, node.count};
            }
        }
    }
    return sums;
}

void addTree(KindRates& rates, const EventData& now, const EventKind& kind,
             const EventKind& earlier, const ReportChoices& choices) {
    const CallTreeChoices which = {choices.filters};
    const bool level = isLevel(now);
    CallTree sums = makeCallTree(now.profile, kind.charges, which);
    CallTree changes =
        makeCallTree(now.profile, chargesBetween(earlier.charges, kind.charges, level), which);
    rates.besides = level ? beside(sums, changes) : beside(changes, sums);
    rates.tree = level ? std::move(sums) : std::move(changes);
}

// A number of the interval by the second; of changes the sign as well.
class Rates {
public:
    Rates(const EventData& data, double seconds)
        : unit(data.unit), level(isLevel(data)), seconds(seconds) {}

    std::string amount(int64_t sum) const {
        return unit.format == formatCount ? count(sum) : sign(sum) + unit.format(perSecond(sum));
    }
    // Few things have a digit behind the point.
    std::string count(int64_t sum) const {
        const double rate = seconds > 0 ? double(sum) / seconds : 0;
        return sign(sum) + (std::abs(rate) < 10 ? formatPercent(rate) : formatCount(int64_t(rate)));
    }

private:
    std::string sign(int64_t sum) const { return level && sum > 0 ? "+" : ""; }
    int64_t perSecond(int64_t sum) const {
        return seconds > 0 ? int64_t(double(sum) / seconds) : 0;
    }

    const EventUnit& unit;
    const bool level;
    const double seconds;
};

// What matters now comes first.
auto weightOf(bool level) {
    return [level](const EventRate& rate) {
        return level ? std::make_pair(rate.sum.amount, int64_t(0))
                     : std::make_pair(rate.interval.amount, rate.sum.amount);
    };
}

// The cells of a line, each below its title.
std::vector<std::pair<std::string, std::string>>
cellsOf(const EventData& now, const EventRate& rate, const EventRate& all, const Rates& rates) {
    const EventUnit& unit = now.unit;
    const std::string amount = unit.amountTitle, count = unit.countTitle ? unit.countTitle : "";
    std::vector<std::pair<std::string, std::string>> cells;
    if (isLevel(now)) {
        cells = {{amount, unit.format(rate.sum.amount)},
                 {amount + "%", formatPercent(percentOf(rate.sum.amount, all.sum.amount))},
                 {count, formatCount(rate.sum.count)},
                 {"CHANGE/S", rates.amount(rate.interval.amount)}};
    } else {
        cells = {{amount + "/S", rates.amount(rate.interval.amount)},
                 {"%", formatPercent(percentOf(rate.interval.amount, all.interval.amount))},
                 {count + "/S", rates.count(rate.interval.count)},
                 {amount, unit.format(rate.sum.amount)},
                 {count, formatCount(rate.sum.count)}};
    }
    if (!unit.countTitle) {
        cells.erase(std::remove_if(
                        cells.begin(), cells.end(),
                        [](const auto& cell) { return cell.first.empty() || cell.first == "/S"; }),
                    cells.end());
    }
    return cells;
}

// A list's lines know whose they are.
struct Part {
    const JvmRates& jvm;
    const KindRates& kind;
    Rates rates;
};

void printList(Console& console, const std::vector<Part>& parts, const EventRate& all,
               const ReportChoices& choices) {
    const EventData& first = parts[0].jvm.now;
    const bool isOfOne = parts[0].jvm.jvm.empty();
    std::vector<TextTable::Column> columns;
    for (const auto& cell : cellsOf(first, all, all, parts[0].rates)) {
        columns.push_back({cell.first, TextTable::Right});
    }
    if (!isOfOne) {
        columns.push_back({"JVM"});
    }
    columns.push_back({groupingTitle(choices.by)});
    std::map<std::pair<std::string, size_t>, EventRate> groups;
    for (size_t i = 0; i < parts.size(); i++) {
        for (const auto& [name, rate] : parts[i].kind.groups) {
            groups[{name, i}] = rate;
        }
    }
    TextTable table(columns);
    for (const auto& [key, rate] : heaviest(groups, choices.top, weightOf(isLevel(first)))) {
        const Part& part = parts[key.second];
        std::vector<std::string> line;
        for (const auto& cell : cellsOf(part.jvm.now, rate, all, part.rates)) {
            line.push_back(cell.second);
        }
        if (!isOfOne) {
            line.push_back(part.jvm.jvm);
        }
        line.push_back(printable(key.first));
        table.add(line);
    }
    table.print(console);
}

TreeLimits limitsOf(const CallTree& tree, const ReportChoices& choices) {
    return {std::max<int64_t>(int64_t(double(tree.total()) * choices.minPercent / 100), 1),
            choices.depth};
}

void printTree(Console& console, const EventData& now, const KindRates& kind, const Rates& rates,
               const ReportChoices& choices) {
    const size_t columns =
        console.outIsTerminal ? size_t(screenSize(STDOUT_FILENO).columns) : SIZE_MAX;
    walkTree(
        kind.tree, limitsOf(kind.tree, choices),
        [&](const CallTree::Node& node, int depth) {
            const EventSum& other = kind.besides[size_t(&node - kind.tree.nodes.data())];
            const int64_t sum = isLevel(now) ? node.total : other.amount;
            const int64_t change = isLevel(now) ? other.amount : node.total;
            const std::string percent = formatPercent(percentOf(node.total, kind.tree.total()));
            console.out << std::string(6 - std::min<size_t>(6, percent.size()), ' ') << percent
                        << "%  " << indentation(depth, columns)
                        << printable(methodName(now.profile, node.method, false)) << "  "
                        << rates.amount(change) << "/s, " << now.unit.format(sum) << "\n";
        },
        [](const CallTree::Node&, int) {});
}

void writeRate(JsonWriter& json, const EventUnit& unit, const EventRate& rate,
               const char* countField) {
    const auto write = [&](const char* field, int64_t sum, int64_t change) {
        json.field(field, sum).field("interval" + capitalized(field), change);
    };
    write(unit.field, rate.sum.amount, rate.interval.amount);
    if (unit.countField) {
        write(countField, rate.sum.count, rate.interval.count);
    }
}

void writeTree(JsonWriter& json, const EventData& now, const KindRates& kind,
               const ReportChoices& choices) {
    walkTree(
        kind.tree, limitsOf(kind.tree, choices),
        [&](const CallTree::Node& node, int) {
            const EventSum& other = kind.besides[size_t(&node - kind.tree.nodes.data())];
            const EventSum own = {node.total, node.count};
            json.beginObject().field("name", methodName(now.profile, node.method, false));
            writeRate(json, now.unit, isLevel(now) ? EventRate{own, other} : EventRate{other, own},
                      "count");
            json.key("children").beginArray();
        },
        [&](const CallTree::Node&, int) { json.endArray().endObject(); });
}

} // namespace

EventRates eventRates(const EventData& before, const EventData& now, double seconds,
                      const ReportChoices& choices, bool pools) {
    const bool level = isLevel(now);
    const bool isCleared = !level && before.clearedStamp != now.clearedStamp;
    static const std::vector<EventRow> none;
    auto earlier = eventKinds(now.profile, isCleared ? none : before.rows, choices, pools);
    EventRates rates;
    rates.seconds = seconds;
    for (const auto& [name, kind] : eventKinds(now.profile, now.rows, choices, pools)) {
        EventKind& then = earlier[name];
        KindRates& result = rates.kinds[name];
        result.all = {kind.all, between(then.all, kind.all, level)};
        if (choices.by == Grouping::Tree) {
            addTree(result, now, kind, then, choices);
            continue;
        }
        for (const auto& [group, sum] : kind.groups) {
            result.groups[group] = {sum, between(then.groups[group], sum, level)};
        }
    }
    return rates;
}

void printRates(Console& console, const std::vector<JvmRates>& jvms, const ReportChoices& choices) {
    std::map<std::string, std::vector<Part>> kinds;
    for (const JvmRates& jvm : jvms) {
        for (const auto& [name, kind] : jvm.rates.kinds) {
            kinds[name].push_back({jvm, kind, Rates(jvm.now, jvm.rates.seconds)});
        }
    }
    bool isFirst = true;
    for (const auto& [name, parts] : kinds) {
        const EventData& now = parts[0].jvm.now;
        EventRate all;
        for (const Part& part : parts) {
            all.sum += part.kind.all.sum;
            all.interval += part.kind.all.interval;
        }
        const std::string sum = now.unit.format(all.sum.amount);
        const std::string change = parts[0].rates.amount(all.interval.amount) + "/s";
        console.out << (isFirst ? "" : "\n")
                    << console.styled(std::string(now.unit.title) + " by " +
                                          groupingName(choices.by) +
                                          (name.empty() ? "" : ", " + name) +
                                          (now.profile.samplingInterval > 0 ? ", estimates" : ""),
                                      "1")
                    << (isLevel(now) ? " (" + sum + ", " + change + ")\n"
                                     : " (" + change + ", " + sum + " in all)\n");
        isFirst = false;
        if (choices.by != Grouping::Tree) {
            printList(console, parts, all, choices);
            continue;
        }
        for (const Part& part : parts) {
            console.out << (part.jvm.jvm.empty() ? "" : part.jvm.jvm + "\n");
            printTree(console, part.jvm.now, part.kind, part.rates, choices);
        }
    }
}

void writeRates(JsonWriter& json, const EventData& now, const EventRates& eventRates,
                const ReportChoices& choices) {
    json.field("by", groupingName(choices.by)).key("kinds").beginArray();
    for (const auto& [name, kind] : eventRates.kinds) {
        json.beginObject().key("kind");
        name.empty() ? json.nullValue() : json.value(name);
        writeRate(json, now.unit, kind.all, now.unit.countField);
        json.key(choices.by == Grouping::Tree ? "tree" : "groups").beginArray();
        if (choices.by == Grouping::Tree) {
            writeTree(json, now, kind, choices);
        } else {
            for (const auto& [group, rate] :
                 heaviest(kind.groups, choices.top, weightOf(isLevel(now)))) {
                json.beginObject().field(groupingName(choices.by), group);
                writeRate(json, now.unit, rate, now.unit.countField);
                json.endObject();
            }
        }
        json.endArray().endObject();
    }
    json.endArray();
}

} // namespace vdk
