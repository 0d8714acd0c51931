#include "core/ground/Utf16.h"

#include <gtest/gtest.h>
#include <vector>

TEST(Utf16, halvesAndBrokenBytesComeThrough) {
    const struct {
        const char* utf8;
        std::vector<unsigned short> utf16;
        const char* back;
    } rows[] = {
        {"\xf0\x9f\x9a\x80-", {0xd83d, 0xde80, '-'}, "\xf0\x9f\x9a\x80-"},
        {"\xf4\x8f\xbf\xbf", {0xdbff, 0xdfff}, "\xf4\x8f\xbf\xbf"},
        // A pair of modified UTF-8, and halves without the other.
        {"\xed\xa0\xbd\xed\xba\x80", {0xd83d, 0xde80}, "\xf0\x9f\x9a\x80"},
        {"\xed\xa0\xbdx\xed\xba\x80", {0xd83d, 'x', 0xde80}, "\xed\xa0\xbdx\xed\xba\x80"},
        {"a\xc0\x80", {'a', 0}, "a\xc0\x80"},
        // A byte that begins nothing, a sequence cut by the end.
        {"\x80\xe2\x82", {0x80, 0xe2, 0x82}, "\xc2\x80\xc3\xa2\xc2\x82"},
    };
    for (const auto& row : rows) {
        ZVector<unsigned short> chars;
        utf8ToUtf16(row.utf8, &chars);
        EXPECT_EQ(row.utf16,
                  std::vector<unsigned short>(chars.data(), chars.data() + chars.getSize()));
        EXPECT_STREQ(row.back, utf16ToUtf8(chars.data(), chars.getSize()).c_str());
    }
    EXPECT_TRUE(isBeyondModifiedUtf8("a\xf0\x9f\x9a\x80"));
    EXPECT_FALSE(isBeyondModifiedUtf8("\xed\xa0\xbd\xed\xba\x80"));
}
