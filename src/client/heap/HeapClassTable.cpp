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

void printSums(Console& console, const std::vector<HeapClassSum>& sums, size_t top, bool retained) {
    std::vector<TextTable::Column> columns = {{"objects", TextTable::Right},
                                              {"shallow", TextTable::Right}};
    if (retained) {
        columns.push_back({"retained", TextTable::Right});
    }
    columns.push_back({"class"});
    TextTable table(columns);
    HeapClassSum rest;
    for (size_t i = 0; i < sums.size(); i++) {
        if (i >= top) {
            rest.count += sums[i].count;
            rest.shallow += sums[i].shallow;
            continue;
        }
        std::vector<std::string> cells = {formatCount(sums[i].count), formatBytes(sums[i].shallow)};
        if (retained) {
            cells.push_back(formatBytes(sums[i].retained));
        }
        cells.push_back(printable(sums[i].name));
        table.add(std::move(cells));
    }
    if (sums.size() > top) {
        std::vector<std::string> cells = {formatCount(rest.count), formatBytes(rest.shallow)};
        if (retained) {
            cells.push_back("");
        }
        cells.push_back("(" + formatCount(int64_t(sums.size() - top)) + " more classes)");
        table.add(std::move(cells));
    }
    table.print(console);
}

void writeSums(JsonWriter& json, const std::vector<HeapClassSum>& sums, size_t top, bool retained) {
    json.key("classes").beginArray();
    for (size_t i = 0; i < sums.size() && i < top; i++) {
        json.beginObject().field("class", sums[i].name).field("count", sums[i].count);
        json.field("shallow", sums[i].shallow);
        if (retained) {
            json.field("retained", sums[i].retained);
        }
        json.endObject();
    }
    json.endArray();
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

void printTotals(Console& console, const std::vector<HeapClassSum>& shown, const HeapClassSum& all,
                 bool some) {
    if (some) {
        HeapClassSum part = totalOf(shown);
        console.out << formatCount(part.count) << " objects, " << formatBytes(part.shallow)
                    << " of ";
    }
    console.out << formatCount(all.count) << " objects, " << formatBytes(all.shallow)
                << " in all\n";
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
