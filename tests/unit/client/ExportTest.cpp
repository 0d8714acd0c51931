#include "client/profile/Export.h"

#include "DbBuilder.h"
#include "client/profile/GeneratedNames.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

using namespace vdk;

namespace {

// main -> work (60 ms of 100) in one thread, main alone (5 ms) in another.
struct Sample {
    Sample() {
        int one = b.thread("main"), two = b.thread("pool-1;\033\xc2\x9b\u202ex");
        int main = b.frame(0, b.method("com.a.Main", "main"));
        int work = b.frame(main, b.method("com.a.Main$$Lambda$14/0x00007f12", "work"));
        b.time(one, main, 100000000);
        b.time(one, work, 60000000);
        b.time(two, main, 5000400);
        profile = makeProfile(b.db);
    }
    DbBuilder b;
    Profile profile;
};

std::string collapsed(const Profile& profile, const ExportChoices& choices) {
    std::ostringstream out;
    writeCollapsed(out, profile, choices);
    return out.str();
}

} // namespace

TEST(Export, collapsedHasOneLineAStackWithWholeCounts) {
    Sample sample;
    EXPECT_EQ(collapsed(sample.profile, {}), "com.a.Main.main 45000\n"
                                             "com.a.Main.main;com.a.Main$$Lambda.work 60000\n");
}

TEST(Export, collapsedInNanosecondsLosesNothing) {
    Sample sample;
    ExportChoices choices;
    choices.unitNs = 1;
    choices.rawNames = true;
    EXPECT_EQ(collapsed(sample.profile, choices),
              "com.a.Main.main 45000400\n"
              "com.a.Main.main;com.a.Main$$Lambda$14/0x00007f12.work 60000000\n");
}

TEST(Export, collapsedByThreadBeginsWithTheThread) {
    Sample sample;
    ExportChoices choices;
    choices.byThread = true;
    choices.unitNs = 1000000;
    EXPECT_EQ(collapsed(sample.profile, choices),
              "[main trn=3];com.a.Main.main 40\n"
              "[main trn=3];com.a.Main.main;com.a.Main$$Lambda.work 60\n"
              "[pool-1::::x trn=4];com.a.Main.main 5\n");
}

TEST(Export, namesOfGeneratedClassesLoseTheirNumbers) {
    static const struct {
        const char* name;
        const char* clean;
    } cases[] = {
        {"A$$Lambda$14/0x00007f12.run", "A$$Lambda.run"},
        {"A$$Lambda/0x00007f12abc.run", "A$$Lambda.run"},
        {"A$$Lambda$1.0x00007f12abc.run", "A$$Lambda.run"},
        {"A$$Lambda+0x1f/0x2.run", "A$$Lambda.run"},
        {"java.lang.invoke.LambdaForm$DMH/0x00007.invokeStatic",
         "java.lang.invoke.LambdaForm$DMH.invokeStatic"},
        {"sun.reflect.GeneratedMethodAccessor123.invoke",
         "sun.reflect.GeneratedMethodAccessor.invoke"},
        {"com.sun.proxy.$Proxy12.call", "com.sun.proxy.$Proxy.call"},
        {"com.a.Main$1.run", "com.a.Main$1.run"},
        {"com.a.Hex0x12.run", "com.a.Hex0x12.run"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(cleanFrameName(c.name), c.clean);
    }
}

TEST(Export, speedscopeHasOneSampledProfileAThread) {
    Sample sample;
    ExportChoices choices;
    choices.name = "demo";
    std::ostringstream out;
    writeSpeedscope(out, sample.profile, choices);
    auto json = nlohmann::json::parse(out.str());
    EXPECT_EQ(json["$schema"], "https://www.speedscope.app/file-format-schema.json");
    EXPECT_EQ(json["name"], "demo");
    ASSERT_EQ(json["profiles"].size(), 2u);
    const auto& frames = json["shared"]["frames"];
    const auto& main = json["profiles"][0];
    EXPECT_EQ(main["type"], "sampled");
    EXPECT_EQ(main["unit"], "nanoseconds");
    EXPECT_EQ(main["name"], "main (trn 3)");
    EXPECT_EQ(main["startValue"], 0);
    EXPECT_EQ(main["endValue"], 100000000);
    ASSERT_EQ(main["samples"].size(), 2u);
    EXPECT_EQ(main["weights"], (nlohmann::json{40000000, 60000000}));
    int64_t sum = 0;
    for (const auto& profile : json["profiles"]) {
        ASSERT_EQ(profile["samples"].size(), profile["weights"].size());
        for (const auto& weight : profile["weights"]) {
            sum += weight.get<int64_t>();
        }
        for (const auto& stack : profile["samples"]) {
            for (const auto& frame : stack) {
                EXPECT_LT(frame.get<size_t>(), frames.size());
            }
        }
    }
    EXPECT_EQ(sum, sample.profile.total());
    // Root first.
    EXPECT_EQ(frames[main["samples"][1][0].get<size_t>()]["name"], "com.a.Main.main");
    EXPECT_EQ(frames[main["samples"][1][1].get<size_t>()]["name"], "com.a.Main$$Lambda.work");
}

TEST(Export, namesThatAreNoUtf8StillGiveValidJson) {
    DbBuilder b;
    int t = b.thread("x\xff\"\n");
    b.time(t, b.frame(0, b.method("A\xfe", "m")), 1000);
    std::ostringstream out;
    writeSpeedscope(out, makeProfile(b.db), {});
    EXPECT_TRUE(nlohmann::json::accept(out.str())) << out.str();
}
