// What is served to other programs: metrics, and tools for assistants.
#include "JavaProcess.h"
#include "RunClient.h"
#include "SourceFolder.h"
#include "client/fleet/FleetWatch.h"
#include "client/fleet/HttpServer.h"
#include "client/fleet/JvmMetrics.h"
#include "client/fleet/McpServer.h"
#include "client/fleet/ProfilePush.h"
#include "client/fleet/RemoteHost.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>

using namespace vdk;

TEST(MetricText, escapesAndNamesAsEachFormWantsIt) {
    const MetricFamily spent = {"vdk_x_seconds", MetricType::Counter, "seconds", "a\nb\\"};
    const auto text = [&](MetricForm form) {
        MetricText out(form);
        out.begin(spent);
        out.add(spent, {{"pid", "1"}}, {{"sql", "say \"\\\n\x01\xff\""}}, 0.5);
        out.add(spent, {}, {}, 3);
        return out.finish();
    };
    EXPECT_EQ("# HELP vdk_x_seconds a\\nb\\\\\n# TYPE vdk_x_seconds counter\n"
              "# UNIT vdk_x_seconds seconds\n"
              "vdk_x_seconds_total{pid=\"1\",sql=\"say \\\"\\\\\\n \xef\xbf\xbd\\\"\"} 0.5\n"
              "vdk_x_seconds_total 3\n# EOF\n",
              text(MetricForm::OpenMetrics));
    EXPECT_NE(
        std::string::npos,
        text(MetricForm::Prometheus).find("# TYPE vdk_x_seconds_total counter\nvdk_x_seconds"));
}

TEST(MetricText, givesTheFormThatIsAskedFor) {
    const std::pair<const char*, MetricForm> cases[] = {
        {"", MetricForm::Prometheus},
        {"text/plain", MetricForm::Prometheus},
        {"text/html, application/openmetrics-text;version=1.0.0;q=0.5", MetricForm::OpenMetrics},
        {"application/openmetrics-text;q=0.0,*/*", MetricForm::Prometheus},
    };
    for (const auto& [accept, form] : cases) {
        EXPECT_EQ(form, metricFormOf(accept)) << accept;
    }
}

TEST(MetricText, everyFamilyKeepsTheRulesOfNamesAndIsDocumented) {
    std::ifstream file(sourceFolder() + "/docs/fleet.md");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    for (const MetricFamily& family : FleetWatch::families()) {
        const std::string name = family.name, unit = family.unit;
        EXPECT_TRUE(unit.empty() || name.substr(name.size() - unit.size() - 1) == "_" + unit)
            << name;
        EXPECT_NE(std::string::npos, text.find("`" + name + sampleEnding(family.type) + "`"))
            << name;
    }
}

TEST(SeriesLimit, addsUpWhatComesLateAndKeepsWhatItKnows) {
    SeriesLimit limit;
    MetricSamples samples;
    for (size_t i = 0; i < SeriesLimit::Most; i++) {
        samples[{{"class", std::to_string(i)}}] = 1;
    }
    limit.apply(0, samples);
    samples[{{"class", "0"}}] = 5;
    samples[{{"class", "!"}}] = 7;
    samples[{{"class", "?"}}] = 2;
    limit.apply(0, samples);
    EXPECT_EQ(SeriesLimit::Most + 1, samples.size());
    EXPECT_EQ(5, (samples[{{"class", "0"}}]));
    EXPECT_EQ(9, (samples[{{"class", "(others)"}}]));
}

TEST(ListenAddress, isReadAsPeopleWriteIt) {
    const std::pair<const char*, const char*> cases[] = {
        {"127.0.0.1:9464", "127.0.0.1:9464"},
        {":0", "127.0.0.1:0"},
        {"[::1]:80", "[::1]:80"},
        {"0.0.0.0:1", "0.0.0.0:1"},
        {"::1:80", ""},
        {"localhost", ""},
        {"a:65536", ""},
        {"a:-1", ""},
    };
    for (const auto& [text, expected] : cases) {
        const auto address = parseListenAddress(text);
        EXPECT_EQ(expected, address ? address->text() : "") << text;
    }
    EXPECT_FALSE(parseListenAddress("0.0.0.0:1")->isLoopback());
}

namespace {

// `vdk metrics` as a program of its own; its url once it serves.
class MetricsProgram {
public:
    explicit MetricsProgram(std::vector<std::string> options)
        : program(command(std::move(options)), "/dev/null") {
        if (program.waitFor("/metrics\n")) {
            url = program.output.substr(std::string("metrics at ").size());
            url.pop_back();
        }
    }
    std::string get(const std::string& curlOptions) const {
        return run("curl -s " + curlOptions + " " + url).out;
    }

    std::string url;

private:
    static std::vector<std::string> command(std::vector<std::string> options) {
        options.insert(options.begin(), {builtFile("vdk"), "metrics", "--listen", "127.0.0.1:0"});
        return options;
    }

    JavaProcess program;
};

// The sanitized build has none.
bool hasAgent() {
    return !builtFile("libvdkagent.so").empty();
}

bool has(const char* program) {
    return run(std::string("command -v ") + program + " >/dev/null").code == 0;
}

// A busy program with the agent that samples.
std::unique_ptr<JavaProcess> startProfiled(const std::string& home, const TempDir& dir,
                                           const std::string& session) {
    auto jvm = std::make_unique<JavaProcess>(
        std::vector<std::string>{home + "/bin/java",
                                 "-agentpath:" + builtFile("libvdkagent.so") +
                                     "=sampling,quiet,sessionname=" + session,
                                 "-cp", dir.path, "Waiter", "busy"},
        dir.file("err"));
    jvm->waitFor("ready");
    return jvm;
}

} // namespace

TEST(Metrics, areRefusedToWhoMayNotHaveThem) {
    if (!has("curl")) {
        GTEST_SKIP() << "no curl";
    }
    const TempDir dir;
    dir.write("token", "secret\n");
    const MetricsProgram program({"no-such-jvm", "--token-file", dir.file("token")});
    const std::string code = "-o /dev/null -w '%{http_code}' ";
    const std::string token = "-H 'Authorization: Bearer secret' ";
    const std::pair<std::string, std::string> cases[] = {
        {token, "200"},
        {"", "401"},
        {"-H 'Authorization: Bearer secre'", "401"},
        {token + "-H 'Host: example.org'", "403"},
        {token + "-X POST", "405"},
        {token + "-H \"X: $(head -c 20000 /dev/zero | tr '\\0' x)\"", "431"},
        {token + "-H 'Host: localhost:1' -I", "200"},
    };
    for (const auto& [options, expected] : cases) {
        EXPECT_EQ(expected, program.get(code + options)) << options;
    }
    EXPECT_EQ(2, client({"metrics", "--listen", "0.0.0.0:0"}).code);
}

TEST(Metrics, areReadByPrometheusWhileAJvmHangs) {
    const std::vector<std::string> homes = jdks("17");
    const TempDir dir;
    if (!has("curl") || !has("promtool") || !has("prometheus") || !hasAgent() || homes.empty() ||
        !JavaProcess::compile(dir)) {
        GTEST_SKIP() << "no JDK, no agent, or no Prometheus";
    }
    const std::string name = "fleet" + std::to_string(getpid());
    const auto good = startProfiled(homes[0], dir, name + "good"),
               hung = startProfiled(homes[0], dir, name + "hung");
    const MetricsProgram program({name, "--deadline", "60s", "--timeout", "60s"});
    EXPECT_EQ(0, run("curl -s " + program.url + " | promtool check metrics 2>&1").code);
    kill(hung->pid, SIGSTOP);
    const std::string text = program.get("-H 'Accept: application/openmetrics-text'");
    EXPECT_EQ("# EOF\n", text.substr(text.size() - 6));
    const auto up = [&](const JavaProcess& jvm, const std::string& session) {
        return "vdk_jvm_up{pid=\"" + std::to_string(jvm.pid) + "\",session=\"" + name + session +
               "\"} ";
    };
    EXPECT_NE(std::string::npos, text.find(up(*good, "good") + "1\n")) << text;
    EXPECT_NE(std::string::npos, text.find(up(*hung, "hung") + "0\n")) << text;
    EXPECT_NE(std::string::npos, text.find("threads=\"main\"")) << text;

    const size_t port = program.url.find("127.");
    dir.write("p.yml", "scrape_configs: [{job_name: vdk, scrape_interval: 5s, static_configs: "
                       "[{targets: ['" +
                           program.url.substr(port, program.url.find("/metrics") - port) +
                           "']}]}]");
    JavaProcess prometheus({"sh", "-c",
                            "exec prometheus --config.file=" + dir.file("p.yml") +
                                " --storage.tsdb.path=" + dir.file("db") +
                                " --web.listen-address=127.0.0.1:0 2>&1"},
                           dir.file("err"));
    ASSERT_TRUE(prometheus.waitFor("TLS is disabled")) << prometheus.output;
    const std::string told = "\"Listening on\" address=";
    const size_t address = prometheus.output.find(told) + told.size();
    const std::string query =
        "curl -sG http://" +
        prometheus.output.substr(address, prometheus.output.find('\n', address) - address) +
        "/api/v1/query --data-urlencode 'query=vdk_jvm_up == 1'";
    std::string answer; // one comes as soon as it has scraped
    for (int i = 0; i < 600 && answer.find(name) == std::string::npos; i++) {
        answer = run(query).out;
        usleep(100000);
    }
    EXPECT_NE(std::string::npos, answer.find(name + "good")) << answer;
    EXPECT_EQ(std::string::npos, answer.find(name + "hung")) << answer;
    kill(hung->pid, SIGCONT);
}

namespace {

using nlohmann::json;

json request(int id, const char* method, const json& parameters = json::object()) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", parameters}};
}

const json Hello = request(0, "initialize", {{"protocolVersion", "2025-03-26"}});

// The result of a tool, "code" in place of it where the request was refused.
json call(McpServer& server, const char* tool, const json& arguments) {
    const json answer = json::parse(*server.answerTo(
        request(1, "tools/call", {{"name", tool}, {"arguments", arguments}}).dump()));
    return answer.contains("error") ? answer["error"] : answer["result"];
}

} // namespace

TEST(Mcp, keepsTheRulesOfTheProtocolWhateverComes) {
    McpServer server(false);
    const std::string deep(500000, '[');
    // A line, and the code of its error; 0 for a result, 1 for no answer.
    const std::pair<std::string, int> cases[] = {
        {"x", -32700},
        {deep, -32700},
        {"{\"id\":1,\"jsonrpc\":\"2.0\",\"method\":\"\xff\"}", -32700},
        {"[]", -32600},
        {"{}", -32600},
        {R"({"jsonrpc":"2.0","id":null,"method":"ping"})", -32600},
        {R"({"jsonrpc":"2.0","id":"a","method":"tools/list"})", -32600}, // too early
        {Hello.dump(), 0},
        {R"({"jsonrpc":"2.0","method":"notifications/initialized"})", 1},
        {R"({"jsonrpc":"2.0","id":"a","method":"ping"})", 0},
        {R"({"jsonrpc":"2.0","id":5,"method":"ping","params":[]})", -32602},
        {R"({"jsonrpc":"2.0","id":5,"method":"resources/list"})", -32601},
        {request(1, "tools/call", {{"name", "record"}}).dump(), -32602}, // controls
        {request(1, "tools/call", {{"name", "status"}}).dump(), -32602}, // no target
    };
    for (const auto& [line, code] : cases) {
        const auto answer = server.answerTo(line);
        ASSERT_EQ(code == 1, !answer) << line;
        if (answer) {
            const json parsed = json::parse(*answer);
            EXPECT_EQ(code, parsed.contains("error") ? parsed["error"]["code"].get<int>() : 0)
                << line.substr(0, 100) << *answer;
        }
    }
    const json batch = json::parse(*server.answerTo(json::array({Hello, {{"a", 1}}}).dump()));
    EXPECT_EQ("2025-03-26", batch[0]["result"]["protocolVersion"]);
    EXPECT_EQ(-32600, batch[1]["error"]["code"]);
    const std::pair<const char*, json> bad[] = {
        {"report", {{"source", "--out=/tmp/x"}}},
        {"report", {{"source", "a"}, {"out", "b"}}},
        {"report", {{"source", "a"}, {"top", -1}}},
        {"report", {{"source", "a"}, {"show", "x"}}},
        {"heap", {{"file", "a"}, {"report", "export"}}},
        {"heap", {{"file", "/dev/zero"}}},
    };
    for (const auto& [tool, arguments] : bad) {
        EXPECT_EQ(-32602, call(server, tool, arguments)["code"]) << arguments;
    }
    EXPECT_EQ("target.none",
              call(server, "status", {{"target", "no-such-jvm"}})["structuredContent"]["word"]);
}

TEST(Mcp, everyToolIsACommandWithItsOptions) {
    for (const McpTool& tool : mcpTools()) {
        ASSERT_NE(nullptr, findCommand(tool.command)) << tool.name;
        EXPECT_EQ(tool.options.size(), argumentsOf(tool).size()) << tool.name;
    }
}

TEST(Mcp, answersAboutAJvmAndItsHeap) {
    const std::vector<std::string> homes = jdks("17");
    const TempDir dir;
    if (!hasAgent() || homes.empty() || !JavaProcess::compile(dir)) {
        GTEST_SKIP() << "no JDK, or no agent";
    }
    const auto jvm = startProfiled(homes[0], dir, "mcp" + std::to_string(getpid()));
    const std::string pid = std::to_string(jvm->pid);
    McpServer server(true);
    server.answerTo(Hello.dump());
    const json recorded =
        call(server, "record", {{"target", {pid}}, {"for", "1s"}, {"out", dir.file("a.snapshot")}});
    ASSERT_FALSE(recorded["isError"].get<bool>()) << recorded;
    const json report = call(server, "report", {{"source", dir.file("a.snapshot")}, {"top", 3}});
    EXPECT_EQ("vdk.report/1", report["structuredContent"]["schema"]) << report;
    EXPECT_EQ(report["structuredContent"],
              json::parse(report["content"][0]["text"].get<std::string>()));
    call(server, "heap_capture", {{"target", pid}, {"out", dir.file("a.hprof")}});
    for (const char* reportName : {"histogram", "suspects"}) {
        const json heap =
            call(server, "heap", {{"file", dir.file("a.hprof")}, {"report", reportName}});
        EXPECT_FALSE(heap["isError"].get<bool>()) << heap;
    }
}

TEST(ProfilePush, namesAndUrlsAreWhatTheStoreTakesThemFor) {
    EXPECT_EQ("a b{k=v,_x=1/2}", profileName("a b", {"k=v", "_x=1/2"}));
    EXPECT_EQ("a%20b%7Bk%3D%22", percentEncoded("a b{k=\""));
    for (const std::vector<std::string>& tags :
         {std::vector<std::string>{"k"}, {"1=2"}, {"k="}, {"k=a,b=c"}, {"k=\n"}}) {
        EXPECT_THROW(profileName("app", tags), ClientError) << tags[0];
    }
    for (const char* url : {"file:///etc/passwd", "http://", "http://u:p@host", "http://h/ -o x",
                            "http://h\"\noutput=x"}) {
        EXPECT_THROW(ProfilePush({url, ""}, 1000), ClientError) << url;
    }
    EXPECT_THROW(ProfilePush({"http://h", "Bearer a\nb"}, 1000), ClientError);
}

TEST(ProfilePush, keepsTheLatestWhileNobodyTakesThem) {
    if (!has("curl")) {
        GTEST_SKIP() << "no curl";
    }
    ProfilePush push({"http://127.0.0.1:1", ""}, 10000); // nobody listens there
    for (int i = 0; i < 5; i++) {
        push.add({"app", i, i + 1, std::string(ProfilePush::MostBytes / 3, 'x')});
    }
    EXPECT_EQ(2, push.counts().dropped);
    EXPECT_NE("", push.sendDue(ProfilePush::Clock::now()));
    EXPECT_EQ(1, push.counts().failures);
    EXPECT_FALSE(push.isEmpty());
}

// A store of the test's own: refuses the first request with 503, and leaves each part of the others
// that is a profile in a file.
TEST(ProfilePush, sendsWhatGoToolPprofReads) {
    const std::vector<std::string> homes = jdks("17");
    const TempDir dir;
    if (!has("curl") || !has("python3") || !hasAgent() || homes.empty() ||
        !JavaProcess::compile(dir)) {
        GTEST_SKIP() << "no JDK, agent, curl or python3";
    }
    dir.write("store.py", R"(
import http.server, sys
seen = []
class Store(http.server.BaseHTTPRequestHandler):
    def log_message(self, *a): pass
    def do_POST(self):
        body = self.rfile.read(int(self.headers['Content-Length']))
        seen.append(self.path)
        if len(seen) == 1:
            self.send_error(503)
            return
        mark = b'--' + self.headers['Content-Type'].split('boundary=')[1].encode()
        part = next(p for p in body.split(mark) if b'name="profile"' in p)
        open(sys.argv[1], 'wb').write(part.split(b'\r\n\r\n', 1)[1][:-2])
        self.send_response(200)
        self.end_headers()
        print(self.path, self.headers['Authorization'], flush=True)
server = http.server.HTTPServer(('127.0.0.1', 0), Store)
print('port', server.server_port, 'end', flush=True)
server.serve_forever()
)");
    JavaProcess store({"python3", dir.file("store.py"), dir.file("profile.pb.gz")},
                      dir.file("store.err"));
    ASSERT_TRUE(store.waitFor(" end\n"));
    const std::string port = store.output.substr(5, store.output.find(" end") - 5);
    const auto jvm = startProfiled(homes[0], dir, "push" + std::to_string(getpid()));
    dir.write("credentials", "Bearer se\"cr\\et\n");
    const Result pushed =
        run(builtFile("vdk") + " push " + std::to_string(jvm->pid) +
            " --pyroscope http://127.0.0.1:" + port +
            " --every 2s --count 3 --name app --tag env=test --timeout 60s --credentials " +
            dir.file("credentials") + " --json");
    EXPECT_EQ(0, pushed.code) << pushed.out;
    const json counts = json::parse(pushed.out);
    EXPECT_GE(counts["sent"].get<int>(), 1) << pushed.out;
    EXPECT_EQ(1, counts["failures"]) << pushed.out;
    ASSERT_TRUE(store.waitFor("et\n"));
    EXPECT_NE(std::string::npos, store.output.find("name=app%7Benv%3Dtest%7D")) << store.output;
    EXPECT_NE(std::string::npos, store.output.find(" Bearer se\"cr\\et\n")) << store.output;
    if (has("go")) {
        const Result top =
            run("go tool pprof -top -sample_index=cpu " + dir.file("profile.pb.gz") + " 2>&1");
        EXPECT_NE(std::string::npos, top.out.find("Waiter.burn")) << top.out;
    }
}

TEST(ProfilePush, waitsAsLongAsTheStoreAsks) {
    const time_t now = 1445412480; // Wed, 21 Oct 2015 07:28:00 GMT
    const std::pair<const char*, int> cases[] = {
        {"HTTP/1.1 429 Busy\r\nretry-AFTER:  7 \r\n\r\n", 7},
        {"Retry-After: Wed, 21 Oct 2015 07:28:30 GMT\r\n", 30},
        {"Retry-After: Wed, 21 Oct 2015 07:27:30 GMT\r\n", 0},
        {"Retry-After: 99999999\r\n", 3600},
        {"Retry-After: soon\r\nRetry-After:", 0},
        {"", 0},
    };
    for (const auto& [head, seconds] : cases) {
        EXPECT_EQ(std::chrono::seconds(seconds), retryAfter(head, now)) << head;
    }
}

// A receiver of the test's own, which puts the first request off. It reads messages by their field
// numbers in opentelemetry-proto 1.10.0, and prints for each request what it is of, and the stack
// with the largest value.
static const char* const OtlpReceiver = R"(
import gzip, http.server
def varint(b, i):
    n = s = 0
    while True:
        n |= (b[i] & 127) << s; s += 7; i += 1
        if b[i - 1] < 128: return n, i
def fields(b):
    out, i = {}, 0
    while i < len(b):
        key, i = varint(b, i)
        if key & 7 == 0: value, i = varint(b, i)
        elif key & 7 == 1: value, i = int.from_bytes(b[i:i + 8], 'little'), i + 8
        else:
            assert key & 7 == 2, key
            n, i = varint(b, i); value, i = b[i:i + n], i + n
            assert len(value) == n
        out.setdefault(key >> 3, []).append(value)
    return out
def packed(b):
    out, i = [], 0
    while i < len(b):
        n, i = varint(b, i); out.append(n)
    return out
def index(message, field): return message.get(field, [0])[0]
def describe(body):
    request = fields(gzip.decompress(body))
    words = fields(request[2][0])
    text = [t.decode() for t in words[5]]
    assert text[0] == '' and all(words[table][0] == b'' for table in (1, 2, 3, 4, 6, 7))
    resource = fields(request[1][0])
    attributes = {}
    for a in fields(resource[1][0])[1]:
        value = fields(fields(a)[2][0])
        attributes[fields(a)[1][0].decode()] = value[1][0].decode() if 1 in value else value[3][0]
    for p in fields(resource[2][0])[2]:
        profile = fields(p)
        kind = fields(profile[1][0])
        if text[index(kind, 1)] != 'cpu': continue
        assert text[index(kind, 2)] == 'nanoseconds' and len(profile[7][0]) == 16
        assert profile[3][0] > 10**18 and profile[4][0] > 0
        top = fields(max(profile[2], key=lambda s: packed(fields(s)[4][0])[0]))
        thread = fields(words[6][packed(top[2][0])[0]])
        names = []
        for l in packed(fields(words[7][index(top, 1)])[1][0]):
            function = words[3][index(fields(fields(words[2][l])[3][0]), 1)]
            names.append(text[index(fields(function), 1)])
        return '%s %s %s: %s %s' % (attributes['service.name'], attributes['env'],
            attributes['process.pid'], fields(thread[2][0])[1][0].decode(), ';'.join(names))
class Store(http.server.BaseHTTPRequestHandler):
    late = True
    def log_message(self, *a): pass
    def do_POST(self):
        body = self.rfile.read(int(self.headers['Content-Length']))
        if Store.late:
            Store.late = False
            self.send_response(429)
            self.send_header('Retry-After', '1')
            self.end_headers()
            return
        print(self.path, self.headers['Content-Type'], describe(body), flush=True)
        self.send_response(200)
        # rejected_profiles and error_message of the answer's partial_success
        words = b'no\nroom'
        part = b'\x08\x02\x12' + bytes([len(words)]) + words
        self.send_header('Content-Type', 'application/x-protobuf')
        self.end_headers()
        self.wfile.write(b'\x0a' + bytes([len(part)]) + part)
server = http.server.HTTPServer(('127.0.0.1', 0), Store)
print('port', server.server_port, 'end', flush=True)
server.serve_forever()
)";

TEST(ProfilePush, sendsOtlpOfAJvmThatIsStartedAgain) {
    const std::vector<std::string> homes = jdks("17");
    const TempDir dir;
    if (!has("curl") || !has("python3") || !hasAgent() || homes.empty() ||
        !JavaProcess::compile(dir)) {
        GTEST_SKIP() << "no JDK, agent, curl or python3";
    }
    dir.write("store.py", OtlpReceiver);
    JavaProcess store({"python3", dir.file("store.py")}, dir.file("store.err"));
    ASSERT_TRUE(store.waitFor(" end\n"));
    const std::string port = store.output.substr(5, store.output.find(" end") - 5);
    const std::string name = "again" + std::to_string(getpid());
    auto jvm = startProfiled(homes[0], dir, name + "a");
    JavaProcess push({builtFile("vdk"), "push", name, "--otlp", "http://127.0.0.1:" + port,
                      "--every", "1s", "--tag", "env=test"},
                     dir.file("push.err"));
    const auto sent = [&](const char* end) {
        return "/v1development/profiles application/x-protobuf " + name + end + " test " +
               std::to_string(jvm->pid) + ": main Waiter.burn;Waiter.work;Waiter.main\n";
    };
    ASSERT_TRUE(store.waitFor(sent("a"))) << store.output << TempDir::read(dir.file("store.err"))
                                          << TempDir::read(dir.file("push.err"));
    jvm.reset();
    jvm = startProfiled(homes[0], dir, name + "b");
    ASSERT_TRUE(store.waitFor(sent("b"))) << store.output << TempDir::read(dir.file("push.err"));
    kill(push.pid, SIGINT);
    EXPECT_TRUE(push.waitFor(", rejected of those taken ")) << push.output;
    const std::string told = TempDir::read(dir.file("push.err"));
    EXPECT_NE(std::string::npos, told.find("rejected 2 of the profiles that it took: no")) << told;
}

// By the state of a JVM in the lines of `vdk top --json`; false if they end without it.
static bool awaitState(JavaProcess& top, const std::string& session, const std::string& state) {
    top.output.clear(); // a state of now
    return top.waitFor("\"session\":\"" + session + "\",\"state\":\"" + state + "\"");
}

TEST(Top, followsJvmsThatComeFallSilentAndEnd) {
    const std::vector<std::string> homes = jdks("17");
    const TempDir dir;
    if (!hasAgent() || homes.empty() || !JavaProcess::compile(dir)) {
        GTEST_SKIP() << "no JDK, or no agent";
    }
    const std::string name = "top" + std::to_string(getpid());
    const auto first = startProfiled(homes[0], dir, name + "a");
    JavaProcess top({builtFile("vdk"), "top", name, std::to_string(first->pid), "--interval",
                     "200ms", "--count", "100000", "--json"},
                    dir.file("top.err"));
    ASSERT_TRUE(top.waitFor("Waiter.burn")) << TempDir::read(dir.file("top.err"));
    EXPECT_NE(std::string::npos, top.output.find("{\"schema\":\"vdk.top/1\",\"totalNs\":"));
    auto second = startProfiled(homes[0], dir, name + "b");
    ASSERT_TRUE(awaitState(top, name + "b", "up"));
    kill(second->pid, SIGSTOP);
    ASSERT_TRUE(awaitState(top, name + "b", "no answer"));
    kill(second->pid, SIGCONT);
    ASSERT_TRUE(awaitState(top, name + "b", "up"));
    second.reset();
    ASSERT_TRUE(awaitState(top, name + "b", "gone"));
    ASSERT_TRUE(awaitState(top, name + "a", "up"));
    ASSERT_TRUE(top.waitFor("Waiter.burn"));

    const Result list = run(builtFile("vdk") + " top " + name + " " + std::to_string(first->pid) +
                            " --count 1 --show cpu --by package");
    EXPECT_EQ(std::string::npos, list.out.find(" JVM ")) << "one JVM needs no column: " << list.out;
    for (const char* wrong : {"", "--all x"}) {
        EXPECT_EQ(2, run(builtFile("vdk") + " top " + wrong + " 2>&1").code) << wrong;
    }
}

TEST(RemoteHost, wordsArriveAsTheyWereTyped) {
    const std::vector<std::string> line = {
        "table", "--host", "h",      "a b",        "it's \"$(id)\" `x`\\",
        "",      "*",      "--x=1",  "--copy-vdk", "new\nline",
        "--",    "java",   "--host", "y"};
    const std::vector<std::string> there = {
        "table",  "a b", "it's \"$(id)\" `x`\\", "", "*", "--x=1", "new\nline", "--", "java",
        "--host", "y"};
    EXPECT_EQ(there, withoutHost(line));
    EXPECT_EQ(std::vector<std::string>({"list"}), withoutHost({"list", "--host=h"}));
    // The other side's sshd gives the line to a shell.
    const TempDir dir;
    dir.write("vdk", "#!/bin/sh\nfor word; do printf '%s|' \"$word\"; done\n");
    run("chmod +x " + dir.file("vdk"));
    const std::vector<std::string> command = remoteCommand({"h", there}, dir.file("vdk"));
    ASSERT_EQ(5u, command.size());
    for (const char* shell : {"sh", "bash"}) {
        const JavaProcess program({shell, "-c", command.back()}, dir.file("err"));
        std::string expected;
        for (const std::string& word : there) {
            expected += word + "|";
        }
        EXPECT_TRUE(const_cast<JavaProcess&>(program).waitFor(expected)) << program.output;
    }
}

// The other side is this one, by a program that does what ssh and sshd do with a line.
TEST(RemoteHost, bringsTheProgramAndGivesItsExitCode) {
    if (!hasAgent()) {
        GTEST_SKIP() << "the agent was not built";
    }
    const TempDir dir;
    dir.write("ssh", "#!/bin/sh\nexport HOME=" + dir.path +
                         "\nwhile [ \"$1\" != -- ]; do shift; done\nexec sh -c \"$3\"\n");
    run("chmod +x " + dir.file("ssh"));
    const std::string vdk = "PATH=" + dir.path + ":$PATH " + builtFile("vdk") + " ";
    EXPECT_EQ(3, run(vdk + "status no-such-jvm --host me@here --copy-vdk 2>&1").code);
    const Result again =
        run(vdk + "--version >/dev/null; " + vdk + "list --json --host here --copy-vdk");
    EXPECT_EQ("vdk.list/1", json::parse(again.out)["schema"]);
    for (const char* host : {"-oProxyCommand=x", "'a b'", "'$(id)'", "''"}) {
        EXPECT_EQ(2, run(vdk + "list --host " + host + " 2>/dev/null").code) << host;
    }
}
