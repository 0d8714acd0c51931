// The calls of a watched method, counted by the agent: how many, how long, in buckets of durations.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace vdk {

struct MethodSums {
    std::string className, method, signature;
    int64_t calls = 0;
    int64_t errors = 0; // of these, left by an exception
    int64_t totalNs = 0;
    int64_t shortestNs = 0, longestNs = 0;
    std::map<int, int64_t> buckets; // calls by bucket of their durations

    int64_t meanNs() const { return calls > 0 ? totalNs / calls : 0; }
    // The duration that this share of the calls (0 to 1) did not exceed, give or take 6 %.
    int64_t quantileNs(double share) const;
    // What came since an earlier moment. The shortest and longest call are those of the buckets
    // then, within the ones of all.
    MethodSums since(const MethodSums& before) const;
    // "shop.Cart.add", with `full` "shop.Cart.add(int, String)".
    std::string name(bool full) const;
};

// The durations in a bucket: from `fromNs`, which is `widthNs` wide.
struct DurationBucket {
    int64_t fromNs, widthNs;
};
DurationBucket durationBucket(int bucket);

// The last one has no upper end.
constexpr int LastDurationBucket = 335;

} // namespace vdk
