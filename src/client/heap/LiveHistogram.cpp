#include "client/heap/LiveHistogram.h"

#include "client/console/Text.h"
#include "heapfile/HeapText.h"

#include <climits>
#include <map>
#include <optional>
#include <sstream>

namespace vdk {

static std::optional<HeapClassSum> parseRow(const std::string& line) {
    std::istringstream words(line);
    std::string rank, count, bytes, name;
    words >> rank >> count >> bytes >> name;
    auto objects = parseNumber(count, 0, LONG_MAX);
    auto size = parseNumber(bytes, 0, LONG_MAX);
    if (!endsWith(rank, ":") || !objects || !size || name.empty()) {
        return std::nullopt;
    }
    HeapClassSum sum;
    sum.name = sourceClassName(name);
    sum.count = *objects;
    sum.shallow = *size;
    return sum;
}

std::vector<HeapClassSum> parseLiveHistogram(const std::string& text) {
    std::map<std::string, HeapClassSum> sums;
    for (const std::string& line : split(text, '\n')) {
        if (auto row = parseRow(line)) {
            HeapClassSum& sum = sums[row->name];
            sum.name = row->name;
            sum.count += row->count;
            sum.shallow += row->shallow;
        }
    }
    std::vector<HeapClassSum> result;
    for (auto& entry : sums) {
        result.push_back(std::move(entry.second));
    }
    return result;
}

} // namespace vdk
