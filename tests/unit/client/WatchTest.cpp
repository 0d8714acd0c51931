#include "Expect.h"
#include "FakeAgent.h"
#include "RunClient.h"
#include "client/console/Text.h"
#include "client/watch/CallView.h"
#include "client/watch/MethodSums.h"
#include "client/watch/WatchPattern.h"
#include "platform/Platform.h"

#include <gtest/gtest.h>
#include <mutex>
#include <nlohmann/json.hpp>

using namespace vdk;
using namespace vdk::protocol;

namespace {

// An agent with one watch: answers the requests that vdk sends, reads from the list in turn.
class WatchedAgent {
public:
    explicit WatchedAgent(std::vector<Answer> reads)
        : reads(std::move(reads)), agent([this](int descriptor, int) { serve(descriptor); }) {}

    std::string target() const { return agent.endpoint.text(); }
    bool isStopped() const { return stopped; }
    // What came with the start, behind the header.
    std::string request() const { return started; }

    static Answer numbers(int64_t calls, int64_t matched, int64_t dropped, int state, int waiting) {
        Answer answer;
        answer.ok().longInteger(calls).longInteger(matched).longInteger(dropped).longInteger(0);
        return answer.integer(state).integer(waiting);
    }

private:
    static int64_t typeOf(const std::string& header) {
        int64_t type = 0;
        for (size_t i = 8; i < header.size(); i++) {
            type = type << 8 | static_cast<unsigned char>(header[i]);
        }
        return type;
    }

    void serve(int descriptor) {
        switch (typeOf(FakeAgent::readExactly(descriptor, 12))) {
        case PACKET_PACKET_SEQUENCE_START: {
            Answer info;
            info.ok().integer(Version).text("agent").longInteger(0).text("shop").longInteger(1);
            info.text("host").text("/tmp").integer(7).integer(100);
            FakeAgent::readExactly(descriptor, 12);
            FakeAgent::sendAll(descriptor, info.ok().longInteger(0).data);
            break;
        }
        case PACKET_WATCH_START:
            started = FakeAgent::readSome(descriptor);
            FakeAgent::sendAll(descriptor, Answer().ok().integer(3).integer(1).data);
            break;
        case PACKET_WATCH_READ:
            FakeAgent::readExactly(descriptor, 8);
            FakeAgent::sendAll(descriptor, reads[std::min(next++, reads.size() - 1)].data);
            break;
        case PACKET_WATCH_STOP:
            stopped = FakeAgent::readExactly(descriptor, 4) == Answer().integer(3).data;
            FakeAgent::sendAll(descriptor, Answer().ok().data);
            break;
        default:
            FakeAgent::sendAll(descriptor, Answer().header(PACKET_ERROR_RESP).text("no").data);
        }
    }

    std::vector<Answer> reads;
    size_t next = 0;
    std::string started;
    std::atomic<bool> stopped{false};
    FakeAgent agent; // its thread works on all of the above
};

void addCall(Answer& answer, int number, bool threw) {
    answer.longInteger(number).longInteger(1700000000123).longInteger(1234000).longInteger(9);
    answer.text("http\x1b[31m").text("shop.Cart").integer(-1).text("add");
    answer.text("(Ljava/lang/String;I)V").integer(threw ? 1 : 0).integer(-1);
    answer.integer(2).text("\"a\nb\"").text("3");
    if (threw) {
        answer.integer(-1).text("shop.Full: no room");
    } else {
        answer.text("true").integer(-1);
    }
    answer.integer(1).text("shop.Cart.add(Cart.java:7)");
}

Answer twoCalls() {
    Answer answer = WatchedAgent::numbers(1234, 1230, 1228, 1, 0);
    answer.integer(2);
    addCall(answer, 1, false);
    addCall(answer, 2, true);
    return answer.integer(0);
}

MethodSums sumsOf(const std::map<int, int64_t>& buckets, int64_t shortest, int64_t longest) {
    MethodSums sums;
    sums.buckets = buckets;
    for (const auto& [bucket, calls] : buckets) {
        sums.calls += calls;
    }
    sums.shortestNs = shortest;
    sums.longestNs = longest;
    return sums;
}

} // namespace

TEST(WatchPattern, takesWhatPeopleWrite) {
    const char* const cases[][2] = {
        {"com.shop.Cart:add(*)", "com.shop.Cart:add(*)"},
        {"com.shop.Cart:add", "com.shop.Cart:add(*)"},
        {" com.shop.Cart.add ", "com.shop.Cart:add(*)"},
        {"com.shop.Cart.add(java.lang.String, int) void",
         "com.shop.Cart:add(java.lang.String, int) void"},
        {"com.shop.Cart#add()", "com.shop.Cart:add()"},
        {"com.shop.Cart::add", "com.shop.Cart:add(*)"},
        {"com/shop/Cart.<init>", "com.shop.Cart:<init>(*)"},
        {"com.shop.Cart$Item", "com.shop.Cart$Item:*(*)"},
        {"com.shop.Cart.*", "com.shop.Cart:*(*)"},
        {"com.shop.*", "com.shop.*:*(*)"},
        {"*Service:@jakarta.transaction.Transactional *(*)",
         "*Service:@jakarta.transaction.Transactional *(*)"},
        {"*.Cart:add*", "*.Cart:add*(*)"},
    };
    for (const auto& [text, pattern] : cases) {
        EXPECT_EQ(pattern, watchPattern(text));
    }
    for (const char* text : {"", "add", ":add", "com.shop.Cart:", "(int)", "com.shop.Cart:(*)"}) {
        EXPECT_EQ("watch.pattern", wordOf([&] { watchPattern(text); })) << text;
    }
}

TEST(MethodSums, quantilesAreThoseOfTheBuckets) {
    EXPECT_EQ(15, durationBucket(15).fromNs);
    EXPECT_EQ(16, durationBucket(16).fromNs);
    EXPECT_EQ(30, durationBucket(23).fromNs);
    EXPECT_EQ(32, durationBucket(24).fromNs);
    EXPECT_EQ(4, durationBucket(24).widthNs);
    EXPECT_EQ(int64_t(15) << 40, durationBucket(LastDurationBucket).fromNs);
    const MethodSums before = sumsOf({{5, 90}, {24, 9}, {200, 1}}, 5, 123456789);
    EXPECT_EQ(5, before.quantileNs(0.5));
    EXPECT_EQ(34, before.quantileNs(0.95));
    EXPECT_EQ(34, before.quantileNs(0.99));
    EXPECT_EQ(123456789, before.quantileNs(1));
    const MethodSums later = sumsOf({{5, 90}, {24, 12}, {200, 1}}, 5, 123456789).since(before);
    EXPECT_EQ(3, later.calls);
    EXPECT_EQ(34, later.quantileNs(0.5));
    EXPECT_EQ(32, later.shortestNs);
    EXPECT_EQ(35, later.longestNs);
    EXPECT_EQ(0, before.since(before).quantileNs(0.5));
    MethodSums sums;
    sums.className = "shop.Cart";
    sums.method = "add";
    sums.signature = "([[ILjava/lang/String;J[Lshop/Item;)V";
    EXPECT_EQ("shop.Cart.add(int[][], String, long, Item[])", sums.name(true));
}

TEST(Watch, packagesGoWhereALineIsShort) {
    EXPECT_EQ("com.shop.Cart.add", withoutPackages("com.shop.Cart.add", 17));
    EXPECT_EQ("shop.Cart.add", withoutPackages("com.shop.Cart.add", 16));
    EXPECT_EQ("Cart.add(a.B, int)", withoutPackages("com.shop.Cart.add(a.B, int)", 0));
    EXPECT_EQ("add", withoutPackages("add", 0));
}

TEST(Watch, printsCallsAndTellsHowManyItDoesNot) {
    WatchedAgent agent({WatchedAgent::numbers(10, 5, 0, 0, 0).integer(0).integer(0), twoCalls()});
    const Outcome outcome =
        client({"watch", agent.target(), "shop.Cart.add", "--count", "2", "--stack", "--min",
                "10ms", "--where", "ms < 5", "--where", "result"});
    EXPECT_EQ(0, outcome.code) << outcome.err;
    EXPECT_TRUE(agent.isStopped());
    Answer request;
    request.text("shop.Cart:add(*)").text("").integer(1 | 2 | 8 | 16).longInteger(10000000);
    request.longInteger(2).integer(1024).integer(0).integer(10000);
    EXPECT_EQ(request.text("(ms < 5) && (result)").text("").data, agent.request());
    const std::vector<std::string> lines = split(outcome.out, '\n');
    ASSERT_EQ(5U, lines.size()) << outcome.out;
    EXPECT_TRUE(endsWith(lines[0], ".123  http?[31m  shop.Cart.add(\"a\\nb\", 3) => true  1.2 ms"))
        << lines[0];
    EXPECT_EQ("    at shop.Cart.add(Cart.java:7)", lines[1]);
    EXPECT_NE(std::string::npos, lines[2].find("3) throws shop.Full: no room  1.2 ms"));
    for (const char* note : {"watching shop.Cart:add(*) in 1 class;", "1,228 calls not shown: ",
                             "1,234 calls, 1,230 as wanted, 2 shown (1 threw), 1,228 not shown"}) {
        EXPECT_NE(std::string::npos, outcome.err.find(note)) << outcome.err;
    }
}

TEST(Watch, writesAnObjectALine) {
    WatchedAgent agent({twoCalls()});
    const Outcome outcome = client({"watch", agent.target(), "shop.Cart.add", "--json"});
    ASSERT_EQ(0, outcome.code) << outcome.err;
    std::vector<std::string> lines = split(outcome.out, '\n');
    ASSERT_EQ(6U, lines.size()) << outcome.out;
    lines.pop_back();
    std::string events;
    for (const std::string& line : lines) {
        const auto json = nlohmann::json::parse(line);
        EXPECT_EQ("vdk.watch/1", json["schema"]);
        events += json["event"].get<std::string>() + " ";
    }
    EXPECT_EQ("started call call dropped ended ", events);
    EXPECT_EQ("\"a\nb\"", nlohmann::json::parse(lines[1])["args"][0]);
    EXPECT_EQ("shop.Full: no room", nlohmann::json::parse(lines[2])["exception"]);
    EXPECT_EQ(1228, nlohmann::json::parse(lines[4])["notShown"]);
}

TEST(Watch, stacksAreCounted) {
    WatchedAgent agent({twoCalls()});
    const Outcome outcome = client({"stack", agent.target(), "shop.Cart.add"});
    EXPECT_EQ(0, outcome.code) << outcome.err;
    EXPECT_EQ("2 calls, 100.0%, mean 1.2 ms, 1 threw\n    at shop.Cart.add(Cart.java:7)\n",
              outcome.out);
}

TEST(Watch, monitorsByPeriodAndInAll) {
    const auto read = [](int64_t calls) {
        Answer answer = WatchedAgent::numbers(calls, calls, 0, 0, 0);
        answer.integer(0).integer(1).text("shop.Cart").text("add").text("()V").longInteger(calls);
        answer.longInteger(1).longInteger(1000 * calls).longInteger(900).longInteger(1100);
        return answer.integer(1).integer(64).longInteger(calls);
    };
    WatchedAgent agent({read(10), read(25)});
    const Outcome outcome = client(
        {"monitor", agent.target(), "shop.Cart.add", "--every", "200ms", "--count", "2", "--json"});
    EXPECT_EQ(0, outcome.code) << outcome.err;
    EXPECT_TRUE(agent.isStopped());
    int64_t sum = 0;
    bool isAll = false;
    for (const std::string& line : split(outcome.out, '\n')) {
        if (line.empty()) {
            continue;
        }
        const auto json = nlohmann::json::parse(line);
        const int64_t calls = json["methods"].empty() ? 0 : int64_t(json["methods"][0]["calls"]);
        isAll = json["all"];
        sum += isAll ? 0 : calls;
        if (isAll) {
            EXPECT_EQ(25, calls);
            EXPECT_EQ(1000, json["methods"][0]["meanNs"]);
        }
    }
    EXPECT_TRUE(isAll);
    EXPECT_EQ(25, sum);
}

TEST(Watch, tellsWhatEndedIt) {
    WatchedAgent lost({Answer().header(PACKET_ERROR_RESP).text("There is no watch 3")});
    const Outcome outcome = client({"watch", lost.target(), "shop.Cart.add", "--json"});
    EXPECT_EQ(5, outcome.code);
    EXPECT_EQ("watch.lost", nlohmann::json::parse(outcome.err)["word"]);
    FakeAgent refusing([](int descriptor, int connection) {
        FakeAgent::readSome(descriptor);
        Answer info;
        info.ok().integer(Version).text("agent").longInteger(0).text("shop").longInteger(1);
        info.text("host").text("/tmp").integer(7).integer(100).ok().longInteger(0);
        Answer refusal;
        refusal.header(PACKET_ERROR_RESP).text("where, column 3 at \"=\": no comparison");
        FakeAgent::sendAll(descriptor, connection == 0 ? info.data : refusal.data);
    });
    const Outcome wrong =
        client({"watch", refusing.endpoint.text(), "shop.Cart.add", "--where", "ms="});
    EXPECT_EQ(2, wrong.code);
    EXPECT_NE(std::string::npos, wrong.err.find("vdk: --where, column 3 at \"=\": no comparison"));
}
