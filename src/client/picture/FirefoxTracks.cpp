#include "client/picture/FirefoxTracks.h"

#include "client/console/Text.h"
#include "client/events/ProbeTables.h"
#include "client/profile/EventTree.h"

#include <algorithm>
#include <functional>
#include <map>

namespace vdk {

namespace {

constexpr size_t LongestMarkerText = 300;
constexpr char EventsProcess[] = "events";

// Sizes in JSON, measured.
constexpr size_t BytesOfTrack = 1000;
constexpr size_t BytesOfStack = 15;
constexpr size_t BytesOfSample = 26;
constexpr size_t BytesOfFunction = 120; // beside its name
constexpr size_t BytesOfMarker = 72;    // beside its text

// Call paths with less than one of so many parts of all go to their callers. The first keeps all.
constexpr int64_t FirstParts = 1 << 20;
constexpr int64_t LeastParts = 1 << 6;

std::vector<std::string> namesOf(const Picture& picture) {
    std::vector<std::string> names;
    for (const Picture::Thread& thread : picture.threads) {
        names.push_back(thread.name);
    }
    return names;
}

// By node, the nearest one that has its part: the node itself, or a caller.
std::vector<int> nodesWithPart(const StackTree& tree, int64_t parts) {
    std::vector<int> kept(tree.nodes.size());
    const std::vector<NameSums> sums = sumsByNode(tree);
    for (size_t i = 0; i < kept.size(); i++) {
        const bool isKept = parts == 0 || i == 0 || sums[i].now.total >= sums[0].now.total / parts;
        // An outermost frame stays, or nobody would have its time.
        kept[i] = isKept || tree.nodes[i].parent == 0 ? int(i) : kept[size_t(tree.nodes[i].parent)];
    }
    return kept;
}

// What the probe itself has recorded.
std::string textOf(const ProbeTables& tables, const ProbeTable& table, const ProbeRow& row) {
    std::string text;
    for (size_t i = 0; i < table.columns.size() && text.size() < LongestMarkerText; i++) {
        if (!table.columns[i].isFilled) {
            text += (text.empty() ? "" : ", ") + table.columns[i].name + ": " +
                    tables.text(table, row, int(i));
        }
    }
    return printable(text, LongestMarkerText);
}

struct RowToTell {
    const ProbeTable* table;
    const ProbeRow* row;
    int64_t ns; // open rows count as the longest
};

} // namespace

FirefoxTables::FirefoxTables(const Picture& wholePicture, const FirefoxTrack& track)
    : picture(wholePicture) {
    for (const auto& [node, own] : track.nodes) {
        samples.push_back(stackOf(*track.tree, node));
    }
}

int FirefoxTables::text(const std::string& content) {
    auto [entry, added] = stringIndex.try_emplace(content, int(strings.size()));
    if (added) {
        strings.push_back(content);
    }
    return entry->second;
}

size_t FirefoxTables::bytes() const {
    size_t sum = BytesOfTrack + samples.size() * BytesOfSample + prefixes.size() * BytesOfStack +
                 funcs.size() * BytesOfFunction;
    for (const std::string& known : strings) {
        sum += known.size();
    }
    return sum;
}

int FirefoxTables::stackOf(const StackTree& tree, int node) {
    path.clear();
    auto known = stacks.end();
    for (; node > 0 && (known = stacks.find(node)) == stacks.end();
         node = tree.nodes[size_t(node)].parent) {
        path.push_back(node);
    }
    int stack = node > 0 ? known->second : -1;
    for (auto it = path.rbegin(); it != path.rend(); ++it) {
        prefixes.push_back(stack);
        frames.push_back(funcOf(tree.nodes[size_t(*it)].name));
        stack = int(prefixes.size()) - 1;
        stacks[*it] = stack;
    }
    return stack;
}

int FirefoxTables::funcOf(int name) {
    auto [entry, added] = funcIndex.try_emplace(name, int(funcs.size()));
    if (added) {
        funcs.push_back(text(picture.names[size_t(name)].full()));
    }
    return entry->second;
}

FirefoxTracks::FirefoxTracks(const Picture& wholePicture, DB& db, size_t mostBytes)
    : picture(wholePicture) {
    shrinkStacks(mostBytes);
    addMarkers(db, mostBytes);
}

void FirefoxTracks::shrinkStacks(size_t mostBytes) {
    addStacks(false, 0);
    if (bytesOfStacks() <= mostBytes) {
        return;
    }
    threadsRemark = "those whose names differ in the number at the end only are one, with * for it";
    addStacks(true, 0);
    for (int64_t parts = FirstParts; bytesOfStacks() > mostBytes && parts >= LeastParts;
         parts /= 4) {
        stacksRemark = "call paths with less than one of " + formatCount(parts) +
                       " parts of a process's sum are counted to their callers";
        addStacks(true, parts);
    }
}

size_t FirefoxTracks::bytesOfStacks() const {
    size_t sum = 0;
    for (const FirefoxTrack& track : tracks) {
        sum += FirefoxTables(picture, track).bytes();
    }
    return sum;
}

std::string FirefoxTracks::keyOf(int trn, const std::string& name) const {
    return isPooled ? name : std::to_string(trn);
}

void FirefoxTracks::addStacks(bool pooled, int64_t parts) {
    isPooled = pooled;
    tracks.clear();
    trackOfKey.clear();
    const PoolNames pools(namesOf(picture));
    for (const StackTree& tree : picture.trees) {
        const std::vector<int> kept = nodesWithPart(tree, parts);
        std::vector<std::string> order; // of the threads, as they were recorded
        std::unordered_map<std::string, std::map<int, int64_t>> ownOf;
        std::unordered_map<std::string, const Picture::Thread*> firstOf;
        std::vector<std::vector<const StackTree::Entry*>> byThread(picture.threads.size());
        for (const StackTree::Entry& entry : tree.entries) {
            if (entry.now.own > 0) {
                byThread[size_t(entry.thread)].push_back(&entry);
            }
        }
        for (size_t i = 0; i < byThread.size(); i++) {
            if (byThread[i].empty()) {
                continue;
            }
            const Picture::Thread& thread = picture.threads[i];
            const std::string key = keyOf(thread.trn, isPooled ? pools(thread.name) : thread.name);
            if (firstOf.try_emplace(key, &thread).second) {
                order.push_back(key);
            }
            for (const StackTree::Entry* entry : byThread[i]) {
                ownOf[key][kept[size_t(entry->node)]] += entry->now.own;
            }
        }
        for (const std::string& key : order) {
            const Picture::Thread& thread = *firstOf[key];
            trackOfKey.try_emplace(key, tracks.size());
            tracks.push_back({tree.id,
                              tree.title,
                              isPooled ? key : thread.name,
                              thread.trn,
                              &tree,
                              {ownOf[key].begin(), ownOf[key].end()},
                              {}});
        }
    }
}

FirefoxTrack& FirefoxTracks::trackFor(int trn, const std::string& name) {
    auto [entry, added] = trackOfKey.try_emplace(keyOf(trn, name), tracks.size());
    if (added) {
        tracks.push_back({EventsProcess, "Events", name, trn, nullptr, {}, {}});
    }
    return tracks[entry->second];
}

// Of more rows than there is room for the longest are told.
void FirefoxTracks::addMarkers(DB& db, size_t mostBytes) {
    const ProbeTables tables(db);
    std::vector<RowToTell> rows;
    std::vector<std::string> names = namesOf(picture);
    for (const ProbeTable& table : tables.all()) {
        if (table.predefined[USER_TABLE_PREDEFINED_COLUMN_UPTIME_NS] < 0) {
            continue;
        }
        for (const ProbeRow& row : table.rows) {
            rows.push_back({&table, &row, table.isOpen(row) ? INT64_MAX : table.durationNs(row)});
            names.push_back(printable(tables.threadName(table, row)));
        }
    }
    const PoolNames pools(names);
    const size_t firstRow = names.size() - rows.size();
    std::vector<size_t> order(rows.size());
    for (size_t i = 0; i < order.size(); i++) {
        order[i] = i;
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return rows[a].ns > rows[b].ns; });
    size_t bytes = 0, told = 0;
    std::vector<std::string> texts(rows.size());
    for (; told < order.size(); told++) {
        std::string& text = texts[order[told]];
        text = textOf(tables, *rows[order[told]].table, *rows[order[told]].row);
        bytes += BytesOfMarker + text.size();
        if (bytes > mostBytes) {
            break;
        }
    }
    if (told < order.size()) {
        markersRemark = "the " + formatCount(int64_t(told)) + " longest of " +
                        formatCount(int64_t(rows.size())) + " rows of probes";
    }
    order.resize(told);
    std::sort(order.begin(), order.end()); // as they were recorded
    for (const size_t index : order) {
        const ProbeTable& table = *rows[index].table;
        const ProbeRow& row = *rows[index].row;
        FirefoxMarker marker;
        marker.name = printable(table.name, LongestMarkerText);
        marker.text = std::move(texts[index]);
        marker.startNs = table.startNs(row);
        marker.isOpen = table.isOpen(row);
        marker.hasDuration = table.hasDuration();
        marker.endNs = std::max(table.endNs(row), marker.startNs);
        const std::string& name = names[firstRow + index];
        trackFor(table.thread(row), isPooled ? pools(name) : name)
            .markers.push_back(std::move(marker));
    }
}

} // namespace vdk
