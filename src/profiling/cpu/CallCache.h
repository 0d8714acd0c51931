#pragma once

#include <cstddef>
#include <cstdint>

// CallCache: the calls that one thread has made before, with the frames they lead to, and what the
// thread has counted for itself since that was last added to the rows.
//
// DESCRIPTION
//   It is a cache: what it does not hold is looked up in the tables. It grows with the number of
//   call paths, up to MOST_SLOTS (512 KB) for a thread and MOST_BYTES for all of them; beyond that
//   new paths push out those used least of late. Nothing here locks. Only learn allocates, and
//   where no memory is left it learns less.
// IMPLEMENTATION
//   Open addressing. A call stands in the first free slot of the WINDOW slots from its own one on,
//   and never moves but by growth, so a search may end at a free slot.
class CallCache {
public:
    struct Call {
        int parent; // frame of the caller
        int method;
        int frame;     // 0 in a free slot: the root is nobody's callee
        unsigned uses; // halved whenever a neighbour gave way
        long count;
        long timeNs;
    };

    static constexpr int WINDOW = 8;
    static constexpr int LEAST_SLOTS = 64;
    static constexpr int MOST_SLOTS = 16384;
    static constexpr long MOST_BYTES = 64L << 20;

    CallCache() = default;
    ~CallCache() { clear(); }
    CallCache(const CallCache&) = delete;
    CallCache& operator=(const CallCache&) = delete;

    // Null for a call that is not known. Valid until the next learn.
    Call* find(int parent, int method) {
        if (slots == nullptr) {
            return nullptr;
        }
        Call* call = slots + home(parent, method);
        for (const Call* const end = call + WINDOW; call < end && call->frame != 0; call++) {
            if (call->parent == parent && call->method == method) {
                return call;
            }
        }
        return nullptr;
    }
    // The same by the slot where it was, if it still is there.
    Call* findAt(int slot, int parent, int method) {
        if (static_cast<unsigned>(slot) < static_cast<unsigned>(allocated)) {
            Call* const call = slots + slot;
            if (call->frame != 0 && call->parent == parent && call->method == method) {
                return call;
            }
        }
        return find(parent, method);
    }
    int slotOf(const Call* call) const { return static_cast<int>(call - slots); }
    void charge(Call* call, long count, long timeNs) {
        call->count += count;
        call->timeNs += timeNs;
        call->uses++;
        isCharged = true;
    }

    // Makes a call known. What gives way to it goes through fold(const Call&) first.
    template <typename Fold>
    void learn(int parent, int method, int frame, Fold&& fold);
    // Calls fold(const Call&) for all that the thread has counted, and begins at zero again.
    template <typename Fold>
    void foldAll(Fold&& fold);
    // The same for one call.
    template <typename Fold>
    void foldCall(int parent, int method, Fold&& fold);
    // Forgets what was counted.
    void forgetCharges();
    // Forgets the calls as well, and frees the memory.
    void clear();

    int getCapacity() const { return capacity; }
    int getSize() const { return size; }

private:
    unsigned home(int parent, int method) const {
        const uint64_t key = static_cast<uint64_t>(static_cast<unsigned>(parent)) << 32 |
                             static_cast<unsigned>(method);
        return static_cast<unsigned>(key * 0x9e3779b97f4a7c15U >> shift);
    }
    bool isCrowded() const { return capacity < MOST_SLOTS && size >= capacity / 4; }
    Call* findFree(int parent, int method);
    // The one to give way for another.
    Call* findVictim(int parent, int method);
    bool grow();

    Call* slots = nullptr;
    int capacity = 0;
    int allocated = 0; // the last window reaches behind the capacity
    int shift = 64;
    int size = 0;
    bool isCharged = false;
};

// Implementation

template <typename Fold>
void CallCache::learn(int parent, int method, int frame, Fold&& fold) {
    if (find(parent, method) != nullptr) {
        return;
    }
    Call* place = findFree(parent, method);
    while (place == nullptr && (slots == nullptr || isCrowded())) {
        foldAll(fold); // some may find no place in the larger table
        if (!grow()) {
            break;
        }
        place = findFree(parent, method);
    }
    if (slots == nullptr) {
        return;
    }
    if (place == nullptr) {
        place = findVictim(parent, method);
        fold(static_cast<const Call&>(*place));
        size--;
    }
    *place = {parent, method, frame, 1, 0, 0};
    size++;
}

template <typename Fold>
void CallCache::foldAll(Fold&& fold) {
    if (!isCharged) {
        return;
    }
    for (int i = 0; i < allocated; i++) {
        Call& call = slots[i];
        if (call.count != 0 || call.timeNs != 0) {
            fold(static_cast<const Call&>(call));
            call.count = 0;
            call.timeNs = 0;
        }
    }
    isCharged = false;
}

template <typename Fold>
void CallCache::foldCall(int parent, int method, Fold&& fold) {
    Call* const call = find(parent, method);
    if (call != nullptr) {
        fold(static_cast<const Call&>(*call));
        call->count = 0;
        call->timeNs = 0;
    }
}
