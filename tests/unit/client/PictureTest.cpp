// Flame graphs and pprof files, read back by a browser and by pprof itself.
#include "DbBuilder.h"
#include "HostileNames.h"
#include "Programs.h"
#include "SourceFolder.h"
#include "TempDir.h"
#include "client/console/Text.h"
#include "client/picture/FirefoxProfile.h"
#include "client/picture/PicturePage.h"
#include "client/picture/PictureSvg.h"
#include "client/picture/Pprof.h"
#include "client/profile/Report.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace vdk;

namespace {

// So many frames below one another and beside.
void fillLarge(DbBuilder& b, int frames) {
    std::vector<int> methods;
    for (int i = 0; i < 5000; i++) {
        methods.push_back(
            b.method("com.shop.part" + std::to_string(i % 97) + ".Class" + std::to_string(i / 10),
                     i == 0 ? "work" : "method" + std::to_string(i)));
    }
    const int thread = b.thread("main");
    unsigned random = 1;
    std::vector<int> made = {0};
    for (int i = 1; i < frames; i++) {
        random = random * 1664525 + 1013904223;
        // Half below the last one, so that stacks are deep.
        const int parent = i % 60 != 0 ? made.back() : made[(random >> 8) % made.size()];
        random = random * 1664525 + 1013904223;
        made.push_back(b.frame(parent, methods[(random >> 8) % methods.size()]));
    }
    std::vector<long> total(made.size() + 1, 0);
    for (size_t i = made.size(); i-- > 1;) {
        const int index = made[i];
        total[size_t(index)] += 1000;
        const int parent = b.db.frameTable->getRecord(index, false)->parent;
        if (parent > 0) {
            total[size_t(parent)] += total[size_t(index)];
        }
        b.time(thread, index, total[size_t(index)]);
    }
}

Picture pictureOf(DB& db, bool eachThread = false) {
    Picture picture({false, false, eachThread});
    addAll(picture, db, Side::Now, true, {});
    picture.finish();
    picture.title = picture.session = printable(Script);
    return picture;
}

nlohmann::json reportOf(const Profile& profile) {
    std::ostringstream text;
    JsonWriter json(text, false);
    ReportChoices choices;
    choices.top = 1000000;
    choices.tree = false;
    json.beginObject();
    writeReport(json, profile, choices);
    json.endObject();
    nlohmann::json report = nlohmann::json::parse(text.str());
    // As people see them.
    for (nlohmann::json& method : report["methods"]) {
        const std::string name = method["name"];
        const size_t dot = name.compare(0, 2, "C.") == 0 ? 1 : name.rfind('.');
        method["name"] = printable(name.substr(0, dot)) + "." + printable(name.substr(dot + 1));
    }
    return report;
}

std::string found(const char* program) {
    const Result result = run(std::string("command -v ") + program);
    return result.code == 0 ? result.out.substr(0, result.out.find('\n')) : "";
}

} // namespace

class Page : public testing::TestWithParam<bool> {};

TEST_P(Page, hasTheNumbersOfTheReportInABrowser) {
    DbBuilder b;
    GetParam() ? fillLarge(b, 200000) : fillHostile(b);
    Profile profile = makeProfile(b.db);
    nlohmann::json report = reportOf(profile);
    if (!GetParam()) {
        Profile ofThread = profile;
        StackSelector(ofThread, {{"http-1"}, {}, {}, {}}).apply(ofThread);
        report["thread"] = "http-1";
        report["ofThread"] = reportOf(ofThread)["methods"];
    }
    TempDir dir;
    std::ofstream page(dir.file("page.html"));
    writePage(page, pictureOf(b.db));
    page.close();
    dir.write("report.json", report.dump());
    // Without a browser: no tag but those of the page itself, and its size.
    const std::string text = TempDir::read(dir.file("page.html"));
    EXPECT_EQ(text.find("<img"), std::string::npos);
    EXPECT_EQ(text.find("http"), text.find("http-equiv")) << "it names no address";
    const size_t head = text.find("id=\"head\">"), data = text.find("</script>", head);
    EXPECT_NE(text.find("id=\"data0\">", data), std::string::npos);
    EXPECT_TRUE(nlohmann::json::accept(text.substr(head + 10, data - head - 10)));
    if (!GetParam()) {
        EXPECT_LT(text.size() - (data - head), 80000u) << "beside the data";
    } else {
        EXPECT_LT(text.size(), 20u << 20);
    }
    const std::string chromium = found("chromium"), node = found("node");
    if (chromium.empty() || node.empty()) {
        GTEST_SKIP() << "no chromium, or no node: only the text of the page was looked at";
    }
    const Result checked =
        run(node + " " + sourceFolder() + "/tests/pages/check.mjs " + chromium + " " +
            dir.file("page.html") + " " + dir.file("report.json") + " 2>&1");
    EXPECT_EQ(checked.code, 0) << checked.out.substr(0, 4000);
    std::cout << checked.out.substr(0, 200);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Page, testing::Values(false, true),
                         [](const auto& info) { return info.param ? "large" : "hostile"; });

// Hostile names stay text, and the same data gives the same bytes.
TEST(Svg, isWellFormedWhateverMethodsAreCalled) {
    std::string pages[2];
    for (std::string& page : pages) {
        DbBuilder b;
        fillHostile(b);
        Picture picture({false, false});
        addAll(picture, b.db, Side::Now, true, {});
        picture.finish();
        picture.title = Script;
        std::ostringstream out;
        writeSvg(out, picture, {2, 1});
        page = out.str();
    }
    EXPECT_EQ(pages[0], pages[1]);
    EXPECT_EQ(std::string::npos, pages[0].find("<script"));
    EXPECT_NE(std::string::npos, pages[0].find("com.a.Main.work, "));
    const TempDir dir;
    dir.write("a.svg", pages[0]);
    if (run("python3 --version").code == 0) {
        const std::string check = "import sys,xml.dom.minidom as m; m.parse(sys.argv[1])";
        EXPECT_EQ(0, run("python3 -c '" + check + "' " + dir.file("a.svg") + " 2>&1").code);
    }
}

TEST(Pprof, isReadByPprofItself) {
    if (found("go").empty()) {
        GTEST_SKIP() << "no go";
    }
    DbBuilder b;
    fillHostile(b);
    TempDir dir;
    std::ofstream file(dir.file("a.pb.gz"), std::ios::binary);
    writePprof(file, pictureOf(b.db), 1700000000000);
    file.close();
    const Result top =
        run("go tool pprof -top -nodecount=3 -unit=ms " + dir.file("a.pb.gz") + " 2>&1");
    EXPECT_EQ(top.code, 0) << top.out;
    // Own and total of the method that also calls itself; all in all 95 ms, and 7 of hostile names.
    EXPECT_NE(top.out.find("Type: cpu"), std::string::npos) << top.out;
    EXPECT_NE(top.out.find("of 95ms total"), std::string::npos) << top.out;
    EXPECT_NE(top.out.find("65ms"), std::string::npos) << top.out;
    const Result lines = run("go tool pprof -lines -top -unit=ms " + dir.file("a.pb.gz") + " 2>&1");
    EXPECT_NE(lines.out.find("com.a.Main.work :17"), std::string::npos) << lines.out;
    const Result raw = run("go tool pprof -raw " + dir.file("a.pb.gz") + " 2>&1");
    EXPECT_NE(raw.out.find("thread:[http-1]"), std::string::npos) << raw.out;
}

TEST(FirefoxProfile, hasTheNumbersOfTheReportByTheRulesOfItsSchema) {
    const std::string node = found("node");
    if (node.empty()) {
        GTEST_SKIP() << "no node";
    }
    DbBuilder b;
    fillHostile(b, true);
    // A second thread of a name is another thread.
    b.time(b.thread("http-1"), b.stack("com.a.Main.run"), 3000000);
    TempDir dir;
    std::ofstream file(dir.file("a.firefox.json"));
    writeFirefoxProfile(file, pictureOf(b.db, true), b.db, 1700000000000);
    file.close();
    const Result checked = run(node + " " + sourceFolder() + "/tests/forms/firefox.mjs " +
                               dir.file("a.firefox.json") + " 2>&1");
    ASSERT_EQ(checked.code, 0) << checked.out.substr(0, 4000);
    const nlohmann::json seen = nlohmann::json::parse(checked.out)["processes"]["cpu"];
    const Profile profile = makeProfile(b.db);
    EXPECT_EQ(seen["total"], profile.total());
    EXPECT_EQ(seen["weightType"], "tracing-ms");
    EXPECT_EQ(seen["threads"].size(), 3u);
    // By name, as names of bytes that are no text are shown as one.
    std::map<std::string, int64_t> expected, own;
    for (const HotMethod& method : hotMethods(makeCallTree(profile, {}))) {
        const ProfileMethod& named = profile.methods[size_t(method.method)];
        expected[printable(named.className) + "." + printable(named.name)] += method.own;
    }
    for (const auto& [name, sums] : seen["functions"].items()) {
        own[name] = sums["own"];
    }
    EXPECT_EQ(own, expected);
    EXPECT_EQ(seen["functions"]["com.a.Main.work"]["total"], 65000000);
}

// Threads of a pool become one, and small call paths go to their callers: the sums stay.
TEST(FirefoxProfile, keepsItsSumsWhereItIsMadeSmaller) {
    DbBuilder b;
    for (int i = 1; i <= 40; i++) {
        const int thread = b.thread("http-" + std::to_string(i));
        b.time(thread, b.stack("com.a.Main.run;com.a.Main.work" + std::to_string(i)), i);
        b.time(thread, b.stack("com.a.Main.run;com.a.Main.work"), 1000);
    }
    struct Case {
        size_t mostBytes, threads, stacks;
    };
    for (const Case& each : {Case{1 << 20, 40, 120}, Case{10000, 1, 42}, Case{1600, 1, 2}}) {
        std::ostringstream out;
        writeFirefoxProfile(out, pictureOf(b.db, true), b.db, 1, each.mostBytes);
        const nlohmann::json threads = nlohmann::json::parse(out.str())["threads"];
        EXPECT_EQ(threads.size(), each.threads);
        size_t stacks = 0;
        double sum = 0;
        for (const nlohmann::json& thread : threads) {
            stacks += thread["stackTable"]["length"].get<size_t>();
            for (const double weight : thread["samples"]["weight"]) {
                sum += weight;
            }
        }
        EXPECT_EQ(stacks, each.stacks);
        EXPECT_NEAR(sum, (40000 + 820) / 1e6, 1e-9);
    }
}
