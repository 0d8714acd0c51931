// What classes and threads retain, against its definition.
#include "HeapAnswers.h"
#include "HeapBuilder.h"

#include <random>
#include <set>

using namespace vdk;
using nlohmann::json;

namespace {

// The bytes that go with a thread: what its object and frames lead to and nothing else does.
int64_t bytesWithThread(const HeapModel& model, int thread) {
    const auto reach = [&](bool others) {
        std::set<int> seen;
        std::vector<int> open;
        const auto take = [&](int row) {
            if (row != 0 && (!others || row != model.threads[size_t(thread)].row) &&
                seen.insert(row).second) {
                open.push_back(row);
            }
        };
        for (const HeapRoot& root : model.roots) {
            if (!others || root.thread != thread) {
                take(root.row);
            }
        }
        while (!open.empty()) {
            const int row = open.back();
            open.pop_back();
            for (int i = 0; i < model.storage->getRefCount(row); i++) {
                take(model.storage->getRef(row, i));
            }
        }
        return seen;
    };
    const std::set<int> without = reach(true);
    int64_t bytes = 0;
    for (int row : reach(false)) {
        bytes += without.count(row) == 0 ? std::max<int64_t>(model.sizeOf(row), 0) : 0;
    }
    return bytes;
}

} // namespace

TEST(HeapRetained, whatClassesRetainIsWhatIsBelowNoObjectOfTheirOwnForAnyNumberOfThreads) {
    for (unsigned seed = 1; seed <= 12; seed++) {
        std::mt19937 random(seed);
        HeapBuilder b;
        std::vector<uint64_t> types, all = {0};
        for (const char* name : {"demo/A", "demo/B", "demo/C", "demo/D", "demo/E"}) {
            types.push_back(b.type(name, 1, {{"first", 'L'}, {"second", 'L'}}));
        }
        // Long chains, alone and with something at each link, and links across.
        for (int i = 0; i < 3000; i++) {
            const uint64_t before = random() % 40 == 0 ? 0 : all.back();
            const uint64_t other = random() % seed == 0 ? all[random() % all.size()] : 0;
            all.push_back(b.make(types[random() % (1 + seed % 5)], {before, other}));
            if (random() % 100 == 0) {
                b.root(all.back());
            }
        }
        const TemporaryFile file(b.file());
        std::map<int64_t, int64_t> dominatorOf, classOf;
        std::map<int64_t, std::string> names;
        const json rows = answer(
            file.path, {"sql",
                        "select object, class, name, ifnull(retained, shallow) as retained, "
                        "ifnull(dominator, 0) as dominator from objects join classes using (class)",
                        "--top", "100000"})["rows"];
        for (const json& row : rows) {
            dominatorOf[row["object"]] = row["dominator"];
            classOf[row["object"]] = row["class"];
            names[row["class"]] = row["name"];
        }
        std::map<std::string, int64_t> expected;
        for (const json& row : rows) {
            int64_t above = row["dominator"];
            while (above != 0 && classOf[above] != row["class"]) {
                above = dominatorOf[above];
            }
            expected[names[row["class"]]] += above == 0 ? row["retained"].get<int64_t>() : 0;
        }
        for (const char* threads : {"0", "1", "2", "5"}) {
            const json classes =
                answer(file.path, {"histogram", "demo.*", "--threads", threads})["classes"];
            ASSERT_FALSE(classes.empty());
            for (const json& each : classes) {
                EXPECT_EQ(each["retained"], expected[each["class"]])
                    << each["class"] << " seed " << seed << ", threads " << threads;
            }
        }
        // Writing an index shares its work as well.
        const TemporaryFile index;
        unlink(index.path.c_str());
        EXPECT_EQ(0, heap(file.path, {"biggest", "--threads", "0", "--index", index.path}).code);
    }
}

// A chain of ever different classes, each link with an item of its own, so that no two links have
// the same classes above them: more than threads share.
TEST(HeapRetained, whatClassesRetainIsRightWhereEachObjectHasOtherClassesAbove) {
    constexpr size_t Kinds = 4200;
    constexpr size_t Links = Kinds + 300; // the innermost are of classes that are above already
    HeapBuilder b;
    const uint64_t item = b.type("demo/Item");
    std::vector<uint64_t> types;
    for (size_t i = 0; i < Kinds; i++) {
        types.push_back(b.type("demo/Link" + std::to_string(i), 1, {{"next", 'L'}, {"item", 'L'}}));
    }
    uint64_t next = b.data(std::string(4 << 20, 'x'));
    for (size_t i = Links; i > 0; i--) {
        next = b.make(types[(i - 1) % Kinds], {next, b.make(item)});
    }
    b.root(next);
    const TemporaryFile file(b.file());
    std::map<std::string, int64_t> alone;
    for (const char* threads : {"1", "2", "5"}) {
        const json classes = answer(
            file.path, {"histogram", "demo.*", "--top", "9999", "--threads", threads})["classes"];
        std::map<std::string, int64_t> retained;
        for (const json& each : classes) {
            retained[each["class"]] = each["retained"];
        }
        ASSERT_EQ(retained.size(), Kinds + 1) << threads;
        EXPECT_EQ(retained["demo.Item"], int64_t(16 * Links)) << threads;
        EXPECT_GT(retained["demo.Link4199"], 4 << 20) << threads;
        for (size_t i = 1; i < Kinds; i++) {
            EXPECT_GT(retained["demo.Link" + std::to_string(i - 1)],
                      retained["demo.Link" + std::to_string(i)])
                << threads;
        }
        alone = alone.empty() ? retained : alone;
        EXPECT_EQ(retained, alone) << threads;
    }
}

TEST(HeapRetained, threadsRetainWhatGoesWithThemAndTheirLocals) {
    std::mt19937 random(7);
    for (int graph = 0; graph < 12; graph++) {
        HeapBuilder b;
        const uint64_t node = b.type("demo/Node", 1, {{"a", 'L'}, {"b", 'L'}, {"number", 'J'}});
        const uint64_t thread =
            b.type("java/lang/Thread", 1, {{"name", 'L'}, {"threadStatus", 'I'}, {"local", 'L'}});
        std::vector<uint64_t> all(1, 0);
        for (uint32_t serial = 1; serial <= 5; serial++) {
            for (int i = 0; i < 40; i++) {
                // Mostly what is near, so that threads have much of their own.
                const auto near = [&] {
                    return all[all.size() - 1 - random() % std::min<size_t>(all.size(), 12)];
                };
                all.push_back(b.make(
                    node, {near(), random() % 8 == 0 ? all[random() % all.size()] : near(), 1}));
            }
            const uint64_t name = b.text("worker-" + std::to_string(serial));
            all.push_back(b.make(thread, {name, 0x191, all[random() % all.size()]}));
            b.thread(all.back(), serial, "demo/Main" + std::to_string(serial), {"leaf", "run"});
            for (uint32_t i = 0; i < 3; i++) {
                b.local(all[all.size() - 1 - random() % 40], serial, i % 2);
            }
        }
        b.root(all[random() % all.size()]);
        b.root(all[random() % all.size()]);
        const TemporaryFile file(b.file());
        const auto model = readHeap(b.file());
        const json threads = answer(file.path, {"threads"})["threads"];
        ASSERT_EQ(5u, threads.size());
        for (int i = 0; i < 5; i++) {
            const json row = rowOf(threads, "name", "worker-" + std::to_string(i + 1));
            EXPECT_EQ(bytesWithThread(*model, i), row["retained"]) << graph << " " << row;
            EXPECT_EQ("waiting", row["state"]);
        }
        const json one = answer(file.path, {"threads", "worker-2"})["stacks"][0];
        EXPECT_EQ("demo.Main2.leaf", one["frames"][0]["method"]);
        EXPECT_FALSE(one["frames"][1]["locals"].empty());
    }
    HeapBuilder none;
    const TemporaryFile file(none.file());
    EXPECT_EQ(1, heap(file.path, {"threads", "nosuch"}).code);
}
