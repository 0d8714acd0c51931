#include "heapfile/HeapText.h"

#include <gtest/gtest.h>

TEST(HeapText, classNamesAreShownAsInSource) {
    const char* const cases[][2] = {
        {"java/util/Map$Entry", "java.util.Map$Entry"},
        {"[Ljava/lang/Object;", "java.lang.Object[]"},
        {"[[I", "int[][]"},
        {"[Z", "boolean[]"},
        {"java.lang.Object[]", "java.lang.Object[]"},
        {"demo/Main$$Lambda$1+0x00007f", "demo.Main$$Lambda$1/0x00007f"},
        {"demo/Main$$Lambda/0x00007f", "demo.Main$$Lambda/0x00007f"},
        {"[", "["},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c[1], sourceClassName(c[0]));
    }
}

TEST(HeapText, onlyValidPrintableUtf8ComesOut) {
    auto clean = [](const std::string& s, uint64_t max = 1000) {
        return cleanUtf8(reinterpret_cast<const uint8_t*>(s.data()), s.size(), max);
    };
    EXPECT_EQ("plain", clean("plain"));
    EXPECT_EQ("\xc3\xa9\xe2\x82\xac", clean("\xc3\xa9\xe2\x82\xac"));
    EXPECT_EQ("a?b", clean("a\x1b"
                           "b"));
    EXPECT_EQ("??", clean("\xff\xc3"));
    EXPECT_EQ("\xf0\x9f\x98\x80", clean("\xed\xa0\xbd\xed\xb8\x80")); // a pair as one character
    EXPECT_EQ("?", clean("\xed\xa0\xbd"));                            // half a pair
    EXPECT_EQ("pl", clean("plain", 2));
}
