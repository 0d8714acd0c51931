// Two recordings compared: values, what is new and gone, and limits.
#include "DbBuilder.h"
#include "Expect.h"
#include "client/diff/ProfileDiff.h"

#include <gtest/gtest.h>

using namespace vdk;

namespace {

// Before: work 60 ms of main's 100, old 30. Now: work 90 in two calls of itself, fresh 20.
std::vector<DiffSection> compared(double factor) {
    DbBuilder before, now;
    before.sample("main", "A.main", 100000000);
    before.sample("main", "A.main;A.work", 60000000);
    before.sample("main", "A.main;A.old", 30000000);
    now.sample("other", "A.main", 120000000);
    now.sample("other", "A.main;A.work", 90000000);
    now.sample("other", "A.main;A.work;A.work", 50000000);
    now.sample("other", "A.main;A.fresh", 20000000);
    Picture picture({});
    addAll(picture, before.db, Side::Base, true, {});
    addAll(picture, now.db, Side::Now, true, {});
    picture.finish();
    picture.trees.at(0).baseFactor = factor;
    std::vector<DiffSection> sections = diffSections(picture);
    sortByChange(sections.at(0));
    return sections;
}

std::string shown(const DiffSection& section, const std::vector<DiffRow>& rows) {
    std::string text;
    for (const DiffRow& row : rows) {
        const double base = double(row.base.own) * section.factor;
        text += row.name + " " + amountOf(base, "ns") + " " + amountOf(double(row.now.own), "ns") +
                " " + growthOf(base, double(row.now.own)) + " of " +
                amountOf(double(row.now.total), "ns") + "\n";
    }
    return text;
}

} // namespace

TEST(Diff, methodsAndPathsAreMatchedByName) {
    const std::vector<DiffSection> sections = compared(1);
    ASSERT_EQ(sections.size(), 1u);
    EXPECT_EQ(sections[0].base, 100000000);
    EXPECT_EQ(sections[0].now, 120000000);
    EXPECT_EQ(shown(sections[0], sections[0].rows), "A.old 30.0 ms 0 us gone of 0 us\n"
                                                    "A.work 60.0 ms 90.0 ms +50.0% of 90.0 ms\n"
                                                    "A.fresh 0 us 20.0 ms new of 20.0 ms\n"
                                                    "A.main 10.0 ms 10.0 ms +0.0% of 120.0 ms\n");
    EXPECT_EQ(shown(sections[0], {sections[0].paths[0]}),
              "A.main > A.work > A.work 0 us 50.0 ms new of 50.0 ms\n");
}

TEST(Diff, limitsGoByComparableValuesAndTellTheReason) {
    const struct {
        double factor;
        const char* limit;
        bool isOfGrowth;
        const char* expected; // the beginning of the one reason; empty for none
    } cases[] = {
        {1, "A.work:49%", true, "CPU time: A.work grew by 50.0 %, from 60.0 ms to 90.0 ms"},
        {1, "A.work:50%", true, ""},
        {1.5, "A.*:0", true, "CPU time: A.fresh is new with 20.0 ms"},
        {1, "total:19.9%", true, "CPU time: the total grew by 20.0 %"},
        {1, "total:20%", true, ""},
        {1, "A.old:0%", true, ""},
        {1, "A.work:74%", false, "CPU time: A.work itself has 75.0 % of all"},
        {1, "A:80%", false, ""},
    };
    for (const auto& c : cases) {
        const auto reasons =
            brokenLimits(compared(c.factor), {diffLimit(c.limit, c.isOfGrowth)}, 1);
        ASSERT_EQ(reasons.size(), *c.expected ? 1u : 0u) << c.limit;
        EXPECT_EQ(reasons.empty() ? 0 : reasons[0].find(c.expected), 0u) << reasons[0];
    }
    // What is small at both sides is not looked at.
    EXPECT_TRUE(brokenLimits(compared(1), {diffLimit("A.fresh:1%", true)}, 20).empty());
    for (const char* text : {"A", ":5%", "A:", "A:x", "A:-1%", "A:5%%"}) {
        EXPECT_EQ(wordOf([&] { diffLimit(text, true); }), "usage") << text;
    }
    EXPECT_EQ(wordOf([] { factorFor(Per::Call, {}, {}, {}); }), "diff.per");
    EXPECT_EQ(factorFor(Per::Second, {2, 0, 0}, {3, 0, 0}, {}), 1.5);
}
