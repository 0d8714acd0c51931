#include "client/watch/MethodSums.h"

#include <algorithm>

namespace vdk {

namespace {

// "(int, String)" for "(ILjava/lang/String;)V": classes without their packages.
std::string parametersOf(const std::string& signature) {
    static const std::map<char, const char*> primitives = {
        {'Z', "boolean"}, {'B', "byte"}, {'C', "char"},  {'S', "short"},
        {'I', "int"},     {'J', "long"}, {'F', "float"}, {'D', "double"}};
    std::string text = "(";
    for (size_t at = 1; at < signature.size() && signature[at] != ')'; at++) {
        size_t dimensions = 0;
        for (; at < signature.size() && signature[at] == '['; at++) {
            dimensions++;
        }
        text += text.size() > 1 ? ", " : "";
        const auto primitive = primitives.find(at < signature.size() ? signature[at] : ')');
        if (primitive != primitives.end()) {
            text += primitive->second;
        } else {
            const size_t end = std::min(signature.find(';', at), signature.size());
            const std::string name = signature.substr(std::min(at + 1, end), end - at - 1);
            text += name.substr(name.rfind('/') + 1);
            at = end;
        }
        for (; dimensions > 0; dimensions--) {
            text += "[]";
        }
    }
    return text + ")";
}

} // namespace

DurationBucket durationBucket(int bucket) {
    constexpr int FirstOfPowers = 16, PerPower = 8;
    if (bucket < FirstOfPowers) {
        return {bucket, 1};
    }
    const int power = (bucket - FirstOfPowers) / PerPower; // above the 16 ns
    const int64_t step = (bucket - FirstOfPowers) % PerPower;
    const int64_t width = int64_t(2) << power;
    return {(PerPower + step) * width, width};
}

int64_t MethodSums::quantileNs(double share) const {
    int64_t left = calls - int64_t((1 - share) * double(calls));
    for (const auto& [bucket, count] : buckets) {
        left -= count;
        if (left <= 0) {
            const DurationBucket range = durationBucket(bucket);
            const int64_t middle =
                bucket >= LastDurationBucket ? longestNs : range.fromNs + range.widthNs / 2;
            return std::clamp(middle, std::min(shortestNs, longestNs), longestNs);
        }
    }
    return longestNs;
}

MethodSums MethodSums::since(const MethodSums& before) const {
    MethodSums rest = *this;
    rest.calls -= before.calls;
    rest.errors -= before.errors;
    rest.totalNs -= before.totalNs;
    for (const auto& [bucket, count] : before.buckets) {
        if ((rest.buckets[bucket] -= count) <= 0) {
            rest.buckets.erase(bucket);
        }
    }
    if (rest.buckets.empty()) {
        rest.shortestNs = rest.longestNs = 0;
        return rest;
    }
    // A longest call that is new is known; of others the bucket is.
    const DurationBucket last = durationBucket(rest.buckets.rbegin()->first);
    if (longestNs == before.longestNs && rest.buckets.rbegin()->first < LastDurationBucket) {
        rest.longestNs = std::min(longestNs, last.fromNs + last.widthNs - 1);
    }
    rest.shortestNs = std::max(shortestNs, durationBucket(rest.buckets.begin()->first).fromNs);
    return rest;
}

std::string MethodSums::name(bool full) const {
    return className + "." + method + (full ? parametersOf(signature) : "");
}

} // namespace vdk
