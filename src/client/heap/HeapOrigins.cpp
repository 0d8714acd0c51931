// Where the objects of a snapshot come from and when: reports by generation and by allocation site,
// and what holds the objects that were made since a mark.
#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/profile/GeneratedNames.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace vdk {

void requireHeapOrigins(const HeapModel& model) {
    if (model.format == HeapModel::Format::Snapshot && !model.generations.empty()) {
        return;
    }
    throw ClientError(ExitCode::BadInput, "heap.origins",
                      model.file->path() + " does not tell when and where its objects were made",
                      "the JVM's own dumps do not: `vdk heap capture TARGET --sites --out FILE` "
                      "writes a snapshot that does");
}

const HeapSiteFrame* heapSiteOf(const HeapModel& model, int row) {
    const HeapSiteFrame* site = model.siteFrame(model.storage->getAllocatorFrame(row));
    while (site && site->hidden) {
        site = model.siteFrame(site->parent);
    }
    return site;
}

namespace {

constexpr size_t SitesShown = 30;
constexpr size_t HoldersShown = 10;
constexpr size_t PathsShown = 3;
constexpr size_t CallersShown = 3;
constexpr size_t LongestStack = 1000;
const char NotRecorded[] = "<not recorded>";

struct OriginSum {
    int64_t count = 0;
    int64_t shallow = 0;

    void add(int64_t size) {
        count++;
        shallow += size;
    }
};

template <typename Key>
std::vector<std::pair<Key, OriginSum>> byBytes(const std::map<Key, OriginSum>& sums) {
    std::vector<std::pair<Key, OriginSum>> rows(sums.begin(), sums.end());
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second.shallow > b.second.shallow;
    });
    return rows;
}

std::string objectsText(const OriginSum& sum) {
    return formatCount(sum.count) + (sum.count == 1 ? " object, " : " objects, ") +
           formatBytes(sum.shallow);
}

void writeSum(JsonWriter& json, const OriginSum& sum) {
    json.field("count", sum.count).field("shallow", sum.shallow);
}

// The generation that a number or a name stands for; of several with one name the last.
const HeapGeneration& generationOf(const HeapModel& model, const std::string& text) {
    const auto number = parseNumber(text, 0, INT32_MAX);
    const auto& all = model.generations;
    const auto found = std::find_if(all.rbegin(), all.rend(), [&](const HeapGeneration& each) {
        return number ? each.number == int(*number) : each.name == text;
    });
    if (found == all.rend()) {
        throw ClientError(ExitCode::Refused, "heap.generation",
                          "the heap has no generation " + printable(text, 200),
                          "`vdk heap FILE generations` lists them, by number and name");
    }
    return *found;
}

std::vector<std::string> stackOf(const HeapModel& model, const HeapSiteFrame* site) {
    std::vector<std::string> stack;
    for (; site && stack.size() < LongestStack; site = model.siteFrame(site->parent)) {
        if (!site->hidden) {
            stack.push_back(cleanFrameName(model.frameTexts[site->text]));
        }
    }
    return stack;
}

enum class Grouping { Method, Path, Class };

Grouping groupingOf(const Arguments& arguments) {
    const std::string by = arguments.text("--by", "method");
    if (by != "method" && by != "path" && by != "class") {
        throw ClientError(ExitCode::Usage, "usage", "sites goes by method, path or class");
    }
    return by == "path" ? Grouping::Path : by == "class" ? Grouping::Class : Grouping::Method;
}

// Class and place. The place is a frame's number, or that of its text; 0 for one not recorded.
struct SiteKey {
    std::string className;
    int64_t place;
    bool operator<(const SiteKey& other) const {
        return std::tie(place, className) < std::tie(other.place, other.className);
    }
};

SiteKey keyOf(const HeapModel& model, int row, Grouping grouping) {
    const HeapSiteFrame* site = grouping == Grouping::Class ? nullptr : heapSiteOf(model, row);
    const int64_t place = !site                          ? 0
                          : grouping == Grouping::Method ? int64_t(site->text) + 1
                                                         : site->frame;
    return {model.classNameOf(row), place};
}

// The method, or the path from it outwards.
std::vector<std::string> placeOf(const HeapModel& model, const SiteKey& key, Grouping grouping) {
    if (key.place == 0) {
        return {NotRecorded};
    }
    return grouping == Grouping::Method
               ? std::vector<std::string>{cleanFrameName(model.frameTexts[size_t(key.place - 1)])}
               : stackOf(model, model.siteFrame(int(key.place)));
}

// The objects that a report on sites is about: those that roots reach, of some classes on demand,
// born behind a mark on demand.
class ChosenObjects {
public:
    ChosenObjects(const HeapSession& session, const std::string& pattern, int since)
        : session(session), model(session.model()), since(since) {
        for (int type : session.classesByPattern(pattern.empty() ? "*" : pattern)) {
            isWanted.resize(std::max(isWanted.size(), size_t(type) + 1));
            isWanted[size_t(type)] = true;
        }
        if (isWanted.empty()) {
            throw ClientError(ExitCode::Refused, "heap.noclass",
                              "the heap has no class " + printable(pattern, 200),
                              HeapClassNameHint);
        }
    }

    bool isNew(int row) const { return session.storage().getGeneration(row) > since; }

    template <typename Visitor>
    void each(Visitor visitor) const {
        for (int row = 1; row <= model.lastRowWithId; row++) {
            const int type = model.classOf(row);
            if (session.sizeOf(row) >= 0 && session.isReached(row) && isNew(row) && type >= 0 &&
                size_t(type) < isWanted.size() && isWanted[size_t(type)]) {
                visitor(row, session.sizeOf(row));
            }
        }
    }

private:
    const HeapSession& session;
    const HeapModel& model;
    const int since;
    std::vector<bool> isWanted; // by class
};

// Who keeps a new object alive: the first older object on its way up the dominators, and the new
// one right below it. 0 where no single older object does.
class Holders {
public:
    struct Link {
        int holder = -1; // not known yet
        int held = 0;
    };

    Holders(const HeapSession& session, const ChosenObjects& objects)
        : dominators(session), objects(objects), links(size_t(session.model().rowCount()) + 1) {}

    const Link& of(int row) {
        way.clear();
        dominators.restart();
        int at = row;
        while (links[size_t(at)].holder < 0) {
            way.push_back(at);
            const int above = dominators.above(at);
            if (above == 0 || !objects.isNew(above)) {
                links[size_t(at)] = {above, at};
            } else {
                at = above;
            }
        }
        for (int passed : way) {
            links[size_t(passed)] = links[size_t(at)];
        }
        return links[size_t(row)];
    }

private:
    HeapSession::WayToRoots dominators;
    const ChosenObjects& objects;
    std::vector<Link> links;
    std::vector<int> way;
};

// What holds new objects in one way: by a field of a class.
struct HeldGroup {
    OriginSum sum;
    std::map<int, OriginSum> byHolder; // rows
};

struct HeldKey {
    std::string className, field;
    bool operator<(const HeldKey& other) const {
        return std::tie(className, field) < std::tie(other.className, other.field);
    }
};

HeldKey heldKey(const HeapModel& model, const Holders::Link& link) {
    if (link.holder == 0) {
        return {"", ""};
    }
    std::string field = nameOfReference(model, link.holder, link.held);
    if (!field.empty() && field[0] == '[') {
        field = "[]"; // all elements alike
    }
    return {model.isClass(link.holder)
                ? "class " + model.classes[size_t(model.classByRow(link.holder))].name
                : model.classNameOf(link.holder),
            field == "?" ? "" : field};
}

std::vector<std::pair<HeldKey, HeldGroup>> heldGroups(const HeapSession& session,
                                                      const ChosenObjects& objects) {
    std::map<HeldKey, HeldGroup> groups;
    Holders holders(session, objects);
    std::map<std::pair<int, int>, HeldKey> keys; // of links
    objects.each([&](int row, int64_t size) {
        const Holders::Link& link = holders.of(row);
        const std::pair<int, int> pair = {link.holder, link.holder == 0 ? 0 : link.held};
        auto [known, isNew] = keys.try_emplace(pair);
        if (isNew) {
            known->second = heldKey(session.model(), link);
        }
        HeldGroup& group = groups[known->second];
        group.sum.add(size);
        group.byHolder[link.holder == 0 ? link.held : link.holder].add(size);
    });
    std::vector<std::pair<HeldKey, HeldGroup>> rows(groups.begin(), groups.end());
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second.sum.shallow > b.second.sum.shallow;
    });
    return rows;
}

// Through weak references only where nothing else leads there.
std::vector<int> pathTo(const HeapSession& session, int row) {
    const std::vector<int> path = shortestPath(session, row, false);
    return path.empty() ? shortestPath(session, row, true) : path;
}

int biggestOf(const HeldGroup& group) {
    return byBytes(group.byHolder).front().first;
}

std::string heldText(const HeldKey& key) {
    if (key.className.empty()) {
        return "(roots, or several older objects together)";
    }
    const bool isElement = !key.field.empty() && key.field[0] == '[';
    return printable(isElement           ? "elements of " + key.className
                     : key.field.empty() ? key.className
                                         : key.className + "." + key.field);
}

void printHolders(Console& console, const HeapSession& session, const ChosenObjects& objects,
                  size_t top) {
    const auto groups = heldGroups(session, objects);
    console.out << "\nHeld by older objects\n";
    HeapTable table({{"objects", "", HeapTable::Kind::Count},
                     {"bytes", "", HeapTable::Kind::Bytes},
                     {"holders", "", HeapTable::Kind::Count},
                     {"held by", ""}});
    for (size_t i = 0; i < std::min(groups.size(), top); i++) {
        const auto& [key, group] = groups[i];
        table.add(
            {group.sum.count, group.sum.shallow,
             key.className.empty() ? HeapTable::Cell() : HeapTable::Cell(group.byHolder.size()),
             heldText(key)});
    }
    table.print(console);
    for (size_t i = 0; i < std::min({groups.size(), top, PathsShown}); i++) {
        const int row = biggestOf(groups[i].second);
        const std::vector<int> path = pathTo(session, row);
        console.out << "\n"
                    << (groups[i].first.className.empty() ? "The largest such object"
                                                          : heldText(groups[i].first))
                    << " is reached by\n";
        if (!path.empty()) {
            printPath(console, session.model(), path, "  ");
        }
    }
}

void writeHolders(JsonWriter& json, const HeapSession& session, const ChosenObjects& objects,
                  size_t top) {
    const auto groups = heldGroups(session, objects);
    json.key("heldBy").beginArray();
    for (size_t i = 0; i < std::min(groups.size(), top); i++) {
        const auto& [key, group] = groups[i];
        json.beginObject().key("class");
        key.className.empty() ? json.nullValue() : json.value(key.className);
        json.key("field");
        key.field.empty() ? json.nullValue() : json.value(key.field);
        json.key("holders");
        key.className.empty() ? json.nullValue() : json.value(group.byHolder.size());
        writeSum(json, group.sum);
        const int row = biggestOf(group);
        json.key("biggest").beginObject();
        writeHeapObject(json, session, row);
        json.endObject();
        if (i < HoldersShown) {
            writePath(json, session, pathTo(session, row));
        }
        json.endObject();
    }
    json.endArray();
}

std::string callText(const std::vector<std::string>& stack) {
    std::string text = printable(stack.empty() ? "?" : stack[0]);
    for (size_t i = 1; i < std::min(stack.size(), CallersShown + 1); i++) {
        text += " < " + printable(stack[i]);
    }
    return text + (stack.size() > CallersShown + 1 ? " < ..." : "");
}

struct SiteReport {
    OriginSum all, recorded;
    std::map<SiteKey, OriginSum> sites;
};

SiteReport sitesOf(const HeapModel& model, const ChosenObjects& objects, Grouping grouping) {
    SiteReport report;
    objects.each([&](int row, int64_t size) {
        report.all.add(size);
        if (heapSiteOf(model, row)) {
            report.recorded.add(size);
        }
        report.sites[keyOf(model, row, grouping)].add(size);
    });
    return report;
}

// For people and in CSV.
HeapTable siteTable(const HeapModel& model, const SiteReport& report, Grouping grouping,
                    size_t top) {
    std::vector<HeapTable::Column> columns = {{"objects", "count", HeapTable::Kind::Count},
                                              {"bytes", "shallow", HeapTable::Kind::Bytes},
                                              {"class", "class"}};
    if (grouping != Grouping::Class) {
        columns.push_back({"allocated in", ""});
        columns.push_back({"", "method"});
    }
    if (grouping == Grouping::Path) {
        columns.push_back({"", "stack"});
    }
    HeapTable table(columns);
    const auto rows = byBytes(report.sites);
    top = std::min(rows.size(), top);
    for (size_t i = 0; i < top; i++) {
        const auto& [key, sum] = rows[i];
        HeapTable::Row row = {sum.count, sum.shallow, key.className};
        if (grouping != Grouping::Class) {
            const std::vector<std::string> place = placeOf(model, key, grouping);
            const bool isKnown = key.place != 0 && !place.empty();
            row.emplace_back(callText(place));
            row.push_back(isKnown ? HeapTable::Cell(place[0]) : HeapTable::Cell());
            if (grouping == Grouping::Path) {
                row.push_back(isKnown ? HeapTable::Cell(join(place, " < ")) : HeapTable::Cell());
            }
        }
        table.add(std::move(row));
    }
    table.setOmitted(rows.size() - top);
    return table;
}

void writeSites(JsonWriter& json, const HeapModel& model, const SiteReport& report,
                Grouping grouping, size_t top) {
    const auto rows = byBytes(report.sites);
    json.key("sites").beginArray();
    for (size_t i = 0; i < std::min(rows.size(), top); i++) {
        const SiteKey& key = rows[i].first;
        json.beginObject().field("class", key.className);
        writeSum(json, rows[i].second);
        if (grouping != Grouping::Class) {
            const std::vector<std::string> place = placeOf(model, key, grouping);
            json.key("method");
            key.place == 0 || place.empty() ? json.nullValue() : json.value(place[0]);
            if (grouping == Grouping::Path) {
                json.key("stack").beginArray();
                for (size_t f = 0; key.place != 0 && f < place.size(); f++) {
                    json.value(place[f]);
                }
                json.endArray();
            }
        }
        json.endObject();
    }
    json.endArray();
}

} // namespace

int reportHeapGenerations(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    requireHeapOrigins(model);
    std::map<int, OriginSum> sums;
    OriginSum unreachable;
    for (int row = 1; row <= model.lastRowWithId; row++) {
        const int64_t size = session.sizeOf(row);
        if (size >= 0) {
            (session.isReached(row) ? sums[session.storage().getGeneration(row)] : unreachable)
                .add(size);
        }
    }
    HeapTable table({{"generation", "generation", HeapTable::Kind::Value},
                     {"", "name"},
                     {"at", ""},
                     {"", "uptimeMs"},
                     {"objects", "count", HeapTable::Kind::Count},
                     {"bytes", "shallow", HeapTable::Kind::Bytes},
                     {"name", ""}});
    for (const HeapGeneration& generation : model.generations) {
        const OriginSum& sum = sums[generation.number];
        table.add({generation.number, generation.name, formatNs(generation.uptimeMs * 1000000),
                   generation.uptimeMs, sum.count, sum.shallow, generation.name});
    }
    HeapDocument document(console, arguments, session, "generations");
    document.field("unreachable", unreachable.count);
    document.field("unreachableBytes", unreachable.shallow);
    document.table("generations", table);
    document.end();
    if (document.isText()) {
        console.note("an object belongs to the first mark behind its birth; " +
                     objectsText(unreachable) + ", that no root reaches are left out");
    }
    return 0;
}

int reportHeapSites(Console& console, const Arguments& arguments) {
    const auto& patterns = heapArguments(arguments, 0, 1, "at most a pattern of class names");
    const std::string since = arguments.text("--since");
    const bool heldBy = arguments.has("--held-by");
    if (heldBy && since.empty()) {
        throw ClientError(ExitCode::Usage, "usage",
                          "--held-by goes with --since: it tells which older objects hold newer "
                          "ones");
    }
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    requireHeapOrigins(model);
    const HeapGeneration* mark = since.empty() ? nullptr : &generationOf(model, since);
    const ChosenObjects objects(session, patterns.empty() ? "" : patterns[0],
                                mark ? mark->number : -1);
    const Grouping grouping = groupingOf(arguments);
    const SiteReport report = sitesOf(model, objects, grouping);
    HeapDocument document(console, arguments, session, "sites");
    const size_t top = heapTop(arguments, document.isText() ? SitesShown : report.sites.size());
    if (JsonWriter* json = document.writer()) {
        json->key("since");
        mark ? json->value(mark->number) : json->nullValue();
        writeSum(*json, report.all);
        json->field("recordedCount", report.recorded.count);
        json->field("recordedShallow", report.recorded.shallow);
        writeSites(*json, model, report, grouping, top);
        if (heldBy) {
            writeHolders(*json, session, objects, heapTop(arguments, HoldersShown));
        }
        document.end();
        return 0;
    }
    document.line(objectsText(report.all) +
                  (mark ? ", made since generation " + std::to_string(mark->number) + " (" +
                              printable(mark->name) + ") and still alive"
                        : std::string(" alive")));
    if (grouping != Grouping::Class) {
        document.line("the allocation of " + objectsText(report.recorded) + ", was recorded");
    }
    document.line("");
    document.table("sites", siteTable(model, report, grouping, top));
    if (heldBy && document.isText()) {
        printHolders(console, session, objects, heapTop(arguments, HoldersShown));
    }
    document.end();
    return 0;
}

} // namespace vdk
