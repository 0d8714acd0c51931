#include "client/console/Text.h"

#include "client/console/Console.h"

#include <gtest/gtest.h>

using namespace vdk;

TEST(Text, durationsTakeUnitsAndRefuseJunk) {
    static const struct {
        const char* text;
        long ms; // -1: refused
    } cases[] = {{"30", 30000},
                 {"30s", 30000},
                 {"500ms", 500},
                 {"5m", 300000},
                 {"1h", 3600000},
                 {"0", 0},
                 {"", -1},
                 {"s", -1},
                 {"-1", -1},
                 {"5x", -1},
                 {"1.5s", -1},
                 {" 5", -1},
                 {"2147483", 2147483000},
                 {"2147484", -1}, // more milliseconds than an int holds
                 {"1000000000h", -1},
                 {"99999999999999999999", -1}};
    for (const auto& c : cases) {
        EXPECT_EQ(parseDurationMs(c.text).value_or(-1), c.ms) << c.text;
    }
    EXPECT_EQ(formatNs(12345678901), "12.3 s");
    EXPECT_EQ(formatNs(1234567890), "1.23 s");
    EXPECT_EQ(formatNs(7000), "7 us");
    EXPECT_EQ(formatLimit(1500), "1500 ms");
    EXPECT_EQ(formatLimit(15000), "15 s");
    EXPECT_EQ(formatBytes(1023), "1023 B");
    EXPECT_EQ(formatBytes(5 << 20), "5.0 MB");
}

TEST(Text, printableLeavesNoControlCharacters) {
    EXPECT_EQ(printable("a\033[2Jb\nc"), "a?[2Jb?c");
    EXPECT_EQ(printable("gr\xc3\xbc\xc3\x9f"), "gr\xc3\xbc\xc3\x9f");
    EXPECT_EQ(printable("\xc2\x9b"
                        "31m"),
              "?31m"); // C1 control: another way to begin a sequence
    for (const char* mark : {"\u061c", "\u200e", "\u200f", "\u202a", "\u202e", "\u2066", "\u2069",
                             "\u2028", "\x7f", "\xc2\x80", "\xc2\x9f"}) {
        EXPECT_EQ(printable(std::string("a") + mark + "b"), "a?b");
    }
    EXPECT_EQ(printable("\u00a0\u200b\u202f\u2065"), "\u00a0\u200b\u202f\u2065");
    EXPECT_EQ(printableLines("a\nhint: \033b\n  c\n"), "a\n  hint: ?b\n  c");
    EXPECT_EQ(printable("\xff\xc3"), "??");
    EXPECT_EQ(printable("abcdef", 3), "abc...");
    // As the JVM writes them: a pair of halves, a zero, and a half alone.
    EXPECT_EQ(printable("emoji-\xed\xa0\xbd\xed\xb8\x80-\xc0\x80-end"),
              "emoji-\xf0\x9f\x98\x80-?-end");
    EXPECT_EQ(printable("\xed\xa0\xbd-\xed\xb8\x80"), "?\?\?-???");
}

TEST(Text, validUtf8ReplacesWhatIsNone) {
    EXPECT_EQ(validUtf8("a\xff"
                        "b"),
              "a\xef\xbf\xbd"
              "b");
    EXPECT_EQ(validUtf8("\xed\xa0\x80").find("\xed"), std::string::npos); // a surrogate half
    EXPECT_EQ(validUtf8("\xf0\x9f\x98\x80"), "\xf0\x9f\x98\x80");
    EXPECT_EQ(validUtf8("\xed\xa0\xbd\xed\xb8\x80"), "\xf0\x9f\x98\x80");
    EXPECT_EQ(validUtf8("\xc0\x80").find('\xc0'), std::string::npos); // an overlong zero
}

TEST(Text, widthIsThatOfTheTerminal) {
    static const struct {
        const char* text;
        size_t width;
        const char* fitted; // to 5 columns
    } cases[] = {
        {"abc", 3, "abc"},
        {"W\xc3\xb6rker", 6, "W\xc3\xb6..."},
        {"\xe6\x97\xa5\xe6\x9c\xac", 4, "\xe6\x97\xa5\xe6\x9c\xac"},
        {"\xe6\x97\xa5\xe6\x9c\xac\xe6\x97\xa5", 6, "\xe6\x97\xa5..."},
        {"e\xcc\x81t\xc3\xa9", 3, "e\xcc\x81t\xc3\xa9"},
        {"a\xff", 2, "a\xff"},
        {"", 0, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(displayWidth(c.text), c.width) << c.text;
        EXPECT_EQ(fitted(c.text, 5), c.fitted);
    }
}
