#include "heapfile/JvmLayout.h"

#include <gtest/gtest.h>

namespace {

// Gaps of arrays that lie side by side under a layout.
std::vector<JvmLayout::ArrayGap> packedArrays(uint64_t header, uint64_t reference) {
    std::vector<JvmLayout::ArrayGap> gaps;
    for (uint32_t length = 0; length < 40; length++) {
        gaps.push_back({(header + length + 7) / 8 * 8, length, 1});
        gaps.push_back({(header + reference * length + 7) / 8 * 8, length, 0});
    }
    return gaps;
}

} // namespace

TEST(JvmLayout, detectsHeadersAndReferences) {
    const struct {
        uint64_t arrayHeader;
        uint64_t reference;
        int64_t header;
    } cases[] = {{16, 4, 12}, {16, 8, 12}, {24, 8, 16}, {20, 8, 16}, {12, 4, 8}};
    for (const auto& c : cases) {
        JvmLayout layout;
        std::vector<JvmLayout::ArrayGap> gaps = packedArrays(c.arrayHeader, c.reference);
        // With a header of 20 references in full begin at 24.
        if (c.arrayHeader == 20) {
            for (JvmLayout::ArrayGap& gap : gaps) {
                gap.gap = gap.elementSize == 0 ? 24 + 8 * gap.length : gap.gap;
            }
        }
        layout.detect(gaps, 8, 8);
        EXPECT_EQ(c.header, layout.headerSize()) << c.arrayHeader << " " << c.reference;
        EXPECT_EQ(int64_t(c.reference), layout.referenceSize()) << c.arrayHeader;
    }
}

TEST(JvmLayout, assumesTheUsualWithoutArraysAndFillsGapsWithFieldsAsTheJvmDoes) {
    JvmLayout layout;
    layout.detect({}, 4, 8);
    EXPECT_EQ(8, layout.headerSize());
    layout.detect({}, 8, 32);
    EXPECT_EQ(32, layout.arraySize(1, 1));
    EXPECT_EQ(32, layout.instanceSize({"I"}, JvmLayout::Style::Packed));
    layout.detect({}, 8, 8);
    EXPECT_EQ(12, layout.headerSize());
    EXPECT_EQ(4, layout.referenceSize());
    HeapSizing sizing;
    layout.describe(sizing);
    EXPECT_TRUE(sizing.isAssumed());
    const struct {
        std::vector<std::string> fields;
        int64_t packed;
        int64_t legacy;
    } cases[] = {
        {{"", "I"}, 16, 16},           // java.lang.Integer
        {{"", "J"}, 24, 24},           // java.lang.Long: a gap of 4 ahead of the value
        {{"", "JI"}, 24, 24},          // the int fills the gap
        {{"", "LBIL"}, 32, 32},        //
        {{"", "ZI", "LDC"}, 32, 40},   // flag and number, then link, value and letter
        {{"", "J", "I"}, 24, 32},      // only newer JVMs put a subclass's field into the gap
        {{"", "B", "B", "B"}, 16, 24}, // each class's byte by itself
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.packed, layout.instanceSize(c.fields, JvmLayout::Style::Packed))
            << c.fields.back();
        EXPECT_EQ(c.legacy, layout.instanceSize(c.fields, JvmLayout::Style::Legacy))
            << c.fields.back();
        EXPECT_LE(layout.lowerBound(c.fields), c.packed);
    }
}
