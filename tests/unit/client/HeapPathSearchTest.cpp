// Shortest ways from roots, of a heap with the table of referrers and without.
#include "client/heap/HeapPathSearch.h"

#include "HeapBuilder.h"
#include "RunClient.h"
#include "client/heap/HeapReferenceKinds.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sstream>

using namespace vdk;

namespace {

using Path = std::vector<int>;

// Level by level from the roots; of each level and what it refers to the lowest rows first.
Path plainPath(const HeapSession& session, int target, bool alsoWeak) {
    const HeapReferenceKinds weak(session.model(), alsoWeak ? 0u : unsigned(HEAP_ALL_KINDS));
    std::map<int, int> finders; // by row: who met it, 0 for a root
    std::set<int> level(session.rootRows().begin(), session.rootRows().end());
    for (int root : level) {
        finders[root] = 0;
    }
    while (!level.empty() && finders.count(target) == 0) {
        std::set<int> next;
        for (int row : level) {
            for (int place = 0; place < session.storage().getRefCount(row); place++) {
                const int to = session.storage().getRef(row, place);
                if (place != weak.passedPlace(row) && to != 0 &&
                    finders.try_emplace(to, row).second) {
                    next.insert(to);
                }
            }
        }
        level.swap(next);
    }
    Path path;
    for (int row = finders.count(target) == 0 ? 0 : target; row != 0; row = finders[row]) {
        path.insert(path.begin(), row);
    }
    return path;
}

// How many ways there are; each is asked for without the table, then with it.
int comparePaths(const std::string& content) {
    const TemporaryFile file(content);
    std::ostringstream out, err;
    Console console(out, err, false, false);
    HeapOptions options;
    options.file = file.path;
    const HeapSession session(console, options, true);
    int found = 0;
    for (bool hasTable : {false, true}) {
        EXPECT_EQ(hasTable, session.storage().getBackwardReferences() != nullptr);
        for (int i = 0; i < 2 * session.model().rowCount(); i++) {
            const int row = i / 2 + 1;
            const Path path = shortestPath(session, row, i % 2 == 1);
            EXPECT_EQ(plainPath(session, row, i % 2 == 1), path) << row << " " << hasTable;
            found += !path.empty();
        }
        session.referrers();
    }
    return found / 2;
}

// Every fourth object is a WeakReference that holds something else as well, the others are arrays.
// Objects refer to near ones on either side, so that dominators stand above each other.
std::string randomGraph(uint32_t seed) {
    std::vector<uint64_t>
        all; // known once they were made; the second time they refer to each other
    for (int round = 0;; round++) {
        std::mt19937 random(seed);
        HeapBuilder b;
        const uint64_t reference = b.type("java/lang/ref/Reference", 1, {{"referent", 'L'}});
        const uint64_t weak = b.type("java/lang/ref/WeakReference", reference, {{"other", 'L'}});
        const uint32_t count = 3 + random() % 40, reach = 1 + random() % 8, most = 1 + random() % 3;
        const auto near = [&](uint32_t place) {
            const uint32_t other = place + random() % (2 * reach) - reach;
            return other < all.size() && random() % 6 != 0 ? all[other] : 0;
        };
        std::vector<uint64_t> made;
        for (uint32_t i = 0; i < count; i++) {
            std::vector<uint64_t> targets(1 + random() % most);
            std::generate(targets.begin(), targets.end(), [&] { return near(i); });
            made.push_back(i % 4 == 3 ? b.make(weak, {near(i), targets[0]}) : b.array(targets));
        }
        for (uint32_t i = random() % 3; round == 1 && i < 3; i++) {
            b.root(made[random() % count]);
        }
        if (round == 1) {
            return b.file();
        }
        all = made;
    }
}

} // namespace

TEST(HeapPathSearch, pathsAreThoseOfAPlainSearchWithAndWithoutReferrers) {
    int found = 0;
    for (uint32_t seed = 0; seed < 300; seed++) {
        found += comparePaths(randomGraph(seed));
    }
    EXPECT_LT(3000, found);
}

// A list is a chain of dominators; its path would take hours if its length counted twice.
TEST(HeapPathSearch, theEndOfALongListIsFound) {
    HeapBuilder b;
    const uint64_t node = b.type("demo/Node", 1, {{"next", 'L'}});
    uint64_t first = 0, last = 0;
    for (int i = 0; i < 200000; i++) {
        first = b.make(node, {first});
        last = last == 0 ? first : last;
    }
    b.root(first);
    const TemporaryFile file(b.file());
    std::ostringstream out, err;
    Console console(out, err, false, false);
    HeapOptions options;
    options.file = file.path;
    const HeapSession session(console, options, true);
    const int target = session.rowOf(HeapBuilder::id(last));
    const Path path = shortestPath(session, target, false);
    EXPECT_EQ(200000u, path.size());
    session.referrers();
    EXPECT_EQ(path, shortestPath(session, target, false));
}
