#include "client/profile/Report.h"

#include "DbBuilder.h"
#include "client/console/Text.h"
#include "client/profile/CallTree.h"
#include "client/profile/EventRates.h"
#include "client/profile/Export.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/MonitorReport.h"
#include "client/profile/Profile.h"
#include "client/profile/Selection.h"
#include "client/profile/TreeWalk.h"
#include "client/record/ThreadStateLimit.h"

#include <array>
#include <climits>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <unistd.h>

using namespace vdk;

namespace {

struct Times {
    int64_t own, total;
    bool operator==(const Times& other) const { return own == other.own && total == other.total; }
};

std::ostream& operator<<(std::ostream& out, const Times& times) {
    return out << times.own << "/" << times.total;
}

std::map<std::string, Times> hot(DB& db, bool filters = false) {
    Profile profile = makeProfile(db);
    std::map<std::string, Times> result;
    for (const HotMethod& method : hotMethods(makeCallTree(profile, {filters, -1}))) {
        result[methodName(profile, method.method, false)] = {method.own, method.total};
    }
    return result;
}

std::string printed(DB& db, const ReportChoices& choices = {}, std::string* told = nullptr) {
    std::ostringstream out, err;
    Console console(out, err, false, false);
    printReport(console, makeProfile(db), choices);
    if (told) {
        *told = err.str();
    }
    return out.str();
}

} // namespace

TEST(ThreadStates, thoseOfTheNewestRecordsStayInARecording) {
    DbBuilder b;
    for (const auto& [start, count] : {std::pair(INT_MAX, 1), {0, 4}, {4, 4}, {8, -1}, {8, 6}}) {
        TelemetryRecord* record =
            b.db.telemetryTable->getRecord(b.db.telemetryTable->nextIndex(), true);
        record->values[TELE_THREAD_STATE_START_INDEX] = start;
        record->values[TELE_THREAD_STATE_COUNT] = count;
        record->stamp = 1;
    }
    for (int i = 0; i < 14; i++) {
        b.db.threadStateTable->getRecord(b.db.threadStateTable->nextIndex(), true)->stamp = 1;
    }
    const auto left = [&] {
        std::string counts;
        b.db.telemetryTable->eachRecord([&](int, const TelemetryRecord& record) {
            counts += std::to_string(record.values[TELE_THREAD_STATE_COUNT]) + " ";
        });
        int states = 0;
        b.db.threadStateTable->eachRecord(
            [&](int, const ThreadStateRecord& state) { states += state.stamp > 0 ? 1 : 0; });
        return counts + std::to_string(states);
    };
    limitThreadStates(b.db, 15);
    EXPECT_EQ(left(), "1 4 4 -1 6 14");
    limitThreadStates(b.db, 12);
    EXPECT_EQ(left(), "-1 -1 4 -1 6 10");
    limitThreadStates(b.db, 1);
    EXPECT_EQ(left(), "-1 -1 -1 -1 6 6");
}

TEST(Report, hotMethodsHaveTheirOwnAndTotalTimes) {
    struct Time {
        const char* stack;
        long ns;
        const char* thread = "main";
    };
    const struct {
        const char* what;
        std::vector<Time> times;
        bool filters;
        std::map<std::string, Times> expected;
    } cases[] = {
        {"own time is time less that of the children",
         {{"A.main", 100}, {"A.main;A.work", 60}, {"A.main;A.rest", 30}},
         false,
         {{"A.main", {10, 100}}, {"A.work", {60, 60}}, {"A.rest", {30, 30}}}},
        {"it is never negative: the parent grows to its children",
         {{"A.main", 5}, {"A.main;A.x", 3}, {"A.main;A.y", 4}},
         false,
         {{"A.main", {0, 7}}, {"A.x", {3, 3}}, {"A.y", {4, 4}}}},
        {"it is taken thread by thread",
         {{"A.main", 50}, {"A.main;A.work", 50}, {"A.main", 50, "two"}},
         false,
         {{"A.main", {50, 100}}, {"A.work", {50, 50}}}},
        {"recursion counts once in total time",
         {{"A.fib", 100}, {"A.fib;A.via", 80}, {"A.fib;A.via;A.fib", 50}},
         false,
         {{"A.fib", {70, 100}}, {"A.via", {30, 80}}}},
        {"hidden methods give their time to the caller",
         {{"A.main", 100}, {"A.main;hidden.H.h", 90}, {"A.main;hidden.H.h;A.leaf", 50}},
         false,
         {{"A.main", {50, 100}}, {"A.leaf", {50, 50}}}},
        {"without filters all methods are shown",
         {{"java.Thread.run", 100}, {"java.Thread.run;A.mine", 90}},
         false,
         {{"java.Thread.run", {10, 100}}, {"A.mine", {90, 90}}}},
        {"filters charge the nearest caller that is not filtered",
         {{"java.Thread.run", 100},
          {"java.Thread.run;A.mine", 90},
          {"java.Thread.run;A.mine;java.Map.get", 60},
          {"java.Thread.run;A.mine;java.Map.get;java.Map.hash", 40},
          {"java.Thread.run;A.mine;java.Map.get;java.Map.hash;A.hashCode", 15}},
         true,
         {{"A.mine", {75, 90}}, // 30 of its own, 20 and 25 of the filtered ones
          {"A.hashCode", {15, 15}},
          {"<filtered methods only>", {10, 10}}}},
    };
    for (const auto& c : cases) {
        DbBuilder b;
        for (const Time& time : c.times) {
            b.sample(time.thread, time.stack, time.ns);
        }
        // A deleted row is not counted.
        int row = b.sample("gone", "A.main;A.gone", 70);
        b.db.cpuProfilingTable->setRecordModificationStamp(row, -5);
        EXPECT_EQ(hot(b.db, c.filters), c.expected) << c.what;
    }
}

TEST(Report, deepStacksDoNotExhaustTheStack) {
    DbBuilder b;
    int t = b.thread("main");
    int m = b.method("A", "down");
    int frame = 0;
    for (int i = 0; i < 200000; i++) {
        frame = b.frame(frame, m);
        b.time(t, frame, 7);
    }
    auto result = hot(b.db);
    EXPECT_EQ(result["A.down"], (Times{7, 7}));
    Profile profile = makeProfile(b.db);
    std::ostringstream out;
    ReportChoices choices;
    choices.depth = INT32_MAX;
    JsonWriter json(out, false);
    json.beginObject();
    writeReport(json, profile, choices);
    json.endObject();
    EXPECT_GT(out.str().size(), 200000u);
}

TEST(Report, textShowsPercentOfAllOwnTimes) {
    DbBuilder b;
    b.sample("worker", "A.main", 100000000);
    b.sample("worker", "A.main;A.hot", 75000000);
    EXPECT_EQ(printed(b.db), "Hot methods (100.0 ms)\n"
                             "    OWN  OWN%     TOTAL  TOTAL%  METHOD\n"
                             "75.0 ms  75.0   75.0 ms    75.0  A.hot\n"
                             "25.0 ms  25.0  100.0 ms   100.0  A.main\n"
                             "\n"
                             "Call tree (100.0 ms)\n"
                             " 100.0%  A.main  100.0 ms, own 25.0 ms\n"
                             "  75.0%    A.hot  75.0 ms, own 75.0 ms\n");
}

TEST(Report, smallPartsAndDeepLevelsAreCutFromTheTree) {
    DbBuilder b;
    b.sample("worker", "A.main", 1000);
    b.sample("worker", "A.main;A.small", 9);
    b.sample("worker", "A.main;A.large", 500);
    b.sample("worker", "A.main;A.large;A.deep", 400);
    ReportChoices choices;
    choices.methods = false;
    choices.depth = 2;
    std::string tree = printed(b.db, choices);
    EXPECT_EQ(tree.find("A.small"), std::string::npos);
    EXPECT_EQ(tree.find("A.deep"), std::string::npos);
    EXPECT_NE(tree.find("A.large"), std::string::npos);
}

TEST(Report, generatedClassesOfOneNameAreOneMethod) {
    DbBuilder b;
    b.sample("main", "A.main", 90);
    b.sample("main", "A.main;A$$Lambda/0x00007f01.run", 30);
    b.sample("main", "A.main;A$$Lambda/0x00007f02.run", 20);
    Profile profile = makeProfile(b.db);
    mergeGeneratedNames(profile);
    std::vector<HotMethod> methods = hotMethods(makeCallTree(profile, {}));
    ASSERT_EQ(methods.size(), 2u);
    EXPECT_EQ(methodName(profile, methods[0].method, false), "A$$Lambda.run");
    EXPECT_EQ(methods[0].own, 50);
}

TEST(Report, threadsOfAPoolAreShownTogether) {
    DbBuilder b;
    b.sample("exec-1", "A.run", 30);
    b.sample("exec-12", "A.run", 40);
    b.sample("batch-1", "A.run", 50);
    b.sample("7", "A.run", 1);
    Profile profile = makeProfile(b.db);
    std::vector<ThreadPool> pools = threadPools(profile);
    ASSERT_EQ(pools.size(), 3u);
    EXPECT_EQ(pools[0].name, "exec-*");
    EXPECT_EQ(pools[0].own, 70);
    EXPECT_EQ(pools[1].name, "batch-1");
    EXPECT_EQ(pools[2].name, "7");
    ReportChoices choices;
    choices.byThread = true;
    choices.threads = 1;
    std::string told;
    std::string report = printed(b.db, choices, &told);
    EXPECT_NE(report.find("Threads exec-* (2, "), std::string::npos) << report;
    EXPECT_EQ(report.find("batch"), std::string::npos);
    EXPECT_NE(told.find("2 more; --threads"), std::string::npos) << told;
}

TEST(Report, everyRecordingIsGroupedInEachWay) {
    DbBuilder builder;
    DB& db = builder.db;
    UserTable* live = db.getUserTable(db.createUserTableByDescription(
        "Live Allocations\n4\nthread\n0\nframe\n0\nlive_objects\n1\nlive_bytes\n1\n"));
    ASSERT_NE(nullptr, live);
    const struct {
        const char *thread, *stack;
        long objects, bytes, liveObjects, liveBytes;
    } rows[] = {
        {"pool-1", "A.main;A.make;B.<<init>>", 10, 240, 4, 96},
        {"pool-2", "A.main;A.make;B.<<init>>", 5, 120, 5, 120},
        {"pool-2", "A.main;A.copy;C.<<init>>", 1, 1000, 0, 0},
    };
    int liveRow = 0;
    for (const auto& row : rows) {
        const int tfi = builder.sample(row.thread, row.stack, 0);
        AllocInfoRecord* record = db.allocInfoTable->getRecord(tfi, true);
        record->objectCount = row.objects;
        record->objectBytes = row.bytes;
        record->stamp = db.currentStamp;
        if (row.liveObjects > 0) {
            int* words = live->getRecord(liveRow++, true);
            words[0] = db.currentStamp;
            const int key = db.threadFrameTable->getRecord(tfi, true)->tfiThreadIndex;
            live->setIntColumn(words, 0, db.threadTable->getRecord(key, true)->trn);
            live->setIntColumn(words, 1, builder.stack(row.stack));
            live->setLongColumn(words, 2, row.liveObjects);
            live->setLongColumn(words, 3, row.liveBytes);
        }
    }
    // A thread that ended long ago, of which the table of allocations knows no more.
    int* lost = live->getRecord(liveRow, true);
    lost[0] = db.currentStamp;
    live->setIntColumn(lost, 0, 77);
    live->setIntColumn(lost, 1, builder.stack("A.main;A.make;B.<<init>>"));
    live->setLongColumn(lost, 2, 1);
    live->setLongColumn(lost, 3, 24);
    const struct {
        Recorded which;
        Grouping by;
        const char* expected; // names of groups, bytes and objects
    } cases[] = {
        {Recorded::All, Grouping::Class, "C 1000 1, B 360 15"},
        {Recorded::All, Grouping::Method, "A.copy() 1000 1, A.make() 360 15"},
        {Recorded::All, Grouping::Line, "A.copy():unknown 1000 1, A.make():unknown 360 15"},
        {Recorded::All, Grouping::Thread, "pool-2 1120 6, pool-1 240 10"},
        {Recorded::All, Grouping::Package, "(no package) 1360 16"},
        {Recorded::All, Grouping::Group, "main 1360 16"},
        {Recorded::Live, Grouping::Class, "B 240 10"},
        {Recorded::Live, Grouping::Thread, "pool-2 120 5, pool-1 96 4, <thread 77> 24 1"},
        {Recorded::Garbage, Grouping::Class, "C 1000 1, B 144 6"},
        {Recorded::Garbage, Grouping::Thread, "pool-2 1000 1, pool-1 144 6"},
    };
    for (const auto& c : cases) {
        const Profile profile = makeAllocationProfile(db, c.which);
        ReportChoices choices;
        choices.by = c.by;
        choices.signatures = true;
        std::ostringstream out;
        {
            JsonWriter json(out, false);
            json.beginObject();
            writeGroups(json, profile, eventRows(profile), eventUnit(profile), choices);
            json.endObject();
        }
        std::string groups;
        const auto document = nlohmann::json::parse(out.str());
        for (const auto& group : document["kinds"][0]["groups"]) {
            groups += (groups.empty() ? "" : ", ") + group[groupingName(c.by)].get<std::string>() +
                      " " + group["bytes"].dump() + " " + group["objects"].dump();
        }
        EXPECT_EQ(c.expected, groups) << eventUnit(profile).title << " by " << groupingName(c.by);
    }
    std::ostringstream out, err;
    Console console(out, err, false, false);
    ReportChoices choices;
    choices.by = Grouping::Thread;
    printGroups(
        console, makeProfile(db),
        eventRows(MonitorUses{{{"M", 1, 2, "pool-1", "main", 0, 3000, 2, WaitKind::Blocked},
                               {"M", 3, 2, "pool-2", "main", 0, 4000, 1, WaitKind::Blocked},
                               {"M", 3, 3, "pool-2", "pool-2", 0, 9000, 1, WaitKind::InWait}}}),
        WaitUnit, choices);
    EXPECT_NE(std::string::npos, out.str().find("Waits by thread, blocked (7 us)\n"
                                                "TIME  TIME%  TIMES  THREAD\n"
                                                "7 us  100.0      3  pool-*\n"))
        << out.str();
}

TEST(Report, elapsedTimesBesideCpuTimesAreToldAndMayBeLeftOut) {
    DbBuilder b;
    b.sample("main", "m.A.main", 9000);
    b.sample("main", "m.A.main;waits.Socket.read", 8000);
    b.sample("main", "m.A.main;waits.Socket.read;m.A.get", 3000);
    Profile profile = makeProfile(b.db);
    const auto print = [&] {
        std::ostringstream out, err;
        Console console(out, err, false, false);
        ReportChoices choices;
        choices.tree = false;
        printReport(console, profile, choices);
        return out.str();
    };
    EXPECT_NE(print().find("Hot methods (9 us)\n5 us of it elapsed in methods marked (w)"),
              std::string::npos)
        << print();
    Selection noWaits;
    noWaits.noWaits = true;
    StackSelector(profile, noWaits).apply(profile);
    EXPECT_NE(print().find("Hot methods (1 us)\n"), std::string::npos) << print();
    EXPECT_EQ(0, profile.waitsNs());
}

TEST(Report, onlyChosenStacksAreLeft) {
    const Selection none;
    const auto chosen = [&](auto member, std::vector<std::string> patterns) {
        Selection selection;
        selection.*member = std::move(patterns);
        return selection;
    };
    const struct {
        Selection selection;
        const char* expected; // stacks as exports have them, and their own times
    } cases[] = {
        {none, "m.A.main 1, m.A.main;m.A.get 4, m.A.main;m.A.get;java.util.Map.get 2, "
               "m.A.main;n.B.get 8, m.A.main;n.B.get;m.A.get 16"},
        {chosen(&Selection::threads, {"poo*", "nobody"}), "m.A.main;n.B.get 8"},
        {chosen(&Selection::threads, {"main"}), // the group of all
         "m.A.main 1, m.A.main;m.A.get 4, m.A.main;m.A.get;java.util.Map.get 2, "
         "m.A.main;n.B.get 8, m.A.main;n.B.get;m.A.get 16"},
        {chosen(&Selection::include, {"B"}), "m.A.main;n.B.get 8, m.A.main;n.B.get;m.A.get 16"},
        {chosen(&Selection::include, {"java.util", "n.B#get(int)"}),
         "m.A.main;m.A.get;java.util.Map.get 2, m.A.main;n.B.get 8, m.A.main;n.B.get;m.A.get 16"},
        {chosen(&Selection::exclude, {"get"}), "m.A.main 1"},
        {chosen(&Selection::exclude, {"et", "java"}), // no part of a name
         "m.A.main 1, m.A.main;m.A.get 4, m.A.main;n.B.get 8, m.A.main;n.B.get;m.A.get 16"},
        {chosen(&Selection::focus, {"*.get"}),
         "m.A.get 4, m.A.get;java.util.Map.get 2, n.B.get 8, n.B.get;m.A.get 16"},
        {chosen(&Selection::focus, {"m/A::get"}), "m.A.get 20, m.A.get;java.util.Map.get 2"},
    };
    for (const auto& c : cases) {
        DbBuilder b;
        b.sample("main", "m.A.main", 23);
        b.sample("main", "m.A.main;m.A.get", 6);
        b.sample("main", "m.A.main;m.A.get;java.util.Map.get", 2);
        b.sample("pool-1", "m.A.main;n.B.get", 8);
        b.sample("main", "m.A.main;n.B.get;m.A.get", 16);
        b.sample("main", "m.A.main;n.B.get", 16);
        Profile profile = makeProfile(b.db);
        const StackSelector selector(profile, c.selection);
        selector.apply(profile);
        EXPECT_EQ(c.selection.threads.size() == 2   ? 1U
                  : c.selection.exclude.size() == 2 ? 1U
                                                    : 0U,
                  selector.findUnmatched().size());
        std::ostringstream out;
        writeCollapsed(out, profile, {false, false, false, false, 1, ""});
        std::istringstream lines(out.str());
        std::set<std::string> sorted;
        for (std::string line; std::getline(lines, line);) {
            sorted.insert(line);
        }
        std::string left;
        for (const std::string& line : sorted) {
            left += (left.empty() ? "" : ", ") + line;
        }
        EXPECT_EQ(c.expected, left);
    }
}

// Each stack once, for the outermost of the methods; the calls of all of them.
TEST(Report, callersShareWhatAMethodTook) {
    DbBuilder b;
    const int thread = b.thread("main");
    b.time(thread, b.stack("A.main"), 100, 1);
    b.time(thread, b.stack("A.main;A.get"), 30, 3);
    b.time(thread, b.stack("A.main;A.get;A.leaf"), 20, 5);
    b.time(thread, b.stack("A.main;A.via"), 50, 2);
    b.time(thread, b.stack("A.main;A.via;A.get"), 40, 4);
    b.time(thread, b.stack("A.main;A.via;A.get;A.get"), 10, 7);
    const Profile callers = callersOf(makeProfile(b.db), {"A.get"});
    std::string tree;
    walkTree(
        makeCallTree(callers, {}), TreeLimits(),
        [&](const CallTree::Node& node, int depth) {
            tree += std::string(size_t(depth), ' ') + methodName(callers, node.method, false) +
                    " " + std::to_string(node.total) + " " + std::to_string(node.count) + "\n";
        },
        [](const CallTree::Node&, int) {});
    EXPECT_EQ("A.get 70 14\n"
              " A.via 40 11\n"
              "  A.main 40 11\n"
              " A.main 30 3\n",
              tree);
    EXPECT_TRUE(callersOf(makeProfile(b.db), {"nosuch"}).charges.empty());
}

// What an interval brought, and the sums that reports show.
TEST(Report, ratesTellAnIntervalFromSums) {
    const auto moment = [](Shown what, int clearedStamp, std::vector<std::array<long, 3>> rows) {
        DbBuilder builder;
        const int make = builder.stack("A.main;A.make;B.<<init>>");
        const int copy = builder.stack("A.main;A.copy;C.<<init>>");
        EventData data = readEvents(builder.db, what, false);
        data.clearedStamp = clearedStamp;
        for (const auto& row : rows) {
            const bool isMade = row[0] == 0;
            data.rows.push_back(
                {"", isMade ? "B" : "C", "t", 0, isMade ? make : copy, row[1], row[2]});
        }
        return data;
    };
    const struct {
        const char* what;
        Shown shown;
        int clearedStamp;
        std::vector<std::array<long, 3>> before, now; // 0 for B, 1 for C; bytes and objects
        Grouping by;
        const char* expected; // names with sums and interval
    } cases[] = {
        {"what is hot comes first",
         Shown::Allocations,
         1,
         {{0, 900, 90}},
         {{0, 910, 91}, {1, 50, 5}},
         Grouping::Class,
         "C 50+50 5+5, B 910+10 91+1"},
        {"a quiet one by its sums",
         Shown::Allocations,
         1,
         {{0, 10, 1}, {1, 50, 5}},
         {{0, 10, 1}, {1, 50, 5}},
         Grouping::Class,
         "C 50+0 5+0, B 10+0 1+0"},
        {"cleared in between",
         Shown::Allocations,
         2,
         {{0, 10, 1}},
         {{0, 30, 3}},
         Grouping::Class,
         "B 30+30 3+3"},
        {"a sum that fell by a correction",
         Shown::Garbage,
         1,
         {{0, 30, 3}},
         {{0, 10, 1}},
         Grouping::Class,
         "B 10+0 1+0"},
        {"live objects that ended",
         Shown::Live,
         1,
         {{0, 30, 3}, {1, 5, 1}},
         {{0, 10, 1}, {1, 25, 2}},
         Grouping::Class,
         "C 25+20 2+1, B 10+-20 1+-2"},
        {"stacks of the interval",
         Shown::Allocations,
         1,
         {{0, 900, 90}},
         {{0, 900, 90}, {1, 50, 5}},
         Grouping::Tree,
         "A.main 950+50, A.copy 50+50, C.<<init>> 50+50"},
        {"live stacks",
         Shown::Live,
         1,
         {{0, 900, 90}},
         {{0, 800, 80}},
         Grouping::Tree,
         "A.main 800+-100, A.make 800+-100, B.<<init>> 800+-100"},
    };
    for (const auto& c : cases) {
        const EventData now = moment(c.shown, c.clearedStamp, c.now);
        ReportChoices choices;
        choices.by = c.by;
        const EventRates rates = eventRates(moment(c.shown, 1, c.before), now, 2, choices, false);
        std::ostringstream out;
        {
            JsonWriter json(out, false);
            json.beginObject();
            writeRates(json, now, rates, choices);
            json.endObject();
        }
        const auto kind = nlohmann::json::parse(out.str())["kinds"][0];
        std::string seen;
        const auto add = [&](const nlohmann::json& row, const char* name, bool counts) {
            seen += (seen.empty() ? "" : ", ") + row[name].get<std::string>() + " " +
                    row["bytes"].dump() + "+" + row["intervalBytes"].dump();
            if (counts) {
                seen += " " + row["objects"].dump() + "+" + row["intervalObjects"].dump();
            }
        };
        if (c.by == Grouping::Tree) {
            for (auto nodes = kind["tree"]; !nodes.empty(); nodes = nodes[0]["children"]) {
                add(nodes[0], "name", false);
            }
        } else {
            for (const auto& group : kind["groups"]) {
                add(group, groupingName(c.by), true);
            }
        }
        EXPECT_EQ(c.expected, seen) << c.what;
    }
}

TEST(Report, treeFitsTheTerminalAtEachDepth) {
    DbBuilder b;
    int t = b.thread("main"), frame = 0;
    for (int depth = 0; depth < 50; depth++) {
        std::string name = "methodOfAVeryLongNameThatTakesMostOfALine" + std::to_string(depth);
        frame = b.frame(frame, b.method("com.example.some.package.Class", name.c_str()));
        b.time(t, frame, 5000000000);
    }
    std::ostringstream out;
    Console console(out, out, true, true);
    ReportChoices choices;
    choices.methods = false;
    choices.depth = 60;
    printReport(console, makeProfile(b.db), choices);
    size_t lines = 0;
    for (const std::string& line : split(out.str(), '\n')) {
        EXPECT_LE(displayWidth(line), size_t(screenSize(STDOUT_FILENO).columns)) << line;
        lines += line.find("com.example") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(lines, 50u) << "each has the beginning of its name";
    EXPECT_NE(out.str().find("[49] com.example"), std::string::npos);
}
