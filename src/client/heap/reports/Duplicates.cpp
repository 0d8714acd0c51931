// Primitive arrays with equal content.
#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapOwner.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "heapfile/HeapText.h"

#include <algorithm>
#include <cstring>

namespace vdk {

namespace {

const size_t ShownGroups = 30;

struct Content {
    const uint8_t* bytes = nullptr;
    uint64_t length = 0;
    char type = 0;

    bool operator==(const Content& other) const {
        return type == other.type && length == other.length &&
               (length == 0 || memcmp(bytes, other.bytes, length) == 0);
    }
};

bool contentOf(const HeapModel& model, int row, Content& content) {
    uint32_t count = 0;
    if (model.storage->getArrayLength(row) <= 0 ||
        !model.primitiveArray(row, content.bytes, count, content.type)) {
        return false;
    }
    content.length = uint64_t(count) * primitiveTypeSize(content.type);
    return true;
}

uint64_t hashOf(const Content& content) {
    uint64_t hash = content.length * 31 + uint64_t(content.type);
    uint64_t at = 0;
    for (; at + 8 <= content.length; at += 8) {
        uint64_t word = 0;
        memcpy(&word, content.bytes + at, sizeof(word));
        hash = (hash ^ word) * 0x9e3779b97f4a7c15ULL;
        hash ^= hash >> 32;
    }
    for (; at < content.length; at++) {
        hash = (hash ^ content.bytes[at]) * 0x100000001b3ULL;
    }
    return hash ^ hash >> 29;
}

struct Copies {
    int row; // the first
    int64_t count;
    int64_t wasted;
};

std::vector<Copies> findCopies(const HeapSession& session, int64_t& arrays) {
    const HeapModel& model = session.model();
    std::vector<std::pair<uint64_t, int>> hashes;
    for (int row = 1; row <= model.lastRowWithId; row++) {
        Content content;
        if (contentOf(model, row, content)) {
            hashes.emplace_back(hashOf(content), row);
        }
    }
    arrays = int64_t(hashes.size());
    std::sort(hashes.begin(), hashes.end());
    std::vector<Copies> found;
    for (auto first = hashes.begin(); first != hashes.end();) {
        // Different contents with one hash are rare: the next one's turn comes afterwards.
        const auto last = std::find_if(
            first, hashes.end(), [&](const auto& each) { return each.first != first->first; });
        Content wanted;
        contentOf(model, first->second, wanted);
        const auto other = std::stable_partition(first, last, [&](const auto& each) {
            Content content;
            return contentOf(model, each.second, content) && content == wanted;
        });
        const int64_t count = other - first;
        if (count > 1) {
            const int64_t size = std::max<int64_t>(session.sizeOf(first->second), 0);
            found.push_back({first->second, count, (count - 1) * size});
        }
        first = other;
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Copies& a, const Copies& b) { return a.wasted > b.wasted; });
    return found;
}

// The first elements, or the text of bytes and characters.
std::string preview(const HeapModel& model, int row) {
    const uint8_t* bytes = nullptr;
    uint32_t count = 0;
    char type = 0;
    model.primitiveArray(row, bytes, count, type);
    std::string text;
    const bool isText = type == 'B' || type == 'C';
    for (uint32_t i = 0; i < std::min<uint32_t>(count, isText ? 40 : 8); i++) {
        const uint64_t bits = model.element(bytes, i, type);
        if (isText) {
            appendUtf8(text, uint32_t(bits));
        } else {
            text += (i > 0 ? " " : "") + std::to_string(int64_t(bits));
        }
    }
    return isText ? "\"" + text + "\"" : text;
}

} // namespace

int reportHeapDuplicates(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    int64_t arrays = 0;
    const std::vector<Copies> found = findCopies(session, arrays);
    int64_t wasted = 0;
    for (const Copies& copies : found) {
        wasted += copies.wasted;
    }
    const size_t top = std::min(found.size(), heapTop(arguments, ShownGroups));
    HeapTable table({{"wasted", "wasted", HeapTable::Kind::Bytes},
                     {"arrays", "count", HeapTable::Kind::Count},
                     {"class", "class"},
                     {"length", "length", HeapTable::Kind::Count},
                     {"", "id"},
                     {"one is held by", "owner"},
                     {"content", "content"}});
    for (size_t i = 0; i < top; i++) {
        const int row = found[i].row;
        table.add({found[i].wasted, found[i].count, model.classNameOf(row),
                   session.storage().getArrayLength(row), heapId(model, row),
                   HeapOwner::of(session, row).text(model), preview(model, row)});
    }
    table.setOmitted(found.size() - top);
    HeapDocument document(console, arguments, session, "duplicates");
    document.field("count", arrays);
    document.field("wasted", wasted);
    document.line(formatCount(arrays) + " primitive arrays, " + formatBytes(wasted) +
                  " of them for what is there already");
    document.table("duplicates", table);
    document.end();
    return 0;
}

} // namespace vdk
