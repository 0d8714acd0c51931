#include "client/picture/Picture.h"

#include "client/console/Text.h"
#include "db/Records.h"

#include <algorithm>

namespace vdk {

namespace {

uint64_t pairKey(int a, int b) {
    return uint64_t(uint32_t(a)) << 32 | uint32_t(b);
}

std::string titleOf(const EventData& data, const std::string& kind) {
    switch (data.what) {
    case Shown::Cpu:
        return data.profile.measure == &ElapsedTime    ? "Elapsed time"
               : data.profile.measure == &SampleCounts ? "Samples"
               : data.profile.waitsNs() > 0            ? "CPU and waiting time"
                                                       : "CPU time";
    case Shown::Allocations:
        return "Allocations";
    case Shown::Live:
        return "Live objects";
    case Shown::Garbage:
        return "Garbage";
    case Shown::Monitors:
        return "Waits" + (kind.empty() ? "" : ": " + kind);
    default:
        return "Exceptions";
    }
}

std::string unitOf(const EventData& data) {
    return data.unit.format == formatNs      ? "ns"
           : data.unit.format == formatBytes ? "bytes"
                                             : "count";
}

} // namespace

std::string Picture::Name::full() const {
    return className.empty()          ? method
           : method == AllocatedClass ? className
                                      : className + "." + method;
}

StackTree::Sums StackTree::total(Side side) const {
    Sums sum;
    for (const Entry& entry : entries) {
        const Sums& part = side == Side::Now ? entry.now : entry.base;
        sum.own += part.own;
        sum.count += part.count;
    }
    return sum;
}

// Names come from another process and may be of any length.
std::string Picture::shown(const std::string& text) const {
    constexpr size_t Longest = 4096;
    return choices.exactNames ? wholeText(text) : printable(text, Longest);
}

int Picture::nameOf(const std::string& className, const std::string& method,
                    const std::string& parameters) {
    auto [entry, added] =
        nameIndex.try_emplace(className + '\n' + method + '\n' + parameters, int(names.size()));
    if (added) {
        names.push_back({shown(className), shown(method), shown(parameters)});
    }
    return entry->second;
}

int Picture::nameOf(const ProfileMethod& method) {
    return nameOf(method.className,
                  choices.signatures ? method.name + method.parameters : method.name,
                  choices.exactNames ? method.parameters : "");
}

int Picture::threadOf(const EventRow& row) {
    const std::string key = choices.eachThread ? std::to_string(row.trn) + '\n' + row.thread
                                               : row.thread + '\n' + row.group;
    auto [entry, added] = threadIndex.try_emplace(key, int(threads.size()));
    if (added) {
        threads.push_back({shown(row.thread), shown(row.group), row.trn});
    }
    return entry->second;
}

int Picture::childOf(StackTree& tree, int parent, int name) {
    auto [entry, added] =
        children[tree.id].try_emplace(pairKey(parent, name), int(tree.nodes.size()));
    if (added) {
        tree.nodes.push_back({parent, name});
    }
    return entry->second;
}

StackTree& Picture::treeOf(const EventData& data, const std::string& kind) {
    std::string id = vdk::nameOf(data.what).option;
    if (!kind.empty()) {
        id += "-" + kind;
    }
    for (StackTree& tree : trees) {
        if (tree.id == id) {
            return tree;
        }
    }
    StackTree tree;
    tree.id = id;
    tree.title = titleOf(data, kind);
    tree.unit = unitOf(data);
    const bool hasCounts =
        data.unit.countTitle && (data.what != Shown::Cpu || data.profile.hasCounts);
    tree.countTitle = hasCounts ? data.unit.countField : "";
    trees.push_back(tree);
    return trees.back();
}

// Hangs the frames of one profile into one tree; each frame is looked at once.
class Picture::Adder {
public:
    Adder(Picture& picture, StackTree& tree, const Profile& profile)
        : picture(picture), tree(tree), profile(profile), nodes(profile.frames.size(), Unknown),
          names(profile.methods.size(), Unknown) {
        nodes[0] = 0;
    }

    void add(const EventRow& row, Side side) {
        if (row.leaf <= 0 || size_t(row.leaf) >= nodes.size() || !isLinked(row.leaf)) {
            return;
        }
        int node = findNode(row.leaf);
        if (node == 0) {
            node = picture.childOf(tree, 0, picture.nameOf("", "<filtered methods only>"));
        }
        const int thread = picture.threadOf(row);
        auto [at, added] =
            picture.entryOf[tree.id].try_emplace(pairKey(node, thread), tree.entries.size());
        if (added) {
            tree.entries.push_back({node, thread, {}, {}, {}});
        }
        StackTree::Entry& entry = tree.entries[at->second];
        StackTree::Sums& sums = side == Side::Now ? entry.now : entry.base;
        sums.own += row.amount;
        sums.count += isShown(row.leaf) ? row.count : 0;
        if (row.line > 0 && side == Side::Now && isShown(row.leaf)) {
            addLine(entry.lines, row);
        }
    }

private:
    static constexpr int Unknown = -2;

    static void addLine(std::vector<LineTime>& lines, const EventRow& row) {
        const auto known = std::find_if(lines.begin(), lines.end(), [&](const LineTime& line) {
            return line.line == row.line;
        });
        if (known != lines.end()) {
            known->ownNs += row.amount;
        } else {
            lines.push_back({row.line, row.amount});
        }
    }

    bool isLinked(int frame) const { return profile.frames[size_t(frame)].parent >= 0; }

    bool isShown(int frame) const {
        const ProfileMethod& method = profile.methods[size_t(profile.frames[size_t(frame)].method)];
        return !method.isHidden() && !(picture.choices.filters && method.isFiltered());
    }

    int nameOf(int method) {
        int& name = names[size_t(method)];
        if (name == Unknown) {
            name = picture.nameOf(profile.methods[size_t(method)]);
        }
        return name;
    }

    // Stacks are deep: no recursion.
    int findNode(int frame) {
        path.clear();
        while (frame > 0 && nodes[size_t(frame)] == Unknown) {
            path.push_back(frame);
            frame = isLinked(frame) ? profile.frames[size_t(frame)].parent : 0;
        }
        int node = nodes[size_t(frame)];
        for (auto it = path.rbegin(); it != path.rend(); ++it) {
            if (isShown(*it)) {
                node = picture.childOf(tree, node, nameOf(profile.frames[size_t(*it)].method));
            }
            nodes[size_t(*it)] = node;
        }
        return node;
    }

    Picture& picture;
    StackTree& tree;
    const Profile& profile;
    std::vector<int> nodes, names, path;
};

void Picture::add(const EventData& data, Side side) {
    std::map<std::string, std::vector<const EventRow*>> kinds;
    for (const EventRow& row : data.rows) {
        kinds[row.kind].push_back(&row);
    }
    for (const auto& [kind, rows] : kinds) {
        StackTree& tree = treeOf(data, kind);
        if (data.what == Shown::Cpu && data.profile.hasCounts) {
            tree.countTitle = data.unit.countField ? data.unit.countField : "calls";
        }
        Adder adder(*this, tree, data.profile);
        for (const EventRow* row : rows) {
            adder.add(*row, side);
        }
    }
}

void Picture::finish() {
    trees.erase(std::remove_if(trees.begin(), trees.end(),
                               [](const StackTree& tree) {
                                   return tree.total(Side::Now).own == 0 &&
                                          tree.total(Side::Base).own == 0;
                               }),
                trees.end());
    for (StackTree& tree : trees) {
        std::sort(tree.entries.begin(), tree.entries.end(),
                  [](const StackTree::Entry& a, const StackTree::Entry& b) {
                      return a.node != b.node ? a.node < b.node : a.thread < b.thread;
                  });
        for (StackTree::Entry& entry : tree.entries) {
            std::sort(entry.lines.begin(), entry.lines.end(),
                      [](const LineTime& a, const LineTime& b) { return a.line < b.line; });
        }
    }
}

std::vector<NameSums> sumsByNode(const StackTree& tree) {
    std::vector<NameSums> nodes(tree.nodes.size());
    for (const StackTree::Entry& entry : tree.entries) {
        NameSums& node = nodes[size_t(entry.node)];
        node.now.own += entry.now.own;
        node.now.count += entry.now.count;
        node.base.own += entry.base.own;
        node.base.count += entry.base.count;
    }
    for (size_t i = nodes.size(); i-- > 0;) {
        nodes[i].name = tree.nodes[i].name;
        nodes[i].now.total += nodes[i].now.own;
        nodes[i].base.total += nodes[i].base.own;
        if (i > 0) {
            NameSums& parent = nodes[size_t(tree.nodes[i].parent)];
            parent.now.total += nodes[i].now.total;
            parent.base.total += nodes[i].base.total;
        }
    }
    return nodes;
}

std::vector<NameSums> sumsByName(const StackTree& tree) {
    // A walk with the names that are open above.
    const std::vector<NameSums> nodes = sumsByNode(tree);
    std::vector<std::vector<int>> below(nodes.size());
    for (size_t i = nodes.size(); i-- > 1;) {
        below[size_t(tree.nodes[i].parent)].push_back(int(i));
    }
    std::unordered_map<int, NameSums> byName;
    std::unordered_map<int, int> open;
    std::vector<std::pair<int, bool>> steps = {{0, false}}; // node, and whether it is left
    while (!steps.empty()) {
        const auto [node, isLeft] = steps.back();
        steps.pop_back();
        const int name = tree.nodes[size_t(node)].name;
        if (isLeft) {
            open[name]--;
            continue;
        }
        if (node > 0) {
            const NameSums& at = nodes[size_t(node)];
            NameSums& sums = byName[name];
            sums.name = name;
            sums.now.own += at.now.own;
            sums.now.count += at.now.count;
            sums.base.own += at.base.own;
            sums.base.count += at.base.count;
            if (open[name]++ == 0) {
                sums.now.total += at.now.total;
                sums.base.total += at.base.total;
            }
            steps.emplace_back(node, true);
        }
        for (int child : below[size_t(node)]) {
            steps.emplace_back(child, false);
        }
    }
    std::vector<NameSums> sums;
    for (const auto& [name, sum] : byName) {
        sums.push_back(sum);
    }
    return sums;
}

void addAll(Picture& picture, DB& db, Side side, bool mergeNames, const Selection& selection,
            std::vector<std::string>* unmatched) {
    for (Shown what : {Shown::Cpu, Shown::Allocations, Shown::Monitors, Shown::Exceptions}) {
        const EventData data = readEvents(db, what, mergeNames, selection);
        if (what == Shown::Cpu && unmatched) {
            *unmatched = data.unmatched;
        }
        picture.add(data, side);
    }
}

} // namespace vdk
