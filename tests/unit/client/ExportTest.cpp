#include "client/profile/Export.h"

#include "DbBuilder.h"
#include "client/profile/GeneratedNames.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

using namespace vdk;

namespace {

// main -> work (60 ms of 100) in one thread, main alone (5 ms) in another.
struct Sample {
    Sample() {
        b.sample("main", "com.a.Main.main", 100000000);
        b.sample("main", "com.a.Main.main;com.a.Main$$Lambda$14/0x00007f12.work", 60000000);
        b.sample("pool-1;\033\xc2\x9b\u202ex", "com.a.Main.main", 5000400);
        profile = makeProfile(b.db);
    }
    DbBuilder b;
    Profile profile;
};

} // namespace

TEST(Export, collapsedHasOneLineAStackInTheUnitThatIsAskedFor) {
    const struct {
        int64_t unitNs;
        bool rawNames, byThread;
        const char* expected;
    } cases[] = {
        {1000, false, false,
         "com.a.Main.main 45000\n"
         "com.a.Main.main;com.a.Main$$Lambda.work 60000\n"},
        {1, true, false,
         "com.a.Main.main 45000400\n"
         "com.a.Main.main;com.a.Main$$Lambda$14/0x00007f12.work 60000000\n"},
        {1000000, false, true,
         "[main trn=3];com.a.Main.main 40\n"
         "[main trn=3];com.a.Main.main;com.a.Main$$Lambda.work 60\n"
         "[pool-1::::x trn=4];com.a.Main.main 5\n"},
    };
    for (const auto& c : cases) {
        Sample sample;
        ExportChoices choices;
        EXPECT_EQ(choices.unitNs, 1000);
        choices.unitNs = c.unitNs;
        choices.rawNames = c.rawNames;
        choices.byThread = c.byThread;
        std::ostringstream out;
        writeCollapsed(out, sample.profile, choices);
        EXPECT_EQ(out.str(), c.expected);
    }
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
    const auto shown = [](const nlohmann::json& part) {
        std::string text = part.dump();
        std::replace(text.begin(), text.end(), '"', '\'');
        return text;
    };
    // Frames are numbered as they come; stacks begin with the root.
    EXPECT_EQ(shown(json["shared"]["frames"]),
              "[{'name':'com.a.Main.main'},{'name':'com.a.Main$$Lambda.work'}]");
    ASSERT_EQ(json["profiles"].size(), 2u);
    EXPECT_EQ(shown(json["profiles"][0]),
              "{'endValue':100000000,'name':'main (trn 3)','samples':[[0],[0,1]],'startValue':0,"
              "'type':'sampled','unit':'nanoseconds','weights':[40000000,60000000]}");
    EXPECT_EQ(shown(json["profiles"][1]["weights"]), "[5000400]");
}

TEST(Export, namesThatAreNoUtf8StillGiveValidJson) {
    DbBuilder b;
    b.sample("x\xff\"\n", "A\xfe.m", 1000);
    std::ostringstream out;
    writeSpeedscope(out, makeProfile(b.db), {});
    EXPECT_TRUE(nlohmann::json::accept(out.str())) << out.str();
}
