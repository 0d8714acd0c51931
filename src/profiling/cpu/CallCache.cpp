#include "profiling/cpu/CallCache.h"

#include <atomic>
#include <new>

namespace {

// Of all threads' caches.
std::atomic<long> ourBytes{0};

long bytesOf(int slots) {
    return static_cast<long>(sizeof(CallCache::Call)) * slots;
}

} // namespace

CallCache::Call* CallCache::findFree(int parent, int method) {
    if (slots == nullptr) {
        return nullptr;
    }
    Call* const first = slots + home(parent, method);
    for (int i = 0; i < WINDOW; i++) {
        if (first[i].frame == 0) {
            return first + i;
        }
    }
    return nullptr;
}

CallCache::Call* CallCache::findVictim(int parent, int method) {
    Call* const first = slots + home(parent, method);
    Call* victim = first;
    for (int i = 1; i < WINDOW; i++) {
        victim = first[i].uses < victim->uses ? first + i : victim;
    }
    for (int i = 0; i < WINDOW; i++) {
        first[i].uses /= 2;
    }
    return victim;
}

bool CallCache::grow() {
    const int wanted = capacity == 0 ? LEAST_SLOTS : 2 * capacity;
    const int grown = wanted + WINDOW;
    const long more = bytesOf(grown) - bytesOf(allocated);
    Call* const fresh = ourBytes.fetch_add(more) + more > MOST_BYTES
                            ? nullptr
                            : new (std::nothrow) Call[static_cast<size_t>(grown)]();
    if (fresh == nullptr) {
        ourBytes -= more;
        return false;
    }
    Call* const old = slots;
    const int oldSlots = allocated;
    slots = fresh;
    capacity = wanted;
    allocated = grown;
    shift = __builtin_clz(static_cast<unsigned>(wanted)) + 33;
    size = 0;
    for (int i = 0; i < oldSlots; i++) {
        Call* const place = old[i].frame == 0 ? nullptr : findFree(old[i].parent, old[i].method);
        if (place != nullptr) {
            *place = old[i];
            size++;
        }
    }
    delete[] old;
    return true;
}

void CallCache::forgetCharges() {
    foldAll([](const Call&) {});
}

void CallCache::clear() {
    delete[] slots;
    ourBytes -= bytesOf(allocated);
    slots = nullptr;
    capacity = 0;
    allocated = 0;
    shift = 64;
    size = 0;
    isCharged = false;
}
