#include "client/heap/reports/GrowthLimit.h"

#include "client/console/Text.h"
#include "client/heap/HeapClassTable.h"

namespace vdk {

namespace {

HeapClassSum sumOf(const GrowthLimit::Sums& sums, const std::string& pattern, bool& matches) {
    HeapClassSum all;
    for (const auto& [name, sum] : sums) {
        if (classNameMatches(pattern, name)) {
            addTo(all, sum);
            matches = true;
        }
    }
    return all;
}

} // namespace

GrowthLimit::GrowthLimit(const std::string& text) : whole(text) {
    const size_t colon = text.find_last_of(':');
    std::string amount = colon == std::string::npos ? "" : text.substr(colon + 1);
    int64_t scale = 1;
    if (!amount.empty() && !isdigit(static_cast<unsigned char>(amount.back()))) {
        const char last = amount.back();
        amount.pop_back();
        unit = last == '%' ? Unit::Percent : Unit::Bytes;
        scale = last == '%'   ? 1
                : last == 'k' ? 1024
                : last == 'm' ? 1048576
                : last == 'g' ? 1073741824
                              : 0;
    }
    const auto number = parseNumber(amount, 0, 1000000000);
    if (!number || scale == 0 || colon == 0) {
        throw ClientError(ExitCode::Usage, "usage",
                          "\"" + printable(text, 200) + "\" is no limit of growth",
                          "'java.util.HashMap$Node:10%', 'demo.*:500' for objects, or bytes as in "
                          "'byte[]:20m'");
    }
    pattern = text.substr(0, colon);
    limit = *number * scale;
}

bool GrowthLimit::isBroken(int64_t before, int64_t after) const {
    return unit == Unit::Percent ? double(after - before) * 100 > double(limit) * double(before)
                                 : after - before > limit;
}

GrowthLimit::Verdict GrowthLimit::judge(const Sums& before, const Sums& after) const {
    Verdict verdict;
    const HeapClassSum first = sumOf(before, pattern, verdict.matches);
    const HeapClassSum last = sumOf(after, pattern, verdict.matches);
    const bool count = unit != Unit::Bytes && isBroken(first.count, last.count);
    const bool bytes = unit != Unit::Objects && isBroken(first.shallow, last.shallow);
    if (count || bytes) {
        verdict.reason =
            printable(pattern, 200) + " grew from " +
            (count ? formatCount(first.count) + " to " + formatCount(last.count) + " objects"
                   : formatBytes(first.shallow) + " to " + formatBytes(last.shallow)) +
            ", the limit is " + whole.substr(pattern.size() + 1);
    }
    return verdict;
}

} // namespace vdk
