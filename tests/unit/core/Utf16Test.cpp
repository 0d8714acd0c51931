#include "core/ground/Utf16.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

TEST(Utf16, textsComeThroughBothWays) {
    const struct {
        std::vector<unsigned short> utf16;
        const char* utf8;
    } rows[] = {
        {{'a', 0xe4, 0x20ac}, "a\xc3\xa4\xe2\x82\xac"},
        {{0xd83d, 0xde80, '-'}, "\xf0\x9f\x9a\x80-"},
        {{0xdbff, 0xdfff}, "\xf4\x8f\xbf\xbf"},
        {{0xd83d, 'x', 0xde80}, "\xed\xa0\xbdx\xed\xba\x80"}, // halves without the other
        {{'a', 0, 'b'},
         "a\xc0\x80"
         "b"},
        {{}, ""},
    };
    for (const auto& row : rows) {
        const int count = static_cast<int>(row.utf16.size());
        EXPECT_STREQ(row.utf8, utf16ToUtf8(row.utf16.data(), count).c_str());
        ZVector<unsigned short> back;
        utf8ToUtf16(row.utf8, &back);
        ASSERT_EQ(count, back.getSize()) << row.utf8;
        for (int i = 0; i < count; i++) {
            EXPECT_EQ(row.utf16[static_cast<size_t>(i)], back[i]) << row.utf8;
        }
    }
}

TEST(Utf16, pairsAndBrokenBytesAreReadAsWell) {
    ZVector<unsigned short> chars;
    // A pair in modified UTF-8, a sequence cut by the end, a byte that begins none.
    utf8ToUtf16("\xed\xa0\xbd\xed\xba\x80\x80\xe2\x82", &chars);
    const unsigned short expected[] = {0xd83d, 0xde80, 0x80, 0xe2, 0x82};
    ASSERT_EQ(5, chars.getSize());
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(expected[i], chars[i]);
    }
    EXPECT_TRUE(isBeyondModifiedUtf8("a\xf0\x9f\x9a\x80"));
    EXPECT_FALSE(isBeyondModifiedUtf8("\xed\xa0\xbd\xed\xba\x80"));
}
