#include "client/console/Text.h"
#include "client/heap/HeapDocument.h"
#include "client/heap/HeapOwner.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

namespace vdk {

namespace {

const size_t ShownStrings = 30;
const size_t ShownOwners = 30;
const uint32_t ShownCharacters = 100;
const uint32_t WrittenCharacters = 1000;

// The characters of a string as they stand in the file.
struct Content {
    const uint8_t* bytes = nullptr;
    uint64_t length = 0;
    char type = 0;      // of the array's elements
    uint64_t coder = 0; // 1 if bytes hold pairs
    int array = 0;      // row

    bool equals(const Content& other) const {
        return length == other.length && type == other.type && coder == other.coder &&
               (length == 0 || memcmp(bytes, other.bytes, length) == 0);
    }
};

uint64_t hashOf(const Content& content) {
    uint64_t hash = content.length * 0x9e3779b97f4a7c15ULL + content.coder;
    for (uint64_t i = 0; i < content.length; i++) {
        hash = (hash ^ content.bytes[i]) * 0x100000001b3ULL;
    }
    return hash ^ hash >> 29;
}

struct Duplicate {
    int row = 0; // the first string of that text
    int64_t count = 0;
    int64_t arrays = 0; // distinct ones behind them
    int64_t wasted = 0; // bytes of all but one string and one array
};

// Strings whose text another one has already, by what holds them.
struct OwnerSum {
    int64_t count = 0;
    int64_t wasted = 0;
    int example = 0; // row
};

struct StringSums {
    int64_t count = 0;
    int64_t bytes = 0; // strings and their arrays, each once
    int64_t distinct = 0;
    int64_t wasted = 0;
    int64_t unreadable = 0;
    std::vector<Duplicate> duplicates;
    std::map<HeapOwner, OwnerSum> owners; // of all strings of a text but the first
};

class StringFinder {
public:
    explicit StringFinder(const HeapSession& session) : session(session), model(session.model()) {
        if (model.stringClass >= 0) {
            for (const HeapField& field : model.classes[size_t(model.stringClass)].fields) {
                sharesArrays = sharesArrays || field.name == "offset";
            }
        }
    }

    StringSums run();

private:
    struct Entry {
        uint64_t hash;
        int row;
    };
    bool contentOf(int row, Content& content) const;
    void addGroup(std::vector<Entry>::iterator first, std::vector<Entry>::iterator last,
                  StringSums& sums);

    const HeapSession& session;
    const HeapModel& model;
    bool sharesArrays = false; // strings of JDK 6 are parts of arrays
};

bool StringFinder::contentOf(int row, Content& content) const {
    uint32_t count = 0;
    content.array = model.referenceField(row, "value");
    if (content.array == 0 ||
        !model.primitiveArray(content.array, content.bytes, count, content.type)) {
        return false;
    }
    content.length = uint64_t(count) * (content.type == 'C' ? 2 : 1);
    if (content.type == 'B') {
        model.primitiveField(row, "coder", content.coder);
    }
    uint64_t offset = 0, length = 0;
    if (sharesArrays && model.primitiveField(row, "offset", offset) &&
        model.primitiveField(row, "count", length)) {
        if (offset > count || length > count - offset) {
            return false;
        }
        content.bytes += 2 * offset;
        content.length = 2 * length;
    }
    return true;
}

StringSums StringFinder::run() {
    StringSums sums;
    std::vector<Entry> entries;
    for (int row = 1; row <= model.rowCount(); row++) {
        if (model.isClass(row) || model.classOf(row) != model.stringClass ||
            model.stringClass < 0) {
            continue;
        }
        sums.count++;
        sums.bytes += std::max<int64_t>(model.sizeOf(row), 0);
        Content content;
        if (contentOf(row, content)) {
            entries.push_back({hashOf(content), row});
        } else {
            sums.unreadable++;
        }
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.hash != b.hash ? a.hash < b.hash : a.row < b.row;
    });
    for (auto first = entries.begin(); first != entries.end();) {
        auto last = std::find_if(first, entries.end(),
                                 [&](const Entry& e) { return e.hash != first->hash; });
        addGroup(first, last, sums);
        first = last;
    }
    std::sort(sums.duplicates.begin(), sums.duplicates.end(),
              [](const Duplicate& a, const Duplicate& b) {
                  return a.wasted != b.wasted ? a.wasted > b.wasted : a.row < b.row;
              });
    return sums;
}

// Strings of one hash: those of the first one's text, then the next one's, until none is left.
void StringFinder::addGroup(std::vector<Entry>::iterator first, std::vector<Entry>::iterator last,
                            StringSums& sums) {
    while (first != last) {
        Content reference;
        contentOf(first->row, reference);
        auto other = std::stable_partition(first, last, [&](const Entry& e) {
            Content content;
            return contentOf(e.row, content) && content.equals(reference);
        });
        std::set<int> arrays;
        Duplicate duplicate;
        duplicate.row = first->row;
        duplicate.count = other - first;
        for (auto e = first; e != other; ++e) {
            const int array = model.referenceField(e->row, "value");
            const int64_t arrayBytes =
                arrays.insert(array).second ? std::max<int64_t>(model.sizeOf(array), 0) : 0;
            sums.bytes += arrayBytes;
            if (e != first) {
                const int64_t bytes = arrayBytes + std::max<int64_t>(model.sizeOf(e->row), 0);
                duplicate.wasted += bytes;
                OwnerSum& owner = sums.owners[HeapOwner::of(session, e->row)];
                owner.count++;
                owner.wasted += bytes;
                owner.example = e->row;
            }
        }
        duplicate.arrays = int64_t(arrays.size());
        sums.distinct++;
        sums.wasted += duplicate.wasted;
        if (duplicate.count > 1) {
            sums.duplicates.push_back(duplicate);
        }
        first = other;
    }
}

HeapTable textTable(const HeapModel& model, const StringSums& sums, size_t top) {
    HeapTable table({{"", "id"},
                     {"", "text"},
                     {"wasted", "", HeapTable::Kind::Bytes},
                     {"strings", "count", HeapTable::Kind::Count},
                     {"arrays", "arrays", HeapTable::Kind::Count},
                     {"", "wasted"},
                     {"text", ""}});
    top = std::min(top, sums.duplicates.size());
    for (size_t i = 0; i < top; i++) {
        const Duplicate& each = sums.duplicates[i];
        const std::string text = heapDetail(model, each.row, WrittenCharacters);
        table.add({heapId(model, each.row), text, each.wasted, each.count, each.arrays, each.wasted,
                   "\"" + printable(text, ShownCharacters) + "\""});
    }
    table.setOmitted(sums.duplicates.size() - top);
    return table;
}

HeapTable ownerTable(const HeapModel& model, const StringSums& sums, size_t top) {
    std::vector<std::pair<HeapOwner, OwnerSum>> rows(sums.owners.begin(), sums.owners.end());
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second.wasted > b.second.wasted;
    });
    HeapTable table({{"wasted", "wasted", HeapTable::Kind::Bytes},
                     {"strings", "count", HeapTable::Kind::Count},
                     {"held by", "owner"},
                     {"", "example"}});
    top = std::min(top, rows.size());
    for (size_t i = 0; i < top; i++) {
        const OwnerSum& sum = rows[i].second;
        table.add({sum.wasted, sum.count, rows[i].first.text(model), heapId(model, sum.example)});
    }
    table.setOmitted(rows.size() - top);
    return table;
}

} // namespace

int reportHeapStrings(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    HeapSession session(console, heapOptions(arguments), true);
    const HeapModel& model = session.model();
    const StringSums sums = StringFinder(session).run();
    HeapDocument document(console, arguments, session, "strings");
    document.field("count", sums.count);
    document.field("bytes", sums.bytes);
    document.field("distinct", sums.distinct);
    document.field("wasted", sums.wasted);
    document.field("unreadable", sums.unreadable);
    document.line(formatCount(sums.count) + " strings of " + formatCount(sums.distinct) +
                  " texts, " + formatBytes(sums.bytes) + " with their arrays; " +
                  formatBytes(sums.wasted) + " for texts that are there already");
    document.table("duplicates", textTable(model, sums, heapTop(arguments, ShownStrings)));
    document.table("owners", ownerTable(model, sums, heapTop(arguments, ShownOwners)),
                   "By what holds them, all of a text but the first");
    document.end();
    return 0;
}

} // namespace vdk
