// Queries over a heap, beside what the reports say of it.
#include "HeapBuilder.h"
#include "RunClient.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <random>
#include <sqlite3.h>

using namespace vdk;
using nlohmann::json;

namespace {

json rows(const std::string& file, const std::string& query) {
    const Outcome outcome = client({"heap", file, "sql", query, "--json"});
    EXPECT_EQ(0, outcome.code) << query << ": " << outcome.err;
    return json::parse(outcome.out, nullptr, false)["rows"];
}

json report(const std::string& file, std::vector<std::string> words) {
    words.insert(words.begin(), {"heap", file});
    words.push_back("--json");
    return json::parse(client(words).out, nullptr, false);
}

// Objects that refer to each other at random, a thread with a local, text and numbers.
std::string randomHeap(uint32_t seed) {
    std::mt19937 random(seed);
    HeapBuilder b;
    const uint64_t item =
        b.type("demo/Item", 1, {{"next", 'L'}, {"name", 'L'}, {"count", 'I'}, {"ratio", 'D'}},
               {{"LIMIT", 'J', 1000}, {"first", 'L', 0}});
    const uint64_t other = b.type("demo/Other", item, {{"extra", 'L'}});
    std::vector<uint64_t> all = {b.text("seed")};
    for (uint64_t i = 0; i < 60; i++) {
        const uint64_t half = 0x3fe0000000000000;
        const auto some = [&] { return random() % 4 == 0 ? 0 : all[random() % all.size()]; };
        all.push_back(i % 3 == 0 ? b.make(other, {some(), some(), some(), i, half})
                      : i % 3 == 1
                          ? b.make(item, {some(), b.text("t" + std::to_string(i)), i, half})
                          : b.array({some(), some(), some()}));
    }
    b.thread(b.make(b.type("java/lang/Thread", 1, {{"name", 'L'}}), {b.text("worker")}), 1,
             "demo/Main", {"leaf", "main"});
    b.local(all[60], 1, 1);
    b.root(all[30]);
    b.root(all[45]);
    return b.file();
}

} // namespace

TEST(HeapSql, answersEqualTheReports) {
    const TemporaryFile file(randomHeap(7));
    const std::string byClass = "select c.name class, count(*) count, sum(shallow) shallow from "
                                "objects join classes c using (class) group by 1 order by 1";
    json histogram = json::object();
    const json reported = report(file.path, {"histogram"});
    for (const json& row : reported["classes"]) {
        histogram[row["class"].get<std::string>()] = {row["count"], row["shallow"]};
    }
    json asked = json::object();
    for (const json& row : rows(file.path, byClass)) {
        asked[row["class"].get<std::string>()] = {row["count"], row["shallow"]};
    }
    EXPECT_EQ(histogram, asked);

    for (const json& object :
         rows(file.path, "select id, object, retained, label(object) label from objects "
                         "where class_name(object) like 'demo.%' and reached")) {
        const std::string id = object["id"], row = object["object"].dump();
        const json shown = report(file.path, {"show", id});
        EXPECT_EQ(shown["object"]["retained"], object["retained"]) << id;
        const json dominator = rows(file.path, "select d.id from dominators t join objects d on "
                                               "t.dominator = d.object where t.object = " +
                                                   row);
        EXPECT_EQ(shown["dominator"].is_null(), dominator.empty());
        if (!dominator.empty()) {
            EXPECT_EQ(shown["dominator"]["id"], dominator[0]["id"]);
        }
        // By the list of referrers, and by looking at all references.
        const std::string columns = "select object, position from refs where ";
        EXPECT_EQ(rows(file.path, columns + "target = " + row + " order by 1, 2"),
                  rows(file.path, columns + "+target = " + row + " order by 1, 2"));
        const std::string children = "select object from dominators where ";
        EXPECT_EQ(rows(file.path, children + "dominator = " + row + " order by 1"),
                  rows(file.path, children + "+dominator = " + row + " order by 1"));
        EXPECT_EQ(report(file.path, {"referrers", id})["references"].size(),
                  rows(file.path, columns + "target = '" + row + "'").size());
    }
    // As rows come, and sorted.
    for (const std::string table : {"objects", "fields", "refs", "dominators", "strings"}) {
        const std::string counted = "select object, count(*) n from " + table + " group by ";
        EXPECT_EQ(rows(file.path, counted + "+object"), rows(file.path, counted + "object"));
        EXPECT_EQ(rows(file.path, counted + "object order by -object"),
                  rows(file.path, counted + "object order by object desc"));
    }
}

TEST(HeapSql, fieldsTextsThreadsAndLocalsCanBeAsked) {
    const TemporaryFile file(randomHeap(8));
    static const struct {
        const char* query;
        const char* rows;
    } cases[] = {
        {"select field(object, 'count') a, field(object, 'ratio') b, text(field(object, 'name')) "
         "c, "
         "field(object, 'nosuch') d from objects where field(object, 'count') = 4 and "
         "class_name(object) = 'demo.Item'",
         R"([{"a":4,"b":0.5,"c":"t4","d":null}])"},
        {"select f.name, f.type, value, k.name declares from fields f join objects using (object) "
         "join classes k on f.class = k.class where field(object, 'count') = 4 and "
         "f.name in ('count', 'ratio') order by 1",
         R"([{"name":"count","type":"int","value":4,"declares":"demo.Item"},)"
         R"({"name":"ratio","type":"double","value":0.5,"declares":"demo.Item"}])"},
        {"select f.name, value from fields f where object = (select class from classes where "
         "name = 'demo.Item') and target is null order by 1",
         R"([{"name":"LIMIT","value":1000},{"name":"first","value":null}])"},
        {"select count(*) n from strings where text = 't4'", R"([{"n":1}])"},
        {"select t.name, depth, frame from threads t join frames using (thread) order by depth",
         R"([{"name":"worker","depth":0,"frame":"demo.Main.leaf"},)"
         R"({"name":"worker","depth":1,"frame":"demo.Main.main"}])"},
        {"select kind, depth from roots where kind like 'local%'",
         R"([{"kind":"local variable","depth":1}])"},
        {"select group_concat(char(value), '') s from elements where object = (select target from "
         "refs where object = (select object from strings where text = 't4') and name = 'value')",
         R"([{"s":"t4"}])"},
        {"select count(*) n from \"references\" where target is not null and object = (select "
         "object from objects where id = '0x1')",
         R"([{"n":0}])"},
        {"select 1 x, 2 x, 'a' y", R"([{"x":1,"x_2":2,"y":"a"}])"},
    };
    for (const auto& c : cases) {
        json found = rows(file.path, c.query);
        for (json& row : found) {
            if (row.contains("frame")) { // with the place in the source
                row["frame"] = row["frame"].get<std::string>().substr(0, 14);
            }
        }
        EXPECT_EQ(json::parse(c.rows), found) << c.query;
    }
}

TEST(HeapSql, queriesOnlyRead) {
    const TemporaryFile file(randomHeap(9));
    static const struct {
        const char* query;
        int code;
    } cases[] = {
        {"create table x (a)", 1},
        {"attach 'stolen.db' as s", 1},
        {"pragma table_list", 1},
        {"delete from objects", 2},
        {"select load_extension('x')", 2},
        {"vacuum into 'stolen.db'", 1},
        {"select 1; select 2", 2},
        {"selec 1", 2},
        {"select nothere from objects", 2},
        {"", 2},
        {"select * from objects where object = 9223372036854775807", 0},
        {"select * from frames where thread = -1", 0},
        {"select * from refs where target = 99999999999", 0},
        {"select label(-1), field(1e300, 'a'), text('x'), class_name(null)", 0},
    };
    for (const auto& c : cases) {
        const Outcome outcome = client({"heap", file.path, "sql", c.query});
        EXPECT_EQ(c.code, outcome.code) << c.query << ": " << outcome.err;
        EXPECT_EQ(c.code == 0, outcome.err.empty()) << c.query << ": " << outcome.err;
    }
    const Outcome cut = client({"heap", file.path, "sql", "select 1 from objects", "--top", "2"});
    EXPECT_NE(std::string::npos, cut.err.find("more than 2 rows"));
}

TEST(HeapSql, aCopyHasTheSameRows) {
    const TemporaryFile file(randomHeap(10));
    const TemporaryFile copy("");
    ASSERT_EQ(0, client({"heap", file.path, "export", "--sqlite", copy.path}).code);
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(copy.path.c_str(), &database));
    for (const std::string table :
         {"objects", "classes", "fields", "refs", "dominators", "roots"}) {
        const std::string query = "select count(*) n from " + table;
        sqlite3_stmt* statement = nullptr;
        ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(database, query.c_str(), -1, &statement, nullptr));
        ASSERT_EQ(SQLITE_ROW, sqlite3_step(statement));
        EXPECT_EQ(rows(file.path, query)[0]["n"], sqlite3_column_int64(statement, 0)) << table;
        sqlite3_finalize(statement);
    }
    sqlite3_close(database);
    EXPECT_EQ(2, client({"heap", file.path, "export"}).code);
    EXPECT_EQ(2, client({"heap", file.path, "export", "nosuch", "--sqlite", copy.path}).code);
    EXPECT_EQ(8, client({"heap", file.path, "export", "--sqlite", "/nonexistent/x"}).code);
}
