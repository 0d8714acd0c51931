#include "client/diff/ProfileDiff.h"

#include "client/console/Errors.h"
#include "client/console/Text.h"
#include "client/profile/Report.h"
#include "client/profile/Selection.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace vdk {

namespace {

constexpr size_t FramesOfPath = 8; // that are told, the innermost ones

std::string pathOf(const Picture& picture, const StackTree& tree, int node) {
    std::string path;
    size_t count = 0;
    for (int at = node; at > 0; at = tree.nodes[size_t(at)].parent) {
        if (count++ == FramesOfPath) {
            return "... > " + path;
        }
        const std::string name = picture.names[size_t(tree.nodes[size_t(at)].name)].full();
        path = path.empty() ? name : name + " > " + path;
    }
    return path;
}

std::vector<DiffRow> pathsOf(const Picture& picture, const StackTree& tree, double factor) {
    const std::vector<NameSums> nodes = sumsByNode(tree);
    std::vector<size_t> order;
    for (size_t i = 1; i < nodes.size(); i++) {
        if (nodes[i].now.own != 0 || nodes[i].base.own != 0) {
            order.push_back(i);
        }
    }
    const auto change = [&](size_t i) {
        return std::abs(double(nodes[i].now.own) - double(nodes[i].base.own) * factor);
    };
    constexpr size_t Most = 1000;
    const size_t count = std::min(order.size(), Most);
    std::partial_sort(order.begin(), order.begin() + std::ptrdiff_t(count), order.end(),
                      [&](size_t a, size_t b) { return change(a) > change(b); });
    std::vector<DiffRow> rows;
    for (size_t i = 0; i < count; i++) {
        rows.push_back(
            {pathOf(picture, tree, int(order[i])), nodes[order[i]].base, nodes[order[i]].now});
    }
    return rows;
}

ProfileMethod methodOf(const std::string& name) {
    const size_t dot = name.rfind('.');
    ProfileMethod method;
    method.className = dot == std::string::npos ? "" : name.substr(0, dot);
    method.name = dot == std::string::npos ? name : name.substr(dot + 1);
    return method;
}

class LimitCheck {
public:
    LimitCheck(const DiffSection& section, double leastPercent)
        : section(section), leastPercent(leastPercent) {}

    std::vector<std::string> check(const DiffLimit& limit) {
        std::vector<std::string> reasons;
        if (limit.pattern == "total") {
            checkGrowth(limit, "the total", double(section.base), double(section.now), reasons);
            return reasons;
        }
        const MethodPattern pattern(limit.pattern);
        for (const DiffRow& row : section.rows) {
            if (!pattern.matches(methodOf(row.name))) {
                continue;
            }
            if (limit.isOfGrowth) {
                checkGrowth(limit, row.name, double(row.base.total), double(row.now.total),
                            reasons);
                continue;
            }
            const double share = percentOf(row.now.own, section.now);
            if (share > limit.percent) {
                reasons.push_back(section.title + ": " + printable(row.name) + " itself has " +
                                  formatPercent(share) + " % of all, more than " + most(limit));
            }
        }
        return reasons;
    }

private:
    static std::string most(const DiffLimit& limit) { return formatPercent(limit.percent) + " %"; }

    void checkGrowth(const DiffLimit& limit, const std::string& name, double recorded, double now,
                     std::vector<std::string>& reasons) const {
        const double base = recorded * section.factor;
        const bool isSmall = now * 100 < leastPercent * double(section.now) &&
                             recorded * 100 < leastPercent * double(section.base);
        if (isSmall || now <= base * (1 + limit.percent / 100)) {
            return;
        }
        reasons.push_back(section.title + ": " + printable(name) +
                          (base > 0 ? " grew by " + formatPercent((now - base) * 100 / base) +
                                          " %, from " + amountOf(base, section.unit) + " to "
                                    : " is new with ") +
                          amountOf(now, section.unit) + "; " + most(limit) + " are allowed");
    }

    const DiffSection& section;
    const double leastPercent;
};

} // namespace

std::string amountOf(double value, const std::string& unit) {
    const int64_t whole = std::llround(std::abs(value));
    const std::string text = unit == "ns"      ? formatNs(whole)
                             : unit == "bytes" ? formatBytes(whole)
                                               : formatCount(whole);
    return (value < 0 && whole > 0 ? "-" : "") + text;
}

std::string growthOf(double base, double now) {
    if (base <= 0) {
        return now > 0 ? "new" : "-";
    }
    if (now <= 0) {
        return "gone";
    }
    const double percent = (now - base) * 100 / base;
    return (percent >= 0 ? "+" : "") + formatPercent(percent) + "%";
}

double factorFor(Per per, const Extent& base, const Extent& now, const DiffSection& section) {
    double from = 1, to = 1;
    const char* what = "";
    switch (per) {
    case Per::Nothing:
        return 1;
    case Per::Second:
        from = base.seconds, to = now.seconds;
        what = "how long was recorded: snapshots of `vdk record` tell";
        break;
    case Per::Call:
        from = base.calls, to = now.calls;
        what = "how many calls there were: tracing counts them";
        break;
    case Per::Request:
        from = base.requests, to = now.requests;
        what = "how many requests there were: the probe Servlets counts them";
        break;
    case Per::Share:
        return section.base > 0 ? double(section.now) / double(section.base) : 1;
    }
    if (from <= 0 || to <= 0) {
        throw ClientError(
            ExitCode::Usage, "diff.per", std::string("it is not known of both sides ") + what,
            "--per share compares shares of all, --per nothing the values as they are");
    }
    return to / from;
}

std::vector<DiffSection> diffSections(const Picture& picture) {
    std::vector<DiffSection> sections;
    for (const StackTree& tree : picture.trees) {
        DiffSection section;
        section.id = tree.id;
        section.title = tree.title;
        section.unit = tree.unit;
        section.countTitle = tree.countTitle;
        section.factor = tree.baseFactor;
        section.base = tree.total(Side::Base).own;
        section.now = tree.total(Side::Now).own;
        for (const NameSums& sums : sumsByName(tree)) {
            section.rows.push_back({picture.names[size_t(sums.name)].full(), sums.base, sums.now});
        }
        section.paths = pathsOf(picture, tree, tree.baseFactor);
        sections.push_back(std::move(section));
    }
    return sections;
}

void sortByChange(DiffSection& section) {
    std::sort(section.rows.begin(), section.rows.end(), [&](const DiffRow& a, const DiffRow& b) {
        const double first = std::abs(section.changeOfOwn(a)),
                     second = std::abs(section.changeOfOwn(b));
        return first != second ? first > second : a.name < b.name;
    });
}

DiffLimit diffLimit(const std::string& text, bool isOfGrowth) {
    const size_t colon = text.rfind(':');
    char* end = nullptr;
    const std::string number = colon == std::string::npos ? "" : text.substr(colon + 1);
    const double percent = strtod(number.c_str(), &end);
    const bool isWhole = !number.empty() && (std::string(end) == "%" || *end == 0);
    if (colon == 0 || !isWhole || !(percent >= 0)) {
        throw ClientError(ExitCode::Usage, "usage", "'" + printable(text) + "' is no limit",
                          "a pattern and a percentage: 'com.shop.*:10%', or total:5%");
    }
    return {text.substr(0, colon), percent, isOfGrowth};
}

std::vector<std::string> brokenLimits(const std::vector<DiffSection>& sections,
                                      const std::vector<DiffLimit>& limits, double leastPercent) {
    std::vector<std::string> reasons;
    for (const DiffSection& section : sections) {
        LimitCheck check(section, leastPercent);
        for (const DiffLimit& limit : limits) {
            for (std::string& reason : check.check(limit)) {
                reasons.push_back(std::move(reason));
            }
        }
    }
    return reasons;
}

} // namespace vdk
