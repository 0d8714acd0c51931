#include "core/ground/ZString.h"

#include "core/ground/Exceptions.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(ZString, sharesOneEmptyBuffer) {
    ZString empty;
    EXPECT_EQ(empty.c_str(), ZString::EMPTY_STR);
    EXPECT_EQ(ZString("abc").substring(1, 1).c_str(), ZString::EMPTY_STR);
    ZString::delete_c_str(ZString::EMPTY_STR);
    ZString::delete_c_str(nullptr);
    ZString text("x");
    text = empty;
    EXPECT_EQ(text.c_str(), ZString::EMPTY_STR);
    text.append("again");
    EXPECT_STREQ(text.c_str(), "again");
    EXPECT_EQ(ZString::EMPTY_STR[0], 0);
}

TEST(ZString, appendsNumbersInDecimal) {
    for (long value : {0L, 7L, -10L, LONG_MAX, LONG_MIN}) {
        EXPECT_EQ(longToString(value).c_str(), std::to_string(value));
    }
}

TEST(ZString, appendsItself) {
    ZString text("0123456789abcde");
    text.append(text);
    EXPECT_STREQ(text.c_str(), "0123456789abcde0123456789abcde");
    text.append(text.c_str() + 28);
    EXPECT_TRUE(text.endsWith("dede"));
}

TEST(ZString, refusesBadRangesAndNull) {
    const ZString text("abc");
    EXPECT_STREQ(text.substring(1, 3).c_str(), "bc");
    EXPECT_THROW(text.substring(-1, 2), VDKRuntimeException);
    EXPECT_THROW(text.substring(2, 1), VDKRuntimeException);
    EXPECT_THROW(text.substring(0, 4), VDKRuntimeException);
    EXPECT_THROW(text.charAt(3), VDKRuntimeException);
    EXPECT_THROW(ZString(static_cast<const char*>(nullptr)), VDKRuntimeException);
    EXPECT_THROW(text.startsWith(nullptr), VDKRuntimeException);
    EXPECT_THROW(text.endsWith(nullptr), VDKRuntimeException);
    ZString other;
    EXPECT_THROW(other.append(static_cast<const char*>(nullptr)), VDKRuntimeException);
}

TEST(ZString, splitsAtAnyDelimiterAndDropsEmptyPieces) {
    const struct {
        const char* text;
        const char* delimiters;
        const char* joined;
    } cases[] = {{"a,b,c", ",", "a|b|c"},     {",a,,b,", ",", "a|b"},  {"", ",", ""},
                 {"a\r\nb\n", "\n\r", "a|b"}, {"whole", ",", "whole"}, {",,,", ",", ""}};
    for (const auto& each : cases) {
        ZVectorSafe<ZString> pieces;
        ZString(each.text).split(each.delimiters, pieces);
        std::string joined;
        for (int i = 0; i < pieces.getSize(); i++) {
            joined += (i > 0 ? "|" : "") + std::string(pieces[i].c_str());
        }
        EXPECT_EQ(joined, each.joined) << each.text;
    }
}

TEST(ZString, findsAndCompares) {
    const ZString text("a.b.c");
    EXPECT_EQ(text.indexOf('.'), 1);
    EXPECT_EQ(text.lastIndexOf('.'), 3);
    EXPECT_EQ(text.indexOf("b.c"), 2);
    EXPECT_EQ(text.indexOf("c."), -1);
    EXPECT_TRUE(text.startsWith("a."));
    EXPECT_FALSE(text.startsWith("a.b.c.d"));
    EXPECT_TRUE(text.endsWith(".c"));
    EXPECT_TRUE(text == "a.b.c");
    EXPECT_TRUE(text != ZString("a.b"));
    EXPECT_STREQ((ZString("x") + "y" + ZString("z")).c_str(), "xyz");
}

} // namespace
