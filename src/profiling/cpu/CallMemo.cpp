// Each entry has a version, odd while it is written. Readers copy and look at the version again.
// An entry is good until code is added or removed.
#include "profiling/cpu/CallMemo.h"

#include <atomic>

namespace {

const size_t ENTRIES = 4096;

struct Entry {
    std::atomic<uint32_t> version;
    std::atomic<unsigned> changes;
    std::atomic<uintptr_t> pc;
    std::atomic<uint16_t> words;
    std::atomic<uint16_t> count;
    std::atomic<CompiledCode::Kind> kind;
    std::atomic<int32_t> positions[CallMemo::MOST_FRAMES];
    std::atomic<jmethodID> methods[CallMemo::MOST_FRAMES];
};
static_assert(sizeof(Entry) <= 128, "two cache lines");

struct alignas(128) AlignedEntry {
    Entry entry;
};
AlignedEntry ourEntries[ENTRIES];

Entry& entryOf(uintptr_t pc) {
    return ourEntries[(pc ^ (pc >> 13)) % ENTRIES].entry;
}

// False if the entry is another's.
bool read(const Entry& entry, uintptr_t pc, unsigned changes, CallFrame* frames, int most,
          CompiledCode::Frame* frame) {
    const auto relaxed = std::memory_order_relaxed;
    const uint32_t version = entry.version.load(std::memory_order_acquire);
    if (version % 2 != 0 || entry.pc.load(relaxed) != pc ||
        entry.changes.load(relaxed) != changes) {
        return false;
    }
    frame->count = entry.count.load(relaxed);
    if (frame->count < 1 || frame->count > CallMemo::MOST_FRAMES || frame->count > most) {
        return false;
    }
    frame->words = entry.words.load(relaxed);
    frame->kind = entry.kind.load(relaxed);
    frame->state = CodeShape::ALL;
    for (int i = 0; i < frame->count; i++) {
        frames[i] = {entry.positions[i].load(relaxed), entry.methods[i].load(relaxed)};
    }
    std::atomic_thread_fence(std::memory_order_acquire);
    return entry.version.load(relaxed) == version;
}

void write(Entry* entry, uintptr_t pc, unsigned changes, const CallFrame* frames,
           const CompiledCode::Frame& frame) {
    const auto relaxed = std::memory_order_relaxed;
    uint32_t version = entry->version.load(relaxed);
    if (frame.count < 1 || frame.count > CallMemo::MOST_FRAMES || frame.words > UINT16_MAX ||
        version % 2 != 0 || !entry->version.compare_exchange_strong(version, version + 1)) {
        return;
    }
    std::atomic_thread_fence(std::memory_order_release);
    entry->pc.store(pc, relaxed);
    entry->changes.store(changes, relaxed);
    entry->count.store(static_cast<uint16_t>(frame.count), relaxed);
    entry->words.store(static_cast<uint16_t>(frame.words), relaxed);
    entry->kind.store(frame.kind, relaxed);
    for (int i = 0; i < frame.count; i++) {
        entry->positions[i].store(frames[i].position, relaxed);
        entry->methods[i].store(frames[i].method, relaxed);
    }
    entry->version.store(version + 2, std::memory_order_release);
}

} // namespace

CompiledCode::Frame CallMemo::callAt(uintptr_t pc, CallFrame* frames, int most) {
    const unsigned changes = CompiledCode::getChanges();
    Entry& entry = entryOf(pc);
    CompiledCode::Frame frame;
    if (!read(entry, pc, changes, frames, most, &frame)) {
        frame = CompiledCode::callAt(pc, frames, most);
        write(&entry, pc, changes, frames, frame);
    }
    return frame;
}
