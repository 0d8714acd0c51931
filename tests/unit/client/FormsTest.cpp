// Recordings in the forms of other tools, read back by those tools.
#include "DbBuilder.h"
#include "HostileNames.h"
#include "JavaProcess.h"
#include "RunClient.h"
#include "SourceFolder.h"
#include "client/commands/DataFile.h"
#include "client/console/Text.h"
#include "client/profile/CallTree.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sqlite3.h>

using namespace vdk;
using nlohmann::json;

namespace {

// Tables made by hand as the source of a file.
class Written {
public:
    explicit Written(DB& db) {
        source.owned.reset(&db);
        source.name = source.session = Script;
        source.captureTimeMs = 1700000000000;
    }
    ~Written() { static_cast<void>(source.owned.release()); }
    Written(const Written&) = delete;
    Written& operator=(const Written&) = delete;

    std::string write(Form form, const FormChoices& choices = {}, const char* packing = "") {
        const std::string path =
            dir.file(std::string("a") + infoOf(form).endings.front() + packing);
        std::ostringstream out, err;
        Console console(out, err, false, false);
        const int64_t bytes = writeForm(console, source, form, path, choices).bytes;
        EXPECT_EQ(bytes, int64_t(std::filesystem::file_size(path))) << infoOf(form).name;
        return path;
    }

    const TempDir dir;
    DataSource source;
};

using Row = std::vector<std::string>;

std::vector<Row> query(const std::string& file, const std::string& sql) {
    sqlite3* database = nullptr;
    std::vector<Row> rows;
    char* message = nullptr;
    EXPECT_EQ(SQLITE_OK, sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READONLY, nullptr));
    const auto take = [](void* to, int count, char** texts, char**) {
        Row row;
        for (int i = 0; i < count; i++) {
            row.push_back(texts[i] ? texts[i] : "");
        }
        static_cast<std::vector<Row>*>(to)->push_back(row);
        return 0;
    };
    EXPECT_EQ(SQLITE_OK, sqlite3_exec(database, sql.c_str(), take, &rows, &message))
        << sql << ": " << (message ? message : "");
    sqlite3_free(message);
    sqlite3_close(database);
    return rows;
}

std::map<std::string, int64_t> ownTimes(DB& db) {
    std::map<std::string, int64_t> own;
    const Profile profile = makeProfile(db);
    for (const HotMethod& method : hotMethods(makeCallTree(profile, {}))) {
        own[wholeText(methodName(profile, method.method, false))] += method.own;
    }
    return own;
}

} // namespace

// What each form's own reader makes of names that try to break it; pages, pprof and the Firefox
// Profiler have tests of their own.
TEST(Forms, hostileNamesAreNamesInEach) {
    DbBuilder b;
    fillHostile(b, true);
    for (const char* name : {"methods", "sqlite_master", "a\"; DROP TABLE methods; --"}) {
        ASSERT_GE(b.db.createUserTableByDescription(
                      ZString((std::string(name) + "\n2\nrow\n2\n\"x\xff\n1\n").c_str())),
                  0);
    }
    Written written(b.db);
    const std::map<std::string, int64_t> expected = ownTimes(b.db);

    const std::string database = written.write(Form::Sqlite);
    EXPECT_EQ(query(database, "PRAGMA integrity_check"), std::vector<Row>({{"ok"}}));
    std::map<std::string, int64_t> own;
    for (const Row& row : query(database, "SELECT name, own_ns FROM methods")) {
        own[row[0]] += std::stoll(row[1]);
    }
    EXPECT_EQ(own, expected);
    EXPECT_EQ(query(database, "SELECT * FROM \"methods_2\", \"_sqlite_master\", "
                              "\"a\"\"; DROP TABLE methods; --\"")
                  .size(),
              0u);
    EXPECT_EQ(query(database, "SELECT length(path) FROM call_paths WHERE method LIKE 'C.nnn%'"),
              std::vector<Row>({{std::to_string(100000 + 2 + strlen("com.a.Main.run;"))}}));

    if (run("command -v python3 >/dev/null").code == 0) {
        written.dir.write("read.py", "import csv, json, sys\ncsv.field_size_limit(10**9)\n"
                                     "rows = list(csv.DictReader(open(sys.argv[1], newline='', "
                                     "encoding='utf-8')))\n"
                                     "print(json.dumps([[r['name'], int(r['own_ns'])] for r in "
                                     "rows]))\n");
        const Result read =
            run("python3 " + written.dir.file("read.py") + " " + written.write(Form::Csv));
        own.clear();
        for (const json& row : json::parse(read.out)) {
            own[row[0].get<std::string>()] += row[1].get<int64_t>();
        }
        EXPECT_EQ(own, expected);
    }
    const std::string metrics = written.write(Form::OpenMetrics);
    if (run("command -v promtool >/dev/null").code == 0) {
        const Result read = run("promtool tsdb create-blocks-from openmetrics " + metrics + " " +
                                written.dir.file("blocks") + " 2>&1");
        EXPECT_EQ(0, read.code) << read.out;
    }
    for (Form form : {Form::Speedscope, Form::Json}) {
        EXPECT_TRUE(json::accept(TempDir::read(written.write(form)))) << infoOf(form).name;
    }
    for (Form form : {Form::Collapsed, Form::Speedscope, Form::Firefox}) {
        const std::string plain = written.write(form);
        EXPECT_EQ(0, run("zcat " + written.write(form, {}, ".gz") + " | cmp - " + plain).code)
            << infoOf(form).name;
    }
    std::istringstream lines(TempDir::read(written.write(Form::Collapsed)));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_NE(line.find_last_of(' '), std::string::npos);
        EXPECT_NE(line.find_last_not_of("0123456789"), line.size() - 1);
    }
}

namespace {

// Threads that compute, allocate, wait for one another and throw.
constexpr char Program[] = R"(
public class Busy {
    static final Object lock = new Object();
    static volatile Object sink;
    static int fib(int n) { return n < 2 ? n : fib(n - 1) + fib(n - 2); }
    public static void main(String[] args) throws Exception {
        final long end = System.currentTimeMillis() + 2000;
        for (int i = 0; i < 4; i++) {
            new Thread(new Runnable() { public void run() {
                for (int n = 0; System.currentTimeMillis() < end; n++) {
                    sink = new byte[1000 + n % 5000];
                    synchronized (lock) { fib(20); }
                    fib(20);
                    try { throw new IllegalStateException("x"); } catch (IllegalStateException e) { sink = e; }
                }
            } }, "worker-" + i).start();
        }
    }
})";

// What a report says, as rows of texts like those of the query beside it.
void addRows(const json& at, const std::string& path, std::multiset<Row>& rows) {
    const std::string here = path + at["name"].get<std::string>();
    if (at["ownNs"] != 0) {
        rows.insert({here, std::to_string(at["ownNs"].get<int64_t>())});
    }
    for (const json& child : at.value("children", json::array())) {
        addRows(child, here + ";", rows);
    }
}

std::multiset<Row> rowsOf(const json& report, const std::string& command) {
    std::multiset<Row> rows;
    const auto text = [](const json& value) {
        return value.is_string() ? value.get<std::string>() : value.dump();
    };
    for (const json& method : report.value("methods", json::array())) {
        rows.insert({method["name"], text(method["ownNs"]), text(method["totalNs"])});
    }
    for (const json& root : report.value("tree", json::array())) {
        addRows(root, "", rows);
    }
    for (const json& thread : report.value("threads", json::array())) {
        rows.insert({text(thread["trn"]), text(thread["totalNs"])});
    }
    const size_t by = command.find("--by ");
    const std::string key = by == std::string::npos ? "" : command.substr(by + 5);
    for (const auto& [name, section] : report.items()) {
        if (!section.is_object() || !section.contains("kinds")) {
            continue;
        }
        for (const json& kind : section["kinds"]) {
            for (const json& group : kind["groups"]) {
                Row row;
                if (kind["kind"].is_string()) {
                    row.push_back(kind["kind"]);
                }
                row.push_back(group[key]);
                for (const char* sum : {"cpuNs", "timeNs", "bytes", "objects", "count"}) {
                    if (group.contains(sum)) {
                        row.push_back(text(group[sum]));
                    }
                }
                rows.insert(row);
            }
        }
    }
    return rows;
}

} // namespace

TEST(Forms, queriesOfTheDocumentationGiveTheNumbersOfReports) {
    const std::vector<std::string> homes = jdks("17");
    if (homes.empty() || builtFile("libvdkagent.so").empty()) {
        GTEST_SKIP() << "no JDK, or no agent";
    }
    const TempDir dir;
    dir.write("Busy.java", Program);
    const std::string snapshot = dir.file("a.snapshot"), database = dir.file("a.sqlite");
    const Result recorded =
        run(homes[0] + "/bin/javac -d " + dir.path + " " + dir.file("Busy.java") + " 2>&1 && " +
            builtFile("vdk") + " record --sample --alloc=16k --locks --exceptions --out " +
            snapshot + " -- " + homes[0] + "/bin/java -cp " + dir.path + " Busy 2>&1");
    ASSERT_EQ(0, recorded.code) << recorded.out;
    ASSERT_EQ(0, client({"export", snapshot, "--out", database}).code);
    const std::string text = TempDir::read(sourceFolder() + "/docs/sqlite.md");
    const std::string fence = "```sql\n-- vdk ";
    int count = 0;
    for (size_t at = text.find(fence); at != std::string::npos;
         at = text.find(fence, at), count++) {
        at += fence.size();
        const size_t line = text.find('\n', at), end = text.find("```", line);
        const std::string command = text.substr(at, line - at);
        std::istringstream words(command + " --json --top 1000000 --min-percent 0 --depth 1000000");
        std::vector<std::string> arguments;
        for (std::string word; words >> word;) {
            arguments.push_back(word);
        }
        arguments.insert(arguments.begin() + 1, snapshot);
        const Outcome report = client(arguments);
        ASSERT_EQ(0, report.code) << command << report.err;
        const std::vector<Row> found = query(database, text.substr(line, end - line));
        EXPECT_FALSE(found.empty()) << command;
        EXPECT_EQ(std::multiset<Row>(found.begin(), found.end()),
                  rowsOf(json::parse(report.out), command))
            << command;
    }
    EXPECT_EQ(10, count);
    EXPECT_EQ(2, client({"export", snapshot, "--format", "csv", "--show", "nothing"}).code);
}
