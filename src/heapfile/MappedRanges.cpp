#include "heapfile/MappedRanges.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>

namespace {

constexpr int MOST_MAPPINGS = 16;

// `from` is set last and cleared first: a handler in between sees no mapping.
struct Mapping {
    std::atomic<uintptr_t> from{0};
    uintptr_t length = 0;
    char path[1024] = "";
};

Mapping mappings[MOST_MAPPINGS];
std::mutex changing;

} // namespace

void noteMapping(const void* address, unsigned long length, const char* path) {
    const std::lock_guard<std::mutex> one(changing);
    for (Mapping& mapping : mappings) {
        if (mapping.from.load() == 0) {
            mapping.length = length;
            snprintf(mapping.path, sizeof mapping.path, "%s", path);
            mapping.from.store(reinterpret_cast<uintptr_t>(address));
            return;
        }
    }
}

void forgetMapping(const void* address) {
    const std::lock_guard<std::mutex> one(changing);
    for (Mapping& mapping : mappings) {
        if (mapping.from.load() == reinterpret_cast<uintptr_t>(address)) {
            mapping.from.store(0);
            return;
        }
    }
}

const char* mappedFileAt(const void* address) {
    const uintptr_t at = reinterpret_cast<uintptr_t>(address);
    for (const Mapping& mapping : mappings) {
        const uintptr_t from = mapping.from.load();
        if (from != 0 && at >= from && at - from < mapping.length) {
            return mapping.path;
        }
    }
    return nullptr;
}
