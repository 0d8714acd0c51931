// Reports over heaps whose answers are known by how they were built.
#include "HeapAnswers.h"
#include "HeapBuilder.h"
#include "client/console/Text.h"

#include <gmock/gmock.h>
#include <random>
#include <set>

using namespace vdk;
using nlohmann::json;
using testing::HasSubstr;

TEST(HeapReports, objectsAreChosenAndOrderedByTheirFields) {
    HeapBuilder b;
    const uint64_t base = b.type("demo/Base", 1, {{"size", 'J'}, {"id", 'I'}});
    const uint64_t item = b.type("demo/Item", base,
                                 {{"id", 'I'},
                                  {"name", 'L'},
                                  {"next", 'L'},
                                  {"ratio", 'D'},
                                  {"on", 'Z'},
                                  {"letter", 'C'},
                                  {"small", 'B'}},
                                 {{"COUNT", 'I', 77}, {"LIST", 'L', 0}});
    std::vector<uint64_t> items;
    for (uint64_t i = 0; i < 6; i++) {
        const uint64_t half = 0x3fe0000000000000; // 0.5
        items.push_back(b.make(item, {i, i == 5 ? 0 : b.text("n" + std::to_string(i)),
                                      i == 0 ? 0 : items.back(), half, i % 2, 'a' + i, 250 + i,
                                      uint64_t(0) - i, 1000 + i}));
    }
    b.make(base, {5, 5});
    b.root(b.array(items));
    const TemporaryFile file(b.file());

    static const struct {
        std::vector<std::string> words;
        Texts names;
    } cases[] = {
        {{"--where", "id >= 4", "--sort", "id"}, {"null", "n4"}},
        {{"--where", "id", "<", "2", "--sort", "id"}, {"n1", "n0"}},
        {{"--where", "name ~ n*", "--sort", "name", "--top", "2"}, {"n0", "n1"}},
        {{"--where", "name = \"n3\""}, {"n3"}},
        {{"--where", "name = null"}, {"null"}},
        {{"--where", "next != null", "--where", "on = false", "--sort", "name"}, {"n2", "n4"}},
        {{"--where", "next.next.name = n0"}, {"n2"}},
        {{"--where", "size <= -4", "--sort", "size"}, {"n4", "null"}},
        {{"--where", "small = -2"}, {"n4"}},
        {{"--where", "letter = b"}, {"n1"}},
        {{"--where", "ratio > 0.5"}, {}},
        {{"--where", "next = " + HeapBuilder::id(items[2])}, {"n3"}},
        {{"--where", "retained > 1g"}, {}},
    };
    for (const auto& c : cases) {
        std::vector<std::string> words = {"objects", "demo.Item"};
        words.insert(words.end(), c.words.begin(), c.words.end());
        Texts names;
        const json objects = answer(file.path, words);
        for (const json& row : objects["objects"]) {
            const json shown = answer(file.path, {"show", row["id"]});
            EXPECT_EQ("demo.Item", row["class"]);
            EXPECT_EQ("id", shown["fields"][0]["name"]);
            EXPECT_EQ("size", shown["fields"][7]["name"]);
            EXPECT_EQ("demo.Base", shown["fields"][7]["declaredBy"]);
            const json& name = shown["fields"][1];
            names.push_back(name.contains("object") ? name["object"]["text"] : json("null"));
        }
        EXPECT_EQ(c.names, names) << join(c.words, " ");
    }
    EXPECT_EQ(7, answer(file.path, {"objects", "demo.Base", "--subclasses"})["count"]);
    EXPECT_EQ("id,class",
              heap(file.path, {"objects", "demo.Item", "--csv", "--top", "1"}).out.substr(24, 8));

    const json shown = answer(file.path, {"show", HeapBuilder::id(items[3])});
    const std::vector<json> values = {3, nullptr, nullptr, 0.5, true, 'a' + 3, -3, -3, 1003};
    for (size_t i = 0; i < values.size(); i++) {
        const json& field = shown["fields"][i];
        EXPECT_EQ(!values[i].is_null(), field.contains("value"));
        if (!values[i].is_null()) {
            EXPECT_EQ(values[i], field["value"]) << field;
        }
    }
    EXPECT_TRUE(shown["loader"].is_null());
    const json array = answer(file.path, {"show", shown["dominator"]["id"], "--from", "4"});
    EXPECT_EQ((Texts{"[4]", "[5]"}), column(array["elements"], "name"));
    const json statics = answer(file.path, {"show", HeapBuilder::id(item)})["statics"];
    EXPECT_EQ((Texts{"LIST", "COUNT"}), column(statics, "name"));
    EXPECT_EQ(77, statics[1]["value"]);
    EXPECT_THAT(heap(file.path, {"show", HeapBuilder::id(items[1])}).out, HasSubstr("'b'"));

    static const struct {
        std::vector<std::string> words;
        int code;
        const char* err;
    } errors[] = {
        {{"objects", "nosuch"}, 1, "the heap has no class nosuch"},
        {{"objects", "demo.Item", "--where", "nam = 3"}, 2, "no field nam: did you mean name?"},
        {{"objects", "demo.Item", "--where", "name ! 3"}, 2, "is no condition"},
        {{"objects", "demo.Item", "id"}, 2, "takes one pattern"},
        {{"biggest", "--where", "id = 3"}, 2, "biggest takes no --where"},
        {{"shell", "--csv"}, 2, "shell takes no --csv"},
        {{"paths", "demo.Item", "--exclude", "weak,wek"}, 2, "\"wek\" is no strength"},
        {{"histogram", "--sort", "cuont"}, 2, "is no order of classes: did you mean count?"},
        {{"objects", "demo.Item", "--csv", "--json"}, 2, "exclude each other"},
        {{"summary", "--table", "objects"}, 2, "--table goes with --csv"},
        {{"summary", "--csv", "--table", "object"}, 2, "there are: classes, objects"},
        {{"summary", "--csv"}, 0, "--table NAME writes another"},
    };
    for (const auto& c : errors) {
        const Outcome outcome = heap(file.path, c.words);
        EXPECT_EQ(c.code, outcome.code) << c.err;
        EXPECT_THAT(outcome.err, HasSubstr(c.err));
    }
}

TEST(HeapReports, aLeakAmongTenDecoysIsFoundWithWhatHoldsIt) {
    HeapBuilder b;
    const uint64_t item = b.type("demo/Item", 1, {{"data", 'L'}});
    const uint64_t link = b.type("demo/Link", 1, {{"next", 'L'}, {"data", 'L'}});
    const uint64_t list = b.type("demo/List", 1, {{"elements", 'L'}});
    const uint64_t thread = b.type("java/lang/Thread", 1, {{"name", 'L'}});
    const auto filled = [&](int count) {
        std::vector<uint64_t> items;
        for (int i = 0; i < count; i++) {
            items.push_back(b.make(item, {b.data(std::string(100, 'x'))}));
        }
        return b.make(list, {b.array(items)});
    };
    const uint64_t loader = b.make(b.type("demo/Loader"));
    std::vector<HeapBuilder::Field> statics = {{"LEAK", 'L', filled(1000)}};
    for (int i = 0; i < 10; i++) {
        statics.push_back({"DECOY" + std::to_string(i), 'L', filled(8)});
    }
    b.root(b.type("demo/Cache", 1, {}, statics, loader));
    // A chain, of which each link holds all behind it, in a local variable.
    uint64_t chain = 0;
    for (int i = 0; i < 400; i++) {
        chain = b.make(link, {chain, b.data(std::string(100, 'y'))});
    }
    const uint64_t worker = b.make(thread, {b.text("worker")});
    b.thread(worker, 1, "demo/Main", {"read", "run"});
    b.local(chain, 1, 1);
    // Many that nothing single holds: two arrays share each.
    std::vector<uint64_t> shared;
    for (int i = 0; i < 300; i++) {
        shared.push_back(b.data(std::string(120, 'z')));
    }
    b.root(b.array(shared));
    b.root(b.array(shared));
    const TemporaryFile file(b.file());

    const json suspects = answer(file.path, {"suspects"})["suspects"];
    ASSERT_EQ(3u, suspects.size());
    EXPECT_EQ(1000, suspects[0]["object"]["length"]);
    EXPECT_EQ("static field demo.Cache.LEAK", suspects[0]["heldBy"]);
    EXPECT_EQ("demo.Item", suspects[0]["classes"][0]["class"]);
    EXPECT_EQ(1000, suspects[0]["classes"][0]["count"]);
    const long element = 16 + 120; // an item and its array
    const long array = 16 + 4 * 1000;
    EXPECT_EQ(1000 * element + array, suspects[0]["bytes"]);
    EXPECT_EQ((Texts{"\"demo.Cache\"", "LEAK", "elements"}),
              (Texts{suspects[0]["path"][0]["text"].dump(), suspects[0]["path"][1]["name"],
                     suspects[0]["path"][2]["name"]}));
    EXPECT_EQ(HeapBuilder::id(chain), suspects[1]["object"]["id"]);
    EXPECT_GT(suspects[1]["chained"], 200);
    EXPECT_EQ("local variable of thread \"worker\" at demo.Main.run", suspects[1]["heldBy"]);
    EXPECT_EQ(300, suspects[2]["group"]);
    EXPECT_EQ(300 * (16 + 120), suspects[2]["bytes"]);

    const double share = suspects[0]["share"];
    EXPECT_GT(share, 30);
    EXPECT_EQ(0, heap(file.path, {"suspects", "--gate", std::to_string(int(share) + 1)}).code);
    EXPECT_EQ(1, heap(file.path, {"suspects", "--gate", std::to_string(int(share))}).code);
    EXPECT_EQ(false, answer(file.path, {"suspects", "--gate", "2"}, 1)["passed"]);

    const Outcome screen = heap(file.path, {});
    EXPECT_THAT(screen.out, HasSubstr("held by static field demo.Cache.LEAK"));
    EXPECT_LE(std::count(screen.out.begin(), screen.out.end(), '\n'), 40);
    EXPECT_EQ(suspects, answer(file.path, {})["suspects"]);
}

TEST(HeapReports, classesOfManyLoadersAreTold) {
    HeapBuilder b;
    const uint64_t holder = b.type("demo/Registry", 1, {{"loaders", 'L'}});
    const uint64_t loaderType = b.type("demo/Loader", 1, {{"name", 'L'}, {"data", 'L'}});
    std::vector<uint64_t> loaders;
    for (int i = 0; i < 50; i++) {
        loaders.push_back(
            b.make(loaderType, {b.text("l" + std::to_string(i)), b.data("12345678")}));
        const uint64_t loaded =
            b.type("plugin/api/Loaded", 1, {{"number", 'I'}}, {}, loaders.back());
        b.root(b.make(loaded, {1}));
        b.root(b.make(loaded, {2}));
    }
    b.make(holder, {b.array(loaders)}); // nothing reaches it
    const TemporaryFile file(b.file());

    const json report = answer(file.path, {"loaders", "--top", "60"});
    EXPECT_EQ(51, report["count"]);
    ASSERT_EQ(1u, report["duplicates"].size());
    EXPECT_EQ("plugin.api.Loaded", report["duplicates"][0]["class"]);
    EXPECT_EQ(50, report["duplicates"][0]["copies"]);
    EXPECT_EQ(100, report["duplicates"][0]["count"]);
    const json one = rowOf(report["loaders"], "name", "l7");
    EXPECT_EQ(1, one["classes"]);
    EXPECT_EQ(3, one["count"]); // two objects and the class
    EXPECT_EQ("JNI global", report["loaders"][1]["heldBy"]);
    EXPECT_THAT(heap(file.path, {"loaders", HeapBuilder::id(loaders[7])}).out,
                HasSubstr("<class loader> -> demo.Loader"));
    const json packages = answer(file.path, {"packages", "plugin.*"})["packages"];
    ASSERT_EQ(1u, packages.size());
    EXPECT_EQ(150, packages[0]["count"]);
    const json lost = answer(file.path, {"unreachable"})["classes"];
    EXPECT_EQ(1, rowOf(lost, "class", "demo.Registry")["count"]);
    EXPECT_TRUE(rowOf(lost, "class", "demo.Loader").is_null());
    const json holders = answer(file.path, {"holders", "byte[]"})["holders"];
    EXPECT_EQ(50, rowOf(holders, "holder", "demo.Loader")["count"]);
    EXPECT_EQ(50, rowOf(holders, "holder", "demo.Loader")["holders"]);
    const json past = answer(
        file.path, {"holders", "byte[]", "--skip", "demo.*", "--skip", "*String"})["holders"];
    EXPECT_EQ(100, rowOf(past, "holder", "class plugin.api.Loaded")["count"]);
}

TEST(HeapReports, diffTellsWhatGrewByWhomAndKeepsLimits) {
    std::vector<std::unique_ptr<TemporaryFile>> files;
    for (int round = 0; round < 3; round++) {
        HeapBuilder b;
        const uint64_t item = b.type("demo/Item", 1, {{"number", 'J'}});
        const uint64_t loader = b.make(b.type("demo/Loader"));
        std::vector<uint64_t> items, steady;
        for (int i = 0; i < 10 + 10 * round; i++) {
            items.push_back(b.make(item));
            steady.push_back(i < 10 ? b.make(item) : 0);
        }
        b.root(b.type("demo/Cache", 1, {}, {{"LIST", 'L', b.array(items)}}, loader));
        b.root(b.type("demo/Steady", 1, {}, {{"LIST", 'L', b.array(steady)}}));
        if (round == 1) {
            b.root(b.data("passing"));
        }
        files.push_back(std::make_unique<TemporaryFile>(b.file()));
    }
    const std::string first = files[0]->path;
    const json two = answer(first, {"diff", files[2]->path});
    const json item = rowOf(two["classes"], "class", "demo.Item");
    EXPECT_EQ(20, item["countBefore"]);
    EXPECT_EQ(40, item["count"]);
    EXPECT_EQ(20 * 24, item["retained"].get<int>() - item["retainedBefore"].get<int>());
    ASSERT_EQ(1u, two["holders"].size()) << two["holders"];
    EXPECT_EQ("class demo.Cache", two["holders"][0]["holder"]);
    EXPECT_EQ(10, two["holders"][0]["countBefore"]);
    EXPECT_EQ(30, two["holders"][0]["count"]);
    const json packages = answer(first, {"diff", files[2]->path, "--by", "package"})["groups"];
    EXPECT_EQ(rowOf(packages, "package", "demo")["countBefore"].get<int>() + 20,
              rowOf(packages, "package", "demo")["count"]);
    const json loaders = answer(first, {"diff", files[2]->path, "--by", "loader"})["groups"];
    EXPECT_EQ((Texts{"the JVM's own loader", "demo.Loader"}), column(loaders, "loader"));
    const json trend =
        answer(first, {"diff", files[1]->path, files[2]->path, "--sort", "count"})["classes"];
    EXPECT_EQ("demo.Item", trend[0]["class"]);
    EXPECT_EQ((std::vector<int>{20, 30, 40, 20}),
              (std::vector<int>{trend[0]["file1"], trend[0]["file2"], trend[0]["file3"],
                                trend[0]["growth"]}));
    EXPECT_EQ("grows", trend[0]["trend"]);
    EXPECT_EQ("", rowOf(trend, "class", "byte[]")["trend"]);

    static const struct {
        const char* limit;
        int code;
    } limits[] = {{"demo.Item:100%", 0}, {"demo.Item:99%", 1},
                  {"demo.It*:20", 0},    {"demo.Item:19", 1},
                  {"demo.Item:1k", 0},   {"*:0k", 1},
                  {"nosuch:0", 0},       {"demo.Item:x", 2},
                  {"demo.Item", 2},      {"java.lang.Object[]:5%", 1}};
    for (const auto& c : limits) {
        const Outcome outcome = heap(first, {"diff", files[2]->path, "--max-growth", c.limit});
        EXPECT_EQ(c.code, outcome.code) << c.limit << outcome.err;
        EXPECT_EQ(c.code == 0 && c.limit[0] != 'n', outcome.err.empty()) << c.limit << outcome.err;
    }
    const json refused =
        answer(first, {"diff", files[2]->path, "--max-growth", "demo.Item:10%"}, 1);
    EXPECT_EQ(false, refused["passed"]);
    EXPECT_EQ("demo.Item grew from 20 to 40 objects, the limit is 10%", refused["reasons"][0]);
    EXPECT_EQ(7, heap(first, {"diff", files[2]->path, "--by", "site"}).code);
}

TEST(HeapReports, collectionsAreAsFullAsTheyWereMade) {
    HeapBuilder b;
    using Fields = std::vector<HeapBuilder::Field>;
    const uint64_t list = b.type("java/util/ArrayList", 1, {{"elementData", 'L'}, {"size", 'I'}});
    const uint64_t map = b.type("java/util/HashMap", 1, {{"table", 'L'}, {"size", 'I'}});
    const uint64_t linked = b.type("java/util/LinkedHashMap", map, {{"head", 'L'}});
    const uint64_t set = b.type("java/util/HashSet", 1, {{"map", 'L'}});
    const uint64_t ring =
        b.type("java/util/ArrayDeque", 1, {{"elements", 'L'}, {"head", 'I'}, {"tail", 'I'}});
    const uint64_t cell =
        b.type("java/util/concurrent/ConcurrentHashMap$CounterCell", 1, {{"value", 'J'}});
    const uint64_t concurrent = b.type("java/util/concurrent/ConcurrentHashMap", 1,
                                       {{"table", 'L'}, {"baseCount", 'J'}, {"counterCells", 'L'}});
    const auto slots = [&](size_t count) { return b.array(std::vector<uint64_t>(count, 0)); };
    Fields fields;
    std::vector<uint64_t> held;
    const auto hold = [&](uint64_t object) {
        held.push_back(object);
        fields.push_back({"f" + std::to_string(held.size()), 'L'});
    };
    hold(b.make(list, {slots(100), 26}));             // 74 slots too many
    hold(b.make(list, {slots(10), 0}));               // empty: the whole array of 56 bytes
    hold(b.make(list, {0, 0}));                       // nothing to waste
    hold(b.make(map, {slots(16), 12}));               // as it has to be
    hold(b.make(map, {slots(64), 5}));                // 8 would do
    hold(b.make(linked, {0, slots(32), 24}));         // as it has to be
    hold(b.make(set, {b.make(map, {slots(16), 2})})); // 4 would do; counts as a set
    hold(b.make(ring, {slots(17), 15, 3}));           // 5 around the end: 11 too many
    hold(b.make(concurrent,
                {slots(256), 90, b.array({b.make(cell, {4}), 0, b.make(cell, {2})})})); // 96: 128
    b.root(b.make(b.type("demo/Owner", 1, fields), held));
    const TemporaryFile file(b.file());

    const json report = answer(file.path, {"collections"});
    static const struct {
        const char* name;
        std::vector<int> numbers; // count, empty, sparse, elements, slots, wasted
    } classes[] = {
        {"java.util.ArrayList", {3, 2, 0, 26, 110, 74 * 4 + 56}},
        {"java.util.HashMap", {2, 0, 1, 17, 80, 56 * 4}},
        {"java.util.LinkedHashMap", {1, 0, 0, 24, 32, 0}},
        {"java.util.HashSet", {1, 0, 1, 2, 16, 12 * 4}},
        {"java.util.ArrayDeque", {1, 0, 0, 5, 17, 11 * 4}},
        {"java.util.concurrent.ConcurrentHashMap", {1, 0, 0, 96, 256, 128 * 4}},
    };
    EXPECT_EQ(std::size(classes), report["classes"].size());
    for (const auto& c : classes) {
        const json row = rowOf(report["classes"], "class", c.name);
        EXPECT_EQ(c.numbers, (std::vector<int>{row["count"], row["empty"], row["sparse"],
                                               row["elements"], row["slots"], row["wasted"]}))
            << c.name;
    }
    EXPECT_EQ(9, report["count"]);
    EXPECT_EQ(48, rowOf(report["owners"], "owner", "demo.Owner.f7")["wasted"]);
    EXPECT_EQ("java.util.HashSet", rowOf(report["owners"], "owner", "demo.Owner.f7")["class"]);
}

TEST(HeapReports, equalArraysAreFound) {
    HeapBuilder b;
    const uint64_t owner = b.type("demo/Owner", 1, {{"data", 'L'}});
    for (int i = 0; i < 7; i++) {
        b.root(b.make(owner,
                      {b.data(i < 4 ? "same text here" : "other text " + std::to_string(i / 6))}));
    }
    b.root(b.data(""));
    b.root(b.data(""));
    const TemporaryFile file(b.file());
    const json report = answer(file.path, {"duplicates"});
    EXPECT_EQ((Texts{"4", "2"}), column(report["duplicates"], "count"));
    EXPECT_EQ("\"same text here\"", report["duplicates"][0]["content"]);
    EXPECT_EQ("demo.Owner.data", report["duplicates"][0]["owner"]);
    EXPECT_EQ(3 * 32 + 32, report["wasted"]);
    EXPECT_EQ(7, report["count"]);
}

TEST(HeapReports, damagedFilesAreAnsweredOrRefused) {
    HeapBuilder b;
    const uint64_t thread = b.type("java/lang/Thread", 1, {{"name", 'L'}, {"threadStatus", 'I'}});
    const uint64_t list = b.type("java/util/ArrayList", 1, {{"elementData", 'L'}, {"size", 'I'}},
                                 {{"ALL", 'L', 0}, {"COUNT", 'I', 3}});
    const uint64_t worker = b.make(thread, {b.text("worker"), 4});
    b.thread(worker, 1, "demo/Main", {"leaf", "run"});
    b.local(b.make(list, {b.array({worker, 0, worker}), 2}), 1, 1);
    const std::string whole = b.file();
    std::mt19937 random(3);
    for (int round = 0; round < 12; round++) {
        std::string bytes = whole;
        for (int i = 0; i < 3; i++) {
            const size_t at = 40 + random() % (bytes.size() - 44);
            round % 3 == 0 ? bytes.replace(at, 4, "\xff\xff\xff\xff")
                           : (bytes[at] = char(random()), bytes);
        }
        bytes.resize(round % 3 == 1 ? 100 + random() % (bytes.size() - 100) : bytes.size());
        const TemporaryFile file(bytes);
        for (const std::string words :
             {"summary", "suspects", "objects * --where length!=9", "threads *", "loaders",
              "packages", "collections", "duplicates", "holders *", "unreachable", "diff"}) {
            const Outcome outcome =
                heap(file.path, words == "diff" ? Texts{words, file.path} : split(words, ' '));
            EXPECT_TRUE(outcome.code == 0 || outcome.code == 1 || outcome.code == 7)
                << words << outcome.code << outcome.err;
        }
        const json all = answer(file.path, {"objects", "*", "--top", "3"},
                                heap(file.path, {"objects", "*"}).code);
        for (size_t i = 0; all.contains("objects") && i < all["objects"].size(); i++) {
            EXPECT_EQ(0, heap(file.path, {"show", all["objects"][i]["id"]}).code);
        }
    }
}

TEST(HeapReports, whatReferencesAloneHoldIsToldAndMayBeLeftOutOfPaths) {
    HeapBuilder b;
    const uint64_t item = b.type("demo/Item", 1, {{"data", 'L'}, {"name", 'L'}});
    const uint64_t reference =
        b.type("java/lang/ref/Reference", 1, {{"referent", 'L'}, {"queue", 'L'}});
    const uint64_t soft = b.type("java/lang/ref/SoftReference", reference);
    const uint64_t weak = b.type("java/lang/ref/WeakReference", reference);
    const uint64_t own = b.type("demo/Weak", weak);
    const uint64_t final = b.type("java/lang/ref/FinalReference", reference);
    const uint64_t queued = b.make(b.object);
    b.root(b.type("java/lang/ref/ReferenceQueue", 1, {}, {{"ENQUEUED", 'L', queued}}));
    const auto make = [&] { return b.make(item, {b.data(std::string(84, 'x')), b.text("equal")}); };
    const uint64_t strong = make(), both = make(), softly = make(), dead = make();
    b.root(
        b.array({strong, b.make(soft, {softly, 0}), b.make(soft, {both, 0}), b.make(own, {both, 0}),
                 b.make(own, {strong, 0}), b.make(own, {0, 0}), b.make(final, {dead, queued})}));
    const uint64_t thread = b.type("java/lang/Thread", 1, {{"name", 'L'}});
    b.thread(b.make(thread, {b.text("worker")}), 1, "demo/Main", {"read", "run"});
    const uint64_t local = b.array({b.data(std::string(5000, 'y'))});
    b.local(local, 1, 0);
    b.local(local, 1, 1);
    // Three links of one class, and what the last of them holds.
    const uint64_t link = b.type("demo/Link", 1, {{"next", 'L'}, {"item", 'L'}});
    uint64_t chain = b.make(link, {0, make()});
    for (int i = 0; i < 3; i++) {
        chain = b.make(link, {chain, 0});
    }
    b.root(chain);
    const TemporaryFile file(b.file());

    const int64_t one = 24 + 104 + 24 + 24; // the item, its data, the string and the text's bytes
    const json all = answer(file.path, {"references"});
    EXPECT_EQ(2, all["soft"]);
    EXPECT_EQ(1, all["finalizersQueued"]);
    std::set<json> rows;
    for (const json& row : all["references"]) {
        rows.insert(json::array(
            {row["class"], row["referent"], row["count"], row["alone"], row["retained"]}));
    }
    const std::string names[] = {"demo.Item", "demo.Weak", "java.lang.ref.SoftReference",
                                 "java.lang.ref.FinalReference"};
    EXPECT_EQ((std::set<json>{{names[2], names[0], 2, 2, one}, // one of them is weakly held too
                              {names[1], names[0], 2, 1, 0},
                              {names[1], nullptr, 1, 0, 0},
                              {names[3], names[0], 1, 1, one}}),
              rows);

    static const struct {
        std::vector<std::string> exclude;
        int count;
    } paths[] = {{{}, 2}, {{"--exclude", "weak,phantom,final"}, 4}, {{"--exclude", "none"}, 5}};
    for (const auto& c : paths) {
        std::vector<std::string> words = {"paths", "demo.Item"};
        words.insert(words.end(), c.exclude.begin(), c.exclude.end());
        const json merged = answer(file.path, words);
        EXPECT_EQ(5, merged["reached"]);
        EXPECT_EQ(c.count, merged["count"]) << join(c.exclude, " ");
    }
    const json ways = answer(file.path, {"paths", "demo.Item"})["paths"];
    EXPECT_EQ((Texts{"demo.Item", "demo.Item"}),
              (Texts{rowOf(ways, "name", "[]")["class"], rowOf(ways, "name", "item")["class"]}));
    EXPECT_EQ(3, rowOf(ways, "name", "next")["objects"]);

    EXPECT_EQ("thread \"worker\" at demo.Main.run", rowOf(answer(file.path, {"biggest"})["objects"],
                                                          "id", HeapBuilder::id(local))["local"]);
    const json owner = answer(file.path, {"strings"})["owners"][0];
    EXPECT_EQ("demo.Item.name", owner["owner"]);
    EXPECT_EQ(4, owner["count"]);
    EXPECT_EQ(4 * (24 + 24), owner["wasted"]);

    const std::string id = HeapBuilder::id(strong);
    static const struct {
        std::vector<std::string> words;
        const char* heading;
    } tables[] = {
        {{"histogram"}, "class,count,shallow,retained"},
        {{"biggest"}, "id,class,shallow,retained,length,text,local"},
        {{"dominators"}, "id,class,shallow,retained,length,text,local"},
        {{"summary", "--table", "objects"}, "id,class,shallow,retained,length,text,local"},
        {{"dominators", "--by-class"}, "class,count,shallow,retained"},
        {{"refs", id}, "name,id,class,shallow,length,text"},
        {{"referrers", id}, "name,id,class,shallow,retained,length,text"},
        {{"path", id}, "name,id,class,shallow,retained,length,text"},
        {{"retained", id}, "class,count,shallow"},
        {{"strings"}, "id,text,count,arrays,wasted"},
        {{"arrays"}, "kind,class,owner,count,bytes,elements,used,example"}};
    for (const auto& c : tables) {
        std::vector<std::string> words = c.words;
        words.push_back("--csv");
        const Outcome outcome = heap(file.path, words);
        EXPECT_EQ(0, outcome.code) << outcome.err;
        EXPECT_EQ(c.heading, outcome.out.substr(0, outcome.out.find('\n'))) << c.words[0];
    }

    const TemporaryFile portable(std::string("\0\x12portable heap dump\0\0\0\6", 24));
    const Outcome refused = heap(portable.path, {});
    EXPECT_EQ(7, refused.code);
    EXPECT_THAT(refused.err, HasSubstr("PHD"));
}
