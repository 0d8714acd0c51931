#include "client/attach/AttachProtocol.h"

#include <gtest/gtest.h>

using namespace vdk;

TEST(AttachProtocol, versionIsReadFromTheAnswer) {
    static const struct {
        const char* answer;
        int version;
    } cases[] = {{"0\n2", 2},
                 {"0\n2\n", 2},
                 {"0\n2 streaming\n", 2},
                 {"-1\nOperation getversion not recognized!", 1},
                 {"101\n", 1},
                 {"0\n", 1},
                 {"0\nfoo", 1},
                 {"", 1}};
    for (const auto& c : cases) {
        EXPECT_EQ(attachVersion(parseAttachReply(c.answer)), c.version) << c.answer;
    }
}

TEST(AttachProtocol, onlyAReturnCodeMeansLoaded) {
    static const struct {
        const char* answer;
        bool loaded;
        int code;
        const char* message;
    } cases[] = {
        {"0\nreturn code: 0\n", true, 0, ""},
        {"0\nreturn code: 10\n", true, 10, ""},
        {"0\nreturn code: -1\n", true, -1, ""},
        {"0\n0\n", true, 0, ""}, // Java 8
        {"0\n3", true, 3, ""},
        {"-1\n/x.so was not loaded.\n", false, 0, "/x.so was not loaded."},
        {"0\n/x.so was not loaded.\nNo such file", false, 0, "/x.so was not loaded.\nNo such file"},
        {"0\n", false, 0, "the JVM answered 0"},
        {"", false, 0, "the JVM closed the connection without an answer"},
        {"garbage", false, 0, "the JVM closed the connection without an answer"},
    };
    for (const auto& c : cases) {
        LoadOutcome outcome = parseLoadReply(parseAttachReply(c.answer));
        EXPECT_EQ(outcome.loaded, c.loaded) << c.answer;
        EXPECT_EQ(outcome.returnCode, c.code) << c.answer;
        EXPECT_EQ(outcome.message, c.message) << c.answer;
    }
}
