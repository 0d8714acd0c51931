#include "client/profile/Report.h"

#include "DbBuilder.h"
#include "client/profile/CallTree.h"
#include "client/profile/GeneratedNames.h"
#include "client/profile/Profile.h"

#include <gtest/gtest.h>
#include <map>
#include <sstream>

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

} // namespace

TEST(Report, ownTimeIsTimeLessThatOfTheChildren) {
    DbBuilder b;
    int t = b.thread("main");
    int f1 = b.frame(0, b.method("A", "main"));
    int f2 = b.frame(f1, b.method("A", "work"));
    int f3 = b.frame(f1, b.method("A", "rest"));
    b.time(t, f1, 100);
    b.time(t, f2, 60);
    b.time(t, f3, 30);
    auto result = hot(b.db);
    EXPECT_EQ(result["A.main"], (Times{10, 100}));
    EXPECT_EQ(result["A.work"], (Times{60, 60}));
    EXPECT_EQ(result["A.rest"], (Times{30, 30}));
}

TEST(Report, ownTimeIsNeverNegativeAndTheParentGrowsToItsChildren) {
    DbBuilder b;
    int t = b.thread("main");
    int f1 = b.frame(0, b.method("A", "main"));
    b.time(t, f1, 5);
    b.time(t, b.frame(f1, b.method("A", "x")), 3);
    b.time(t, b.frame(f1, b.method("A", "y")), 4);
    auto result = hot(b.db);
    EXPECT_EQ(result["A.main"], (Times{0, 7}));
    EXPECT_EQ(result["A.y"], (Times{4, 4}));
}

TEST(Report, ownTimeIsTakenThreadByThread) {
    DbBuilder b;
    int t1 = b.thread("one"), t2 = b.thread("two");
    int f1 = b.frame(0, b.method("A", "main"));
    int f2 = b.frame(f1, b.method("A", "work"));
    b.time(t1, f1, 50);
    b.time(t1, f2, 50);
    b.time(t2, f1, 50); // no time in work: all its own
    auto result = hot(b.db);
    EXPECT_EQ(result["A.main"], (Times{50, 100}));
    EXPECT_EQ(result["A.work"], (Times{50, 50}));
}

TEST(Report, recursionCountsOnceInTotalTime) {
    DbBuilder b;
    int t = b.thread("main");
    int fib = b.method("A", "fib");
    int f1 = b.frame(0, fib);
    int f2 = b.frame(f1, b.method("A", "via"));
    int f3 = b.frame(f2, fib);
    b.time(t, f1, 100);
    b.time(t, f2, 80);
    b.time(t, f3, 50);
    auto result = hot(b.db);
    EXPECT_EQ(result["A.fib"], (Times{70, 100}));
    EXPECT_EQ(result["A.via"], (Times{30, 80}));
}

TEST(Report, hiddenMethodsGiveTheirTimeToTheCaller) {
    DbBuilder b;
    int t = b.thread("main");
    int f1 = b.frame(0, b.method("A", "main"));
    int f2 = b.frame(f1, b.method("H", "hidden", METHOD_HIDDEN));
    int f3 = b.frame(f2, b.method("A", "leaf"));
    b.time(t, f1, 100);
    b.time(t, f2, 90);
    b.time(t, f3, 50);
    auto result = hot(b.db);
    EXPECT_EQ(result.size(), 2u);
    EXPECT_EQ(result["A.main"], (Times{50, 100}));
    EXPECT_EQ(result["A.leaf"], (Times{50, 50}));
}

TEST(Report, filtersChargeTheNearestUnfilteredCaller) {
    DbBuilder b;
    int t = b.thread("main");
    int run = b.frame(0, b.method("java.lang.Thread", "run", METHOD_FILTERED));
    int mine = b.frame(run, b.method("A", "mine"));
    int map = b.frame(mine, b.method("java.util.HashMap", "get", METHOD_FILTERED));
    int hash = b.frame(map, b.method("java.util.HashMap", "hash", METHOD_FILTERED));
    int back = b.frame(hash, b.method("A", "hashCode"));
    b.time(t, run, 100);
    b.time(t, mine, 90);
    b.time(t, map, 60);
    b.time(t, hash, 40);
    b.time(t, back, 15);
    auto off = hot(b.db, false);
    EXPECT_EQ(off["java.util.HashMap.get"], (Times{20, 60}));
    EXPECT_EQ(off["A.mine"], (Times{30, 90}));
    auto on = hot(b.db, true);
    EXPECT_EQ(on["A.mine"], (Times{75, 90})); // 30 of its own, 20 and 25 of the filtered ones
    EXPECT_EQ(on["A.hashCode"], (Times{15, 15}));
    EXPECT_EQ(on["<filtered methods only>"], (Times{10, 10}));
    EXPECT_EQ(on.size(), 3u);
}

TEST(Report, deletedRowsAreNotCounted) {
    DbBuilder b;
    int t = b.thread("main");
    int f1 = b.frame(0, b.method("A", "main"));
    int f2 = b.frame(0, b.method("A", "gone"));
    b.time(t, f1, 100);
    int row = b.time(t, f2, 70);
    b.db.cpuProfilingTable->setRecordModificationStamp(row, -5);
    EXPECT_EQ(hot(b.db).count("A.gone"), 0u);
    EXPECT_EQ(hot(b.db)["A.main"], (Times{100, 100}));
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
    std::ostringstream out, err;
    Console console(out, err, false, false);
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
    int t = b.thread("worker");
    int f1 = b.frame(0, b.method("A", "main"));
    b.time(t, f1, 100000000);
    b.time(t, b.frame(f1, b.method("A", "hot")), 75000000);
    Profile profile = makeProfile(b.db);
    std::ostringstream out, err;
    Console console(out, err, false, false);
    printReport(console, profile, {});
    EXPECT_EQ(out.str(), "Hot methods (100.0 ms)\n"
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
    int t = b.thread("worker");
    int f1 = b.frame(0, b.method("A", "main"));
    b.time(t, f1, 1000);
    b.time(t, b.frame(f1, b.method("A", "small")), 9);
    int f3 = b.frame(f1, b.method("A", "large"));
    b.time(t, f3, 500);
    b.time(t, b.frame(f3, b.method("A", "deep")), 400);
    Profile profile = makeProfile(b.db);
    std::ostringstream out, err;
    Console console(out, err, false, false);
    ReportChoices choices;
    choices.methods = false;
    choices.depth = 2;
    printReport(console, profile, choices);
    EXPECT_EQ(out.str().find("A.small"), std::string::npos);
    EXPECT_EQ(out.str().find("A.deep"), std::string::npos);
    EXPECT_NE(out.str().find("A.large"), std::string::npos);
}

TEST(Report, generatedClassesOfOneNameAreOneMethod) {
    DbBuilder b;
    int t = b.thread("main");
    int root = b.frame(0, b.method("A", "main"));
    b.time(t, root, 90);
    b.time(t, b.frame(root, b.method("A$$Lambda/0x00007f01", "run")), 30);
    b.time(t, b.frame(root, b.method("A$$Lambda/0x00007f02", "run")), 20);
    Profile profile = makeProfile(b.db);
    mergeGeneratedNames(profile);
    CallTree tree = makeCallTree(profile, {});
    std::vector<HotMethod> methods = hotMethods(tree);
    ASSERT_EQ(methods.size(), 2u);
    EXPECT_EQ(methodName(profile, methods[0].method, false), "A$$Lambda.run");
    EXPECT_EQ(methods[0].own, 50);
}

TEST(Report, threadsOfAPoolAreShownTogether) {
    DbBuilder b;
    int frame = b.frame(0, b.method("A", "run"));
    b.time(b.thread("exec-1"), frame, 30);
    b.time(b.thread("exec-12"), frame, 40);
    b.time(b.thread("batch-1"), frame, 50);
    b.time(b.thread("7"), frame, 1);
    Profile profile = makeProfile(b.db);
    std::vector<ThreadPool> pools = threadPools(profile);
    ASSERT_EQ(pools.size(), 3u);
    EXPECT_EQ(pools[0].name, "exec-*");
    EXPECT_EQ(pools[0].own, 70);
    EXPECT_EQ(pools[1].name, "batch-1");
    EXPECT_EQ(pools[2].name, "7");
    std::ostringstream out, err;
    Console console(out, err, false, false);
    ReportChoices choices;
    choices.byThread = true;
    choices.threads = 1;
    printReport(console, profile, choices);
    EXPECT_NE(out.str().find("Threads exec-* (2, "), std::string::npos) << out.str();
    EXPECT_EQ(out.str().find("batch"), std::string::npos);
    EXPECT_NE(err.str().find("2 more; --threads"), std::string::npos) << err.str();
}
