#include "heapfile/JvmLayout.h"

#include "heapfile/HeapText.h"

#include <algorithm>

namespace {

int64_t alignTo(int64_t value, int64_t unit) {
    return (value + unit - 1) / unit * unit;
}

// Free stretches of an object below its end, and the end.
class FieldSpace {
public:
    explicit FieldSpace(int64_t header) : end(header) {}

    void place(int64_t size) {
        for (size_t i = 0; i < holes.size(); i++) {
            Hole hole = holes[i];
            int64_t at = alignTo(hole.from, size);
            if (at + size > hole.to) {
                continue;
            }
            holes.erase(holes.begin() + static_cast<std::ptrdiff_t>(i));
            addHole(hole.from, at);
            addHole(at + size, hole.to);
            return;
        }
        int64_t at = alignTo(end, size);
        addHole(end, at);
        end = at + size;
    }
    int64_t getEnd() const { return end; }

private:
    struct Hole {
        int64_t from;
        int64_t to;
    };
    void addHole(int64_t from, int64_t to) {
        if (from < to) {
            holes.push_back({from, to});
        }
    }
    std::vector<Hole> holes;
    int64_t end;
};

} // namespace

void JvmLayout::detect(const std::vector<ArrayGap>& gaps, uint32_t idSize,
                       uint32_t objectAlignment) {
    // In the order of preference when the gaps don't decide: compressed class pointers and
    // references, references in full, both in full (also with the array header of JDK 23 and
    // later), references alone compressed, compact object headers.
    static const Candidate wide[] = {{12, 16, 4}, {12, 16, 8}, {16, 24, 8}, {16, 20, 8},
                                     {16, 24, 4}, {16, 20, 4}, {8, 12, 4},  {8, 12, 8}};
    static const Candidate narrow[] = {{8, 12, 4}};
    const Candidate* candidates = idSize == 4 ? narrow : wide;
    size_t count = idSize == 4 ? 1 : sizeof(wide) / sizeof(wide[0]);
    alignment = std::max<int64_t>(8, objectAlignment);
    int64_t bestScore = INT64_MIN;
    Candidate best = candidates[0];
    for (size_t c = 0; c < count; c++) {
        header = candidates[c].header;
        arrayHeader = candidates[c].arrayHeader;
        reference = candidates[c].reference;
        int64_t exact = 0;
        int64_t impossible = 0;
        for (const ArrayGap& sample : gaps) {
            int64_t size = arraySize(sample.elementSize, sample.length);
            exact += sample.gap != 0 && static_cast<uint64_t>(size) == sample.gap;
            impossible += sample.gap != 0 && static_cast<uint64_t>(size) > sample.gap;
        }
        int64_t score = exact - 4 * impossible;
        if (score > bestScore) {
            bestScore = score;
            best = candidates[c];
            exactGaps = static_cast<uint64_t>(exact);
        }
    }
    judgedGaps = gaps.size();
    header = best.header;
    arrayHeader = best.arrayHeader;
    reference = best.reference;
}

int64_t JvmLayout::arraySize(uint32_t elementSize, uint64_t length) const {
    int64_t size = elementSize == 0 ? reference : elementSize;
    int64_t base = size == 8 ? alignTo(arrayHeader, 8) : arrayHeader;
    return align(base + size * static_cast<int64_t>(length));
}

int64_t JvmLayout::fieldSize(char type) const {
    return type == 'L' ? reference : static_cast<int64_t>(primitiveTypeSize(type));
}

int64_t JvmLayout::lowerBound(const std::vector<std::string>& fieldTypes) const {
    int64_t size = header;
    for (const std::string& types : fieldTypes) {
        for (char type : types) {
            size += fieldSize(type);
        }
    }
    return align(size);
}

int64_t JvmLayout::instanceSize(const std::vector<std::string>& fieldTypes, Style style) const {
    return align(style == Style::Packed ? packedSize(fieldTypes) : legacySize(fieldTypes));
}

// Each class's primitives by descending size, then its references, each in the first hole that
// fits.
int64_t JvmLayout::packedSize(const std::vector<std::string>& fieldTypes) const {
    FieldSpace space(header);
    for (const std::string& types : fieldTypes) {
        std::vector<int64_t> sizes;
        size_t references = 0;
        for (char type : types) {
            if (type == 'L') {
                references++;
            } else {
                sizes.push_back(fieldSize(type));
            }
        }
        std::stable_sort(sizes.begin(), sizes.end(), [](int64_t a, int64_t b) { return a > b; });
        sizes.insert(sizes.end(), references, reference);
        for (int64_t size : sizes) {
            space.place(std::max<int64_t>(size, 1));
        }
    }
    return space.getEnd();
}

// As packedSize, but a subclass sees one hole at the most: that in front of its first 8-byte field.
int64_t JvmLayout::legacySize(const std::vector<std::string>& fieldTypes) const {
    int64_t end = header;
    for (const std::string& types : fieldTypes) {
        if (types.empty()) {
            continue;
        }
        std::vector<std::string> own(1, types);
        JvmLayout part = *this;
        part.header = end;
        end = alignTo(part.packedSize(own), reference);
    }
    return end;
}

void JvmLayout::describe(HeapSizing& sizing) const {
    sizing.reference = static_cast<uint32_t>(reference);
    sizing.header = static_cast<uint32_t>(header);
    sizing.arrayHeader = static_cast<uint32_t>(arrayHeader);
    sizing.alignment = static_cast<uint32_t>(alignment);
    sizing.arrays = judgedGaps;
    sizing.exactArrays = exactGaps;
}
