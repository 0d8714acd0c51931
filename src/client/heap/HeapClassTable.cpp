#include "client/heap/HeapClassTable.h"

#include "client/console/Text.h"

#include <algorithm>

namespace vdk {

SortKey sortKey(const Arguments& arguments, bool analyzed) {
    std::string name = arguments.text("--sort", analyzed ? "retained" : "shallow");
    const std::vector<std::string> known = {"retained", "shallow", "count", "name"};
    if (std::find(known.begin(), known.end(), name) == known.end()) {
        throw ClientError(ExitCode::Usage, "usage",
                          "\"" + printable(name, 100) + "\" is no order of classes" +
                              didYouMean(name, known),
                          "there are " + join(known, ", "));
    }
    return name == "count"     ? SortKey::Count
           : name == "shallow" ? SortKey::Shallow
           : name == "name"    ? SortKey::Name
                               : SortKey::Retained;
}

int64_t sortValue(const HeapClassSum& sum, SortKey key) {
    return key == SortKey::Count ? sum.count : key == SortKey::Shallow ? sum.shallow : sum.retained;
}

void sortSums(std::vector<HeapClassSum>& sums, SortKey key) {
    std::sort(sums.begin(), sums.end(), [key](const HeapClassSum& a, const HeapClassSum& b) {
        if (key != SortKey::Name && sortValue(a, key) != sortValue(b, key)) {
            return sortValue(a, key) > sortValue(b, key);
        }
        return a.name != b.name ? a.name < b.name : a.classIndex < b.classIndex;
    });
}

HeapTable sumTable(const std::vector<HeapClassSum>& sums, size_t top, bool retained) {
    std::vector<HeapTable::Column> columns = {{"", "class"},
                                              {"objects", "count", HeapTable::Kind::Count},
                                              {"shallow", "shallow", HeapTable::Kind::Bytes}};
    if (retained) {
        columns.push_back({"retained", "retained", HeapTable::Kind::Bytes});
    }
    columns.push_back({"class", ""});
    HeapTable table(columns);
    top = std::min(top, sums.size());
    for (size_t i = 0; i < top; i++) {
        HeapTable::Row row = {sums[i].name, sums[i].count, sums[i].shallow};
        if (retained) {
            row.emplace_back(sums[i].retained);
        }
        row.emplace_back(sums[i].name);
        table.add(std::move(row));
    }
    table.setOmitted(sums.size() - top);
    return table;
}

void addTo(HeapClassSum& sum, const HeapClassSum& other) {
    sum.count += other.count;
    sum.shallow += other.shallow;
    sum.retained += other.retained;
}

HeapClassSum totalOf(const std::vector<HeapClassSum>& sums) {
    HeapClassSum total;
    for (const HeapClassSum& sum : sums) {
        addTo(total, sum);
    }
    return total;
}

std::string totalsText(const std::vector<HeapClassSum>& shown, const HeapClassSum& all, bool some) {
    std::string text;
    if (some) {
        const HeapClassSum part = totalOf(shown);
        text = formatCount(part.count) + " objects, " + formatBytes(part.shallow) + " of ";
    }
    return text + formatCount(all.count) + " objects, " + formatBytes(all.shallow) + " in all";
}

// Goes back to the last star only, which is enough.
bool classNameMatches(const std::string& pattern, const std::string& text) {
    size_t p = 0, t = 0, star = std::string::npos, starText = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            starText = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            p++;
            t++;
        } else if (star != std::string::npos) {
            p = star + 1;
            t = ++starText;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string::npos;
}

} // namespace vdk
