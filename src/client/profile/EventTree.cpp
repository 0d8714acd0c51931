#include "client/profile/EventTree.h"

#include "client/console/Text.h"
#include "client/profile/TreeWalk.h"

namespace vdk {

static TreeLimits limitsOf(const CallTree& tree, const ReportChoices& choices) {
    TreeLimits limits;
    limits.least = std::max<int64_t>(int64_t(double(tree.total()) * choices.minPercent / 100), 1);
    limits.maxDepth = choices.depth;
    return limits;
}

int shownFrame(const Profile& profile, int frame) {
    while (frame > 0 && size_t(frame) < profile.frames.size()) {
        const Profile::Frame& at = profile.frames[size_t(frame)];
        if (!profile.methods[size_t(at.method)].isHidden()) {
            return frame;
        }
        frame = at.parent;
    }
    return 0;
}

std::string frameName(const Profile& profile, int frame, const ReportChoices& choices) {
    const int shown = shownFrame(profile, frame);
    return shown == 0
               ? "-"
               : methodName(profile, profile.frames[size_t(shown)].method, choices.signatures);
}

void printEventTree(Console& console, const Profile& profile, const CallTree& tree,
                    const ReportChoices& choices, const TreeUnit& unit) {
    walkTree(
        tree, limitsOf(tree, choices),
        [&](const CallTree::Node& node, int depth) {
            std::string percent = formatPercent(percentOf(node.total, tree.total()));
            console.out << std::string(6 - std::min<size_t>(6, percent.size()), ' ') << percent
                        << "%  " << std::string(size_t(depth) * 2, ' ')
                        << printable(methodName(profile, node.method, choices.signatures)) << "  "
                        << unit.format(node.total);
            if (unit.hasCounts && node.count > 0) {
                console.out << ", " << node.count << " times";
            }
            console.out << "\n";
        },
        [](const CallTree::Node&, int) {});
}

void writeEventTree(JsonWriter& json, const Profile& profile, const CallTree& tree,
                    const ReportChoices& choices, const TreeUnit& unit) {
    walkTree(
        tree, limitsOf(tree, choices),
        [&](const CallTree::Node& node, int) {
            json.beginObject().field("name", methodName(profile, node.method, choices.signatures));
            json.field(unit.field, node.total);
            if (unit.hasCounts) {
                json.field("count", node.count);
            }
            json.key("children").beginArray();
        },
        [&](const CallTree::Node&, int) { json.endArray().endObject(); });
}

static std::string stemOf(const std::string& name) {
    return name.substr(0, name.find_last_not_of("0123456789") + 1);
}

PoolNames::PoolNames(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        std::string& first = firstOfStem.try_emplace(stemOf(name), name).first->second;
        if (first != name) {
            first.clear();
        }
    }
}

std::string PoolNames::operator()(const std::string& name) const {
    const std::string stem = stemOf(name);
    auto found = firstOfStem.find(stem);
    const bool isPool = found != firstOfStem.end() && found->second.empty() && !stem.empty();
    return isPool ? stem + "*" : name;
}

void noteRest(Console& console, size_t all, size_t shown) {
    if (all > shown) {
        console.note("... and " + std::to_string(all - shown) + " more; --top shows them");
    }
}

} // namespace vdk
