// Many questions about one opened heap.
#include "HeapBuilder.h"
#include "RunClient.h"
#include "client/heap/shell/HeapQuestions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <nlohmann/json.hpp>
#include <unistd.h>

using namespace vdk;
using nlohmann::json;
using testing::HasSubstr;
using Words = std::vector<std::string>;

namespace {

std::string smallHeap() {
    HeapBuilder b;
    const uint64_t item = b.type("demo/Item", 1, {{"name", 'L'}});
    b.root(b.array({b.make(item, {b.text("one")}), b.make(item, {b.text("two")})}));
    return b.file();
}

// What a mode answers to lines, after which the file is gone.
Outcome asked(const std::string& mode, const std::string& lines, const Words& more = {}) {
    const TemporaryFile file(smallHeap());
    std::istringstream in(lines);
    std::streambuf* const before = std::cin.rdbuf(in.rdbuf());
    Words words = {"heap", file.path, mode};
    words.insert(words.end(), more.begin(), more.end());
    Outcome outcome = client(words);
    std::cin.rdbuf(before);
    return outcome;
}

} // namespace

TEST(HeapShell, linesAreDividedIntoWords) {
    const struct {
        const char* line;
        Words words;
    } cases[] = {
        {"", {}},
        {"  histogram   java.* ", {"histogram", "java.*"}},
        {"objects demo.Item --where 'name = \"a b\"'",
         {"objects", "demo.Item", "--where", "name = \"a b\""}},
        {"sql select 'a  b' from x", {"sql", "select 'a  b' from x"}},
        {"sql \"select 1\" --top 3", {"sql", "select 1", "--top", "3"}},
        {"sql --csv 'select 1'", {"sql", "--csv", "select 1"}},
        {"show ''", {"show", ""}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.words, questionWords(c.line)) << c.line;
    }
    EXPECT_THROW(questionWords("show 'x"), ClientError);
}

TEST(HeapShell, aScriptOfQuestionsIsAnsweredInTurn) {
    const Outcome outcome =
        asked("shell", "# a remark\nhistogram demo.*\nshow 0x1\n"
                       "sql select count(*) n from strings\nserver\nq\nbiggest\n");
    EXPECT_THAT(outcome.out, HasSubstr("demo.Item"));
    EXPECT_THAT(outcome.out, HasSubstr("N\n2\n"));
    EXPECT_THAT(outcome.out, testing::Not(HasSubstr("RETAINED  SHALLOW  OBJECT")));
    EXPECT_THAT(outcome.err, HasSubstr("no object 0x1"));
    EXPECT_THAT(outcome.err, HasSubstr("server: the heap is open already"));
    EXPECT_EQ(2, asked("shell", "show 'x\n").code);
    EXPECT_EQ(2, asked("shell", "", {"--json"}).code);
}

TEST(HeapShell, eachLineOfJsonGetsOne) {
    const Outcome outcome =
        asked("server", "{\"id\":1,\"words\":[\"histogram\",\"demo.*\"]}\n\n"
                        "{\"id\":[\"x\"],\"words\":[\"sql\",\"select '\\n' a\"]}\n"
                        "{\"id\":3,\"words\":[\"sql\",\"selec\"]}\n"
                        "{\"id\":4,\"words\":[5]}\n[]\n{\"id\":\n"
                        "{\"words\":[\"objects\",\"demo.Item\",\"--index\",\"x\"]}\n" +
                            std::string(1000001, '\"') + "\n" + std::string(900000, '[') + "\n");
    ASSERT_EQ(0, outcome.code) << outcome.err;
    std::vector<json> answers;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);) {
        answers.push_back(json::parse(line));
    }
    ASSERT_EQ(9u, answers.size());
    EXPECT_EQ(2, answers[0]["answer"]["classes"][0]["count"]);
    EXPECT_EQ(json({"x"}), answers[1]["id"]);
    EXPECT_EQ("\n", answers[1]["answer"]["rows"][0]["a"]);
    for (size_t i = 2; i < 9; i++) {
        EXPECT_EQ(2, answers[i]["code"]) << i;
        EXPECT_TRUE(answers[i]["answer"].is_null()) << i;
        EXPECT_EQ(2, answers[i]["error"]["code"]) << i;
    }
}
