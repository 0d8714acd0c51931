// What changed from one heap to the next: by class, site, loader or package, who holds what is new,
// and limits of growth for scripts. Of more than two heaps the trend.
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapFields.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/reports/GrowthLimit.h"
#include "client/heap/reports/LoaderGroups.h"
#include "client/profile/GeneratedNames.h"

#include <algorithm>
#include <map>
#include <memory>
#include <unordered_map>

namespace vdk {

namespace {

const size_t ShownRows = 50;
const size_t ShownHolders = 8;

using Sums = GrowthLimit::Sums;
// By class and what holds its objects, both as texts.
using Held = std::map<std::pair<std::string, std::string>, HeapClassSum>;

struct OneHeap {
    std::string file;
    Sums sums;
    Held held;
};

void addNamed(Sums& sums, const std::string& name, const HeapClassSum& sum) {
    if (sum.count > 0) {
        addTo(sums[name], sum);
    }
}

std::string loaderName(const HeapModel& model, const HeapFieldReader& name, int row) {
    std::string text;
    model.stringValue(name.reference(row), text, 200);
    return row == 0       ? "the JVM's own loader"
           : text.empty() ? model.classNameOf(row)
                          : model.classNameOf(row) + " \"" + text + "\"";
}

Sums sumBySite(const HeapSession& session) {
    const HeapModel& model = session.model();
    std::vector<std::string> names(1, "<not recorded>");
    std::unordered_map<int, int> groupOfFrame = {{0, 0}};
    const auto groupOf = [&](int row) {
        const HeapSiteFrame* site = heapSiteOf(model, row);
        const auto added = groupOfFrame.try_emplace(site ? site->frame : 0, int(names.size()));
        if (added.second) {
            names.push_back(cleanFrameName(model.frameTexts[site->text]));
        }
        return added.first->second;
    };
    const std::vector<HeapClassSum> byGroup =
        sumByGroup(session, model.siteFrames.size() + 1, groupOf, true);
    Sums sums;
    for (size_t i = 0; i < names.size(); i++) {
        addNamed(sums, names[i], byGroup[i]);
    }
    return sums;
}

Sums sumBy(const HeapSession& session, const std::string& by) {
    const HeapModel& model = session.model();
    Sums sums;
    if (by == "site") {
        requireHeapOrigins(model);
        return sumBySite(session);
    }
    if (by == "loader") {
        const LoaderGroups groups(model);
        const HeapFieldReader name(model, "name");
        const auto byGroup = sumByGroup(session, groups.count(), groups.functionOf(), true);
        for (size_t i = 0; i < byGroup.size(); i++) {
            addNamed(sums, loaderName(model, name, groups.rowOf(i)), byGroup[i]);
        }
    } else if (by == "package") {
        const PackageGroups groups(model);
        const auto byGroup = sumByGroup(session, groups.count(), groups.functionOf(), true);
        for (size_t i = 0; i < byGroup.size(); i++) {
            addNamed(sums, groups.nameOf(i), byGroup[i]);
        }
    } else {
        for (const HeapClassSum& sum : sumByClass(session, true)) {
            addNamed(sums, sum.name, sum);
        }
    }
    return sums;
}

// The nearest dominator of each object that is neither an array nor of the JDK's collections.
class HolderWalk {
public:
    explicit HolderWalk(const HeapSession& session)
        : model(session.model()), dominators(session),
          known(size_t(model.rowCount()) + 1, Unknown) {
        for (const HeapClass& type : model.classes) {
            isPassed.push_back(type.elementType != 0 || startsWith(type.name, "java.util."));
        }
    }

    int of(int row) {
        way.clear();
        dominators.restart();
        int at = row;
        int holder = Unknown;
        while (holder == Unknown) {
            way.push_back(at);
            const int above = dominators.above(at);
            if (above == 0 || !passes(above)) {
                holder = above;
            } else {
                at = above;
                holder = known[size_t(at)];
            }
        }
        for (int passed : way) {
            known[size_t(passed)] = holder;
        }
        return holder;
    }

private:
    static constexpr int Unknown = -1;
    bool passes(int row) const {
        const int type = model.isClass(row) ? -1 : model.classOf(row);
        return type >= 0 && isPassed[size_t(type)];
    }

    const HeapModel& model;
    HeapSession::WayToRoots dominators;
    std::vector<int> known;
    std::vector<bool> isPassed; // by class
    std::vector<int> way;
};

Held heldOf(const HeapSession& session) {
    const HeapModel& model = session.model();
    HolderWalk walk(session);
    std::unordered_map<uint64_t, HeapClassSum> byPair; // class and, as 2 n + 1, class of the holder
    for (int row = 1; row <= model.lastRowWithId; row++) {
        if (model.isClass(row) || model.classOf(row) < 0 || !session.isReached(row)) {
            continue;
        }
        const int holder = walk.of(row);
        const int asClass = holder == 0 ? -1 : model.classByRow(holder);
        const int type = holder == 0 ? -1 : asClass >= 0 ? asClass : model.classOf(holder);
        const uint64_t key = uint64_t(model.classOf(row)) << 32 |
                             (type < 0 ? 0 : uint64_t(type) * 2 + 2 + (asClass >= 0));
        HeapClassSum& sum = byPair[key];
        sum.count++;
        sum.shallow += std::max<int64_t>(session.sizeOf(row), 0);
    }
    Held held;
    for (const auto& [key, sum] : byPair) {
        const uint64_t holder = key & 0xffffffff;
        const std::string name = holder == 0 ? "(roots, or several objects)"
                                             : (holder % 2 == 1 ? "class " : "") +
                                                   model.classes[size_t(holder / 2 - 1)].name;
        addTo(held[{model.classes[size_t(key >> 32)].name, name}], sum);
    }
    return held;
}

struct Change {
    std::string name;
    std::vector<HeapClassSum> sums; // by heap
    int64_t growth(SortKey key) const {
        return sortValue(sums.back(), key) - sortValue(sums.front(), key);
    }
    bool isSame() const {
        return std::all_of(sums.begin(), sums.end(), [&](const HeapClassSum& sum) {
            return sum.count == sums[0].count && sum.shallow == sums[0].shallow &&
                   sum.retained == sums[0].retained;
        });
    }
    // Never less, and more at the end.
    bool isGrowing(SortKey key) const {
        for (size_t i = 1; i < sums.size(); i++) {
            if (sortValue(sums[i], key) < sortValue(sums[i - 1], key)) {
                return false;
            }
        }
        return growth(key) > 0;
    }
};

std::vector<Change> changesOf(const std::vector<OneHeap>& heaps, SortKey key) {
    std::map<std::string, std::vector<HeapClassSum>> byName;
    for (size_t i = 0; i < heaps.size(); i++) {
        for (const auto& [name, sum] : heaps[i].sums) {
            std::vector<HeapClassSum>& all = byName[name];
            all.resize(heaps.size());
            all[i] = sum;
        }
    }
    std::vector<Change> changes;
    for (auto& [name, sums] : byName) {
        Change change{name, std::move(sums)};
        if (!change.isSame()) {
            changes.push_back(std::move(change));
        }
    }
    std::stable_sort(changes.begin(), changes.end(), [&](const Change& a, const Change& b) {
        return key != SortKey::Name && std::abs(a.growth(key)) > std::abs(b.growth(key));
    });
    return changes;
}

std::string signedText(int64_t value, std::string (*format)(int64_t)) {
    return (value > 0 ? "+" : "") + format(value);
}

HeapTable changeTable(const std::vector<Change>& changes, const std::string& by) {
    const auto right = HeapTable::Kind::Count;
    HeapTable table({{"objects", "", right},
                     {"shallow", "", right},
                     {"retained", "", right},
                     {"", "countBefore"},
                     {"", "count"},
                     {"", "shallowBefore"},
                     {"", "shallow"},
                     {"", "retainedBefore"},
                     {"", "retained"},
                     {by, by}});
    for (const Change& change : changes) {
        const HeapClassSum& a = change.sums.front();
        const HeapClassSum& b = change.sums.back();
        table.add({signedText(b.count - a.count, formatCount),
                   signedText(b.shallow - a.shallow, formatBytes),
                   signedText(b.retained - a.retained, formatBytes), a.count, b.count, a.shallow,
                   b.shallow, a.retained, b.retained, change.name});
    }
    return table;
}

HeapTable trendTable(const std::vector<Change>& changes, const std::string& by, SortKey key,
                     size_t heaps) {
    const auto kind = key == SortKey::Count ? HeapTable::Kind::Count : HeapTable::Kind::Bytes;
    std::vector<HeapTable::Column> columns;
    for (size_t i = 1; i <= heaps; i++) {
        columns.push_back({"file " + std::to_string(i), "file" + std::to_string(i), kind});
    }
    columns.push_back({"growth", "growth", kind});
    columns.push_back({"trend", "trend"});
    columns.push_back({by, by});
    HeapTable table(columns);
    for (const Change& change : changes) {
        HeapTable::Row row;
        for (const HeapClassSum& sum : change.sums) {
            row.emplace_back(sortValue(sum, key));
        }
        row.emplace_back(change.growth(key));
        row.emplace_back(change.isGrowing(key) ? "grows" : "");
        row.emplace_back(change.name);
        table.add(std::move(row));
    }
    return table;
}

// Of the classes that grew, who holds more of them than before.
HeapTable holderTable(const OneHeap& first, const OneHeap& last) {
    struct Growth {
        std::string type, holder;
        int64_t before, count, bytes;
    };
    std::vector<Growth> rows;
    for (const auto& [key, sum] : last.held) {
        const auto found = first.held.find(key);
        const HeapClassSum before = found == first.held.end() ? HeapClassSum() : found->second;
        if (sum.count > before.count) {
            rows.push_back(
                {key.first, key.second, before.count, sum.count, sum.shallow - before.shallow});
        }
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const Growth& a, const Growth& b) { return a.bytes > b.bytes; });
    rows.resize(std::min(rows.size(), ShownHolders));
    HeapTable table({{"new", "", HeapTable::Kind::Count},
                     {"bytes", "bytes", HeapTable::Kind::Bytes},
                     {"", "countBefore"},
                     {"", "count"},
                     {"class", "class"},
                     {"held by", "holder"}});
    for (const Growth& row : rows) {
        table.add({row.count - row.before, row.bytes, row.before, row.count, row.type, row.holder});
    }
    return table;
}

class DiffReport {
public:
    DiffReport(Console& console, const Arguments& arguments)
        : console(console), arguments(arguments), by(arguments.text("--by", "class")),
          key(sortKey(arguments, true)) {
        static const std::vector<std::string> known = {"class", "site", "loader", "package"};
        if (std::find(known.begin(), known.end(), by) == known.end()) {
            throw ClientError(ExitCode::Usage, "usage",
                              "diff goes by class, site, loader or package");
        }
        for (const std::string& text : arguments.all("--max-growth")) {
            limits.emplace_back(text);
        }
        if (!arguments.text("--index").empty()) {
            throw ClientError(ExitCode::Usage, "usage",
                              "an index belongs to one file, diff has several");
        }
    }

    int run(const std::vector<std::string>& others) {
        std::vector<std::string> files = {arguments.text("FILE")};
        files.insert(files.end(), others.begin(), others.end());
        std::vector<std::string> remarks;
        std::unique_ptr<HeapSession> session;
        for (const std::string& file : files) {
            session = nullptr; // one heap in memory at a time
            HeapOptions options = heapOptions(arguments);
            options.file = file;
            session = std::make_unique<HeapSession>(console, options, true);
            heaps.push_back({file, sumBy(*session, by), by == "class" ? heldOf(*session) : Held()});
            for (const std::string& remark : session->model().remarks) {
                if (file != files.back()) {
                    remarks.push_back(file + ": " + remark);
                }
            }
        }
        return write(*session, remarks);
    }

private:
    int write(const HeapSession& session, const std::vector<std::string>& remarks) {
        std::vector<Change> changes = changesOf(heaps, key);
        const size_t all = changes.size();
        changes.resize(std::min(all, heapTop(arguments, console.json ? all : ShownRows)));
        HeapDocument document(console, arguments, session, "diff", remarks);
        document.field("before", heaps.front().file);
        const bool isTrend = heaps.size() > 2;
        HeapTable table =
            isTrend
                ? trendTable(changes, by, key == SortKey::Name ? SortKey::Count : key, heaps.size())
                : changeTable(changes, by);
        table.setOmitted(all - changes.size());
        if (all == 0) {
            console.note("no " + by + " differs");
        }
        for (size_t i = 0; i < heaps.size() && isTrend; i++) {
            document.line("file " + std::to_string(i + 1) + ": " + heaps[i].file);
        }
        document.table(by == "class" ? "classes" : "groups", table);
        if (by == "class") {
            document.table("holders", holderTable(heaps.front(), heaps.back()), "New, and held by");
        }
        const bool passed = writeLimits(document);
        document.end();
        return passed ? 0 : int(ExitCode::Refused);
    }

    bool writeLimits(HeapDocument& document) {
        std::vector<std::string> reasons;
        for (const GrowthLimit& limit : limits) {
            const GrowthLimit::Verdict verdict = limit.judge(heaps.front().sums, heaps.back().sums);
            if (!verdict.matches) {
                console.warn("--max-growth " + limit.text() + ": neither heap has such a " + by);
            } else if (!verdict.reason.empty()) {
                reasons.push_back(verdict.reason);
            }
        }
        if (JsonWriter* json = document.writer()) {
            json->field("passed", reasons.empty()).key("reasons").beginArray();
            for (const std::string& reason : reasons) {
                json->value(reason);
            }
            json->endArray();
        } else {
            for (const std::string& reason : reasons) {
                console.err << "vdk: " << reason << "\n";
            }
        }
        return reasons.empty();
    }

    Console& console;
    const Arguments& arguments;
    const std::string by;
    const SortKey key;
    std::vector<GrowthLimit> limits;
    std::vector<OneHeap> heaps;
};

} // namespace

int reportHeapDiff(Console& console, const Arguments& arguments) {
    const auto& others = heapArguments(arguments, 1, SIZE_MAX, "the files to compare with");
    return DiffReport(console, arguments).run(others);
}

} // namespace vdk
