// The agent's hash tables beside std::unordered_map and std::unordered_set, on the keys that the
// agent uses them with: small dense ints, pointers, text.

#include "core/ground/ZMap.h"
#include "core/ground/ZSet.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {
// Keys spread like addresses of objects: distinct, multiples of 16, in no order.
std::vector<long> addressKeys(long count) {
    std::vector<long> keys;
    for (long i = 0; i < count; i++) {
        keys.push_back(0x7f0000000000L + i * 48);
    }
    std::shuffle(keys.begin(), keys.end(), std::mt19937(1));
    return keys;
}

std::vector<std::string> texts(long count) {
    std::vector<std::string> result;
    for (long i = 0; i < count; i++) {
        result.push_back("com.example.some.package.ClassNumber" + std::to_string(i));
    }
    return result;
}

void insertZMap(benchmark::State& state) {
    const std::vector<long> keys = addressKeys(state.range(0));
    for (auto _ : state) {
        ZMap<long, int> map(1024);
        for (long key : keys) {
            map.put(key, 1);
        }
        benchmark::DoNotOptimize(map.getSize());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void insertUnorderedMap(benchmark::State& state) {
    const std::vector<long> keys = addressKeys(state.range(0));
    for (auto _ : state) {
        std::unordered_map<long, int> map(1024);
        for (long key : keys) {
            map[key] = 1;
        }
        benchmark::DoNotOptimize(map.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void lookUpZMap(benchmark::State& state) {
    const std::vector<long> keys = addressKeys(state.range(0));
    ZMap<long, int> map(1024);
    for (long key : keys) {
        map.put(key, 1);
    }
    long sum = 0;
    for (auto _ : state) {
        for (long key : keys) {
            sum += map.get(key) + map.get(key + 8);
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0) * 2);
}

void lookUpUnorderedMap(benchmark::State& state) {
    const std::vector<long> keys = addressKeys(state.range(0));
    std::unordered_map<long, int> map(1024);
    for (long key : keys) {
        map[key] = 1;
    }
    long sum = 0;
    for (auto _ : state) {
        for (long key : keys) {
            const auto hit = map.find(key);
            const auto miss = map.find(key + 8);
            sum += (hit == map.end() ? 0 : hit->second) + (miss == map.end() ? 0 : miss->second);
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0) * 2);
}

void lookUpTextZMap(benchmark::State& state) {
    const std::vector<std::string> keys = texts(state.range(0));
    ZMap<const char*, int> map(1000);
    for (const std::string& key : keys) {
        map.put(key.c_str(), 1);
    }
    long sum = 0;
    for (auto _ : state) {
        for (const std::string& key : keys) {
            sum += map.get(key.c_str());
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void lookUpTextUnorderedMap(benchmark::State& state) {
    const std::vector<std::string> keys = texts(state.range(0));
    std::unordered_map<std::string, int> map(1000);
    for (const std::string& key : keys) {
        map[key] = 1;
    }
    long sum = 0;
    for (auto _ : state) {
        for (const std::string& key : keys) {
            sum += map.find(key)->second;
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The marking of used strings: dense ints, added several times each.
void markZSet(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        ZSet<int> set(1024);
        for (int round = 0; round < 3; round++) {
            for (int key = 1; key <= count; key++) {
                set.add(key);
            }
        }
        benchmark::DoNotOptimize(set.getSize());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 3);
}

void markUnorderedSet(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        std::unordered_set<int> set(1024);
        for (int round = 0; round < 3; round++) {
            for (int key = 1; key <= count; key++) {
                set.insert(key);
            }
        }
        benchmark::DoNotOptimize(set.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0) * 3);
}
} // namespace

BENCHMARK(insertZMap)->Arg(1000)->Arg(100000);
BENCHMARK(insertUnorderedMap)->Arg(1000)->Arg(100000);
BENCHMARK(lookUpZMap)->Arg(1000)->Arg(100000);
BENCHMARK(lookUpUnorderedMap)->Arg(1000)->Arg(100000);
BENCHMARK(lookUpTextZMap)->Arg(1000)->Arg(50000);
BENCHMARK(lookUpTextUnorderedMap)->Arg(1000)->Arg(50000);
BENCHMARK(markZSet)->Arg(1000)->Arg(100000);
BENCHMARK(markUnorderedSet)->Arg(1000)->Arg(100000);
