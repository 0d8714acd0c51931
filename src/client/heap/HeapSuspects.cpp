#include "client/heap/HeapSuspects.h"

#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"
#include "client/heap/HeapPathSearch.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapRowPass.h"
#include "client/heap/RowRanks.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <numeric>
#include <unordered_map>

namespace vdk {

namespace {

const size_t KeptChildren = 5;

// An object that retains as much as a suspect has to.
struct Big {
    int row;
    int first;     // of the chain of its class that it belongs to; 0 while not known
    int64_t own;   // retained without that of big objects below
    int64_t chain; // sum of `own` over a chain, at its first
    int64_t chained = 1;
};

class Finder {
public:
    Finder(const HeapSession& session, double percent)
        : session(session), model(session.model()), percent(percent), ranks(model.rowCount() + 1) {}

    HeapSuspects run(size_t most) {
        sumReached();
        threshold = std::max<int64_t>(int64_t(double(result.reachedBytes) * percent / 100), 1);
        collectBig();
        std::vector<Big> firsts;
        std::copy_if(big.begin(), big.end(), std::back_inserter(firsts), [&](const Big& each) {
            return each.first == each.row && each.chain >= threshold;
        });
        std::stable_sort(firsts.begin(), firsts.end(), [&](const Big& a, const Big& b) {
            return session.retainedOf(a.row) > session.retainedOf(b.row);
        });
        for (const Big& each : firsts) {
            HeapSuspect suspect;
            suspect.row = each.row;
            suspect.bytes = each.chain;
            suspect.chained = each.chained > 1 ? each.chained : 0;
            result.list.push_back(std::move(suspect));
        }
        addGroups();
        std::stable_sort(result.list.begin(), result.list.end(),
                         [](const auto& a, const auto& b) { return a.bytes > b.bytes; });
        result.list.resize(std::min(result.list.size(), most));
        addChildren();
        for (HeapSuspect& suspect : result.list) {
            suspect.share = 100.0 * double(suspect.bytes) / double(result.reachedBytes);
            if (model.resultsOnly) {
                continue;
            }
            suspect.path = shortestPath(session, suspect.row, false);
            if (suspect.path.empty()) {
                suspect.path = shortestPath(session, suspect.row, true);
            }
        }
        return std::move(result);
    }

private:
    using Sums = std::map<int, HeapClassSum>; // by class

    void sumReached() {
        std::vector<int64_t> sums(size_t(session.threads()), 0);
        passOverRows(session, HeapRowBlock::Sizes, session.threads(),
                     [&](int worker, const HeapRowBlock& block) {
                         for (int i = 0; i < block.count; i++) {
                             const int64_t size = block.sizes[size_t(i)];
                             if (size > 0 && session.isReached(block.firstRow + i)) {
                                 sums[size_t(worker)] += size;
                             }
                         }
                     });
        result.reachedBytes = std::accumulate(sums.begin(), sums.end(), int64_t(0));
    }

    // What is above a big object is big too.
    void collectBig() {
        std::mutex lock; // guards `ranks`
        passOverRows(session, HeapRowBlock::Retained, session.threads(),
                     [&](int, const HeapRowBlock& block) {
                         std::vector<int> found;
                         for (int i = 0; i < block.count; i++) {
                             if (block.retained[size_t(i)] >= threshold &&
                                 session.isReached(block.firstRow + i)) {
                                 found.push_back(block.firstRow + i);
                             }
                         }
                         const std::lock_guard<std::mutex> guard(lock);
                         for (int row : found) {
                             ranks.add(row);
                         }
                     });
        ranks.number();
        big.reserve(ranks.size());
        ranks.forEach([&](int row) { big.push_back({row, 0, session.retainedOf(row), 0}); });
        for (const Big& each : big) {
            Big* const above = bigAt(session.storage().getDominator(each.row));
            if (above) {
                above->own -= session.retainedOf(each.row);
            }
        }
        findChains();
        for (const Big& each : big) {
            Big& first = *bigAt(each.first);
            first.chain += each.own;
            first.chained += each.row != each.first;
        }
    }
    void findChains() {
        std::vector<Big*> way;
        for (Big& each : big) {
            for (Big* at = &each; at != nullptr && at->first == 0; at = chainAbove(*at)) {
                at->first = at->row; // ends a circle, as damaged files may have
                way.push_back(at);
            }
            for (; !way.empty(); way.pop_back()) {
                const Big* const above = chainAbove(*way.back());
                way.back()->first = above == nullptr ? way.back()->row : above->first;
            }
        }
    }
    // The object of the same class that holds it; null if it is the first of a chain.
    Big* chainAbove(const Big& each) {
        Big* const above = bigAt(session.storage().getDominator(each.row));
        const bool isChain =
            above != nullptr && !model.isClass(each.row) && model.classOf(each.row) >= 0 &&
            model.classOf(each.row) == model.classOf(above->row) && !model.isClass(above->row);
        return isChain ? above : nullptr;
    }
    Big* bigAt(int row) { return ranks.has(row) ? &big[ranks.rank(row)] : nullptr; }

    // Many small objects of a class that no single object holds.
    void addGroups() {
        struct Group {
            int64_t count = 0, bytes = 0;
            int64_t largestBytes = 0;
            int largest = 0;
            void add(const Group& other) {
                count += other.count;
                bytes += other.bytes;
                const bool isLarger = other.largestBytes != largestBytes
                                          ? other.largestBytes > largestBytes
                                          : other.largest < largest;
                if (other.largest != 0 && (largest == 0 || isLarger)) {
                    largestBytes = other.largestBytes;
                    largest = other.largest;
                }
            }
        };
        std::vector<std::map<int, Group>> parts(size_t(session.threads())); // by class
        passOverRows(session,
                     HeapRowBlock::Classes | HeapRowBlock::Dominators | HeapRowBlock::Retained,
                     session.threads(), [&](int worker, const HeapRowBlock& block) {
                         for (size_t i = 0; i < size_t(block.count); i++) {
                             const int row = block.firstRow + int(i);
                             if (block.dominators[i] == 0 && block.retained[i] < threshold &&
                                 session.isReached(row) && !model.isClass(row)) {
                                 parts[size_t(worker)][block.classes[i]].add(
                                     {1, block.retained[i], block.retained[i], row});
                             }
                         }
                     });
        std::map<int, Group> groups;
        for (const auto& part : parts) {
            for (const auto& [type, group] : part) {
                groups[type].add(group);
            }
        }
        for (const auto& [type, group] : groups) {
            if (group.bytes >= threshold && type >= 0) {
                HeapSuspect suspect;
                suspect.row = group.largest;
                suspect.bytes = group.bytes;
                suspect.groupSize = group.count;
                result.list.push_back(std::move(suspect));
            }
        }
    }

    void addChildren() {
        std::unordered_map<int, size_t> suspectOf; // by row of an object or the first of its chain
        for (size_t i = 0; i < result.list.size(); i++) {
            if (result.list[i].groupSize == 0) {
                suspectOf[result.list[i].row] = i;
            }
        }
        if (suspectOf.empty()) {
            return;
        }
        const std::vector<Sums> sums = sumChildren(suspectOf);
        for (size_t i = 0; i < sums.size(); i++) {
            std::vector<HeapClassSum>& children = result.list[i].children;
            for (const auto& each : sums[i]) {
                children.push_back(each.second);
                HeapClassSum& sum = children.back();
                sum.classIndex = each.first;
                sum.name = each.first < 0 ? "?" : model.classes[size_t(each.first)].name;
            }
            std::stable_sort(children.begin(), children.end(),
                             [](const auto& a, const auto& b) { return a.retained > b.retained; });
            children.resize(std::min(children.size(), KeptChildren));
        }
    }

    // What objects of each suspect hold directly, but for big ones.
    std::vector<Sums> sumChildren(const std::unordered_map<int, size_t>& suspectOf) const {
        std::vector<std::vector<Sums>> parts(size_t(session.threads()),
                                             std::vector<Sums>(result.list.size()));
        const unsigned columns = HeapRowBlock::Classes | HeapRowBlock::Sizes |
                                 HeapRowBlock::Retained | HeapRowBlock::Dominators;
        passOverRows(
            session, columns, session.threads(), [&](int worker, const HeapRowBlock& block) {
                for (size_t i = 0; i < size_t(block.count); i++) {
                    const int above = block.dominators[i];
                    if (!ranks.has(above) || ranks.has(block.firstRow + int(i))) {
                        continue;
                    }
                    const auto found = suspectOf.find(big[ranks.rank(above)].first);
                    if (found != suspectOf.end()) {
                        HeapClassSum& sum = parts[size_t(worker)][found->second][block.classes[i]];
                        sum.count++;
                        sum.shallow += std::max<int64_t>(block.sizes[i], 0);
                        sum.retained += block.retained[i];
                    }
                }
            });
        for (size_t worker = 1; worker < parts.size(); worker++) {
            for (size_t i = 0; i < parts[worker].size(); i++) {
                for (const auto& each : parts[worker][i]) {
                    addTo(parts[0][i][each.first], each.second);
                }
            }
        }
        return std::move(parts[0]);
    }

    const HeapSession& session;
    const HeapModel& model;
    const double percent;
    int64_t threshold = 0;
    std::vector<Big> big; // by ascending rows
    RowRanks ranks;       // where a row stands in `big`
    HeapSuspects result;
};

// The step of a path from a class to what its static field holds; -1 if there is none.
int staticStep(const HeapModel& model, const std::vector<int>& path) {
    for (size_t i = path.size(); i-- > 1;) {
        const std::string name =
            model.isClass(path[i - 1]) ? nameOfReference(model, path[i - 1], path[i]) : "";
        if (!name.empty() && (name[0] != '<' || startsWith(name, "<static"))) {
            return int(i) - 1;
        }
    }
    return -1;
}

} // namespace

HeapSuspects findSuspects(const HeapSession& session, double percent, size_t most) {
    return Finder(session, percent).run(most);
}

std::string heapHolderText(const HeapModel& model, const std::vector<int>& path) {
    if (path.empty()) {
        return "";
    }
    const int step = staticStep(model, path);
    if (step >= 0) {
        const size_t at = size_t(step);
        return "static field " + printable(model.classes[size_t(model.classByRow(path[at]))].name +
                                           "." + nameOfReference(model, path[at], path[at + 1]));
    }
    const std::vector<const HeapRoot*> roots = rootsOf(model, path[0]);
    if (roots.empty()) {
        return "";
    }
    const HeapRoot* root = roots[0];
    for (const HeapRoot* each : roots) {
        root = each->frame >= 0 ? each : root;
    }
    const std::string place = heapRootPlace(model, *root);
    return heapRootName(root->kind) + (place.empty() ? "" : " of " + place);
}

std::string heapSuspectText(const HeapModel& model, const HeapSuspect& suspect) {
    if (suspect.groupSize != 0) {
        return formatCount(suspect.groupSize) + " objects of " +
               printable(model.classNameOf(suspect.row)) + " that no single object holds";
    }
    return heapLabel(model, suspect.row) +
           (suspect.chained == 0
                ? ""
                : " and the " + formatCount(suspect.chained - 1) + " behind it in a chain");
}

std::string heapSuspectContent(const HeapSuspect& suspect) {
    if (suspect.children.empty()) {
        return "";
    }
    const HeapClassSum& first = suspect.children[0];
    return "most of it: " + formatCount(first.count) + " " + printable(first.name) + ", " +
           formatBytes(first.retained);
}

void writeSuspects(JsonWriter& json, const HeapSession& session, const HeapSuspects& suspects) {
    const HeapModel& model = session.model();
    json.key("suspects").beginArray();
    for (const HeapSuspect& suspect : suspects.list) {
        json.beginObject().field("share", suspect.share).field("bytes", suspect.bytes);
        json.field("group", suspect.groupSize).field("chained", suspect.chained);
        json.key("object").beginObject();
        writeHeapObject(json, session, suspect.row);
        json.endObject();
        json.field("heldBy", heapHolderText(model, suspect.path)).key("loader");
        const int type = model.classOf(suspect.row);
        const int loader = type < 0 ? 0 : model.loaderOf(type);
        loader == 0 ? json.nullValue() : json.value(heapLabel(model, loader));
        json.key("classes");
        sumTable(suspect.children, KeptChildren, true).write(json);
        writePath(json, session, suspect.path);
        json.endObject();
    }
    json.endArray();
}

} // namespace vdk
