#include "heapfile/ObjectIdMap.h"

#include <algorithm>

void ObjectIdMap::Builder::addSlow(uint64_t id) {
    if (!asArray && (id & 7) != 0) {
        giveUpChunks();
    }
    if (asArray) {
        ids.push_back(id);
        return;
    }
    uint64_t chunk = id >> CHUNK_SHIFT;
    Word* words = chunkOf(chunk);
    if (!words) {
        giveUpChunks();
        ids.push_back(id);
        return;
    }
    lastChunk = chunk;
    lastWords = words;
    words[(id >> WORD_SHIFT) & (CHUNK_WORDS - 1)].bits |= bitOf(id);
}

// Null if one more chunk would go over the budget.
ObjectIdMap::Builder::Word* ObjectIdMap::Builder::chunkOf(uint64_t chunk) {
    auto found = chunks.find(chunk);
    if (found != chunks.end()) {
        return found->second.get();
    }
    if ((chunks.size() + 1) * CHUNK_WORDS * sizeof(Word) > budget) {
        return nullptr;
    }
    auto& made = chunks[chunk];
    made.reset(new Word[CHUNK_WORDS]());
    return made.get();
}

void ObjectIdMap::Builder::giveUpChunks() {
    for (const auto& entry : chunks) {
        for (uint64_t w = 0; w < CHUNK_WORDS; w++) {
            uint64_t base = (entry.first << CHUNK_SHIFT) + (w << WORD_SHIFT);
            for (uint64_t bits = entry.second[w].bits; bits != 0; bits &= bits - 1) {
                ids.push_back(base + 8 * static_cast<uint64_t>(__builtin_ctzll(bits)));
            }
        }
    }
    chunks.clear();
    lastChunk = ~0ULL;
    lastWords = nullptr;
    asArray = true;
}

void ObjectIdMap::Builder::merge(Builder& other) {
    if (other.asArray && !asArray) {
        giveUpChunks();
    }
    if (asArray && !other.asArray) {
        other.giveUpChunks();
    }
    if (asArray) {
        ids.insert(ids.end(), other.ids.begin(), other.ids.end());
        other.ids = std::vector<uint64_t>();
        return;
    }
    for (auto& entry : other.chunks) {
        auto& mine = chunks[entry.first];
        if (!mine) {
            mine = std::move(entry.second);
            continue;
        }
        for (uint64_t w = 0; w < CHUNK_WORDS; w++) {
            mine[w].bits |= entry.second[w].bits;
        }
    }
    other.chunks.clear();
    other.lastChunk = ~0ULL;
    other.lastWords = nullptr;
    // Both halves kept to the budget; together they may be over it by what they share in part.
}

void ObjectIdMap::build(Builder& builder) {
    directory.clear();
    ids.clear();
    count = 0;
    if (!builder.asArray && !builder.chunks.empty()) {
        uint64_t lowest = ~0ULL;
        uint64_t highest = 0;
        for (const auto& entry : builder.chunks) {
            lowest = std::min(lowest, entry.first);
            highest = std::max(highest, entry.first);
        }
        uint64_t range = highest - lowest + 1;
        if (range * sizeof(void*) > builder.budget) {
            builder.giveUpChunks();
        } else {
            firstChunk = lowest;
            directory.resize(range);
            numberChunks(builder);
            return;
        }
    }
    ids.swap(builder.ids);
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    ids.shrink_to_fit();
    count = ids.size();
    uint64_t any = 256;
    for (uint64_t id : ids) {
        any |= id;
    }
    commonAlignment = static_cast<uint32_t>(any & (~any + 1));
}

void ObjectIdMap::numberChunks(Builder& builder) {
    for (auto& entry : builder.chunks) {
        directory[entry.first - firstChunk] = std::move(entry.second);
    }
    builder.chunks.clear();
    builder.lastChunk = ~0ULL;
    builder.lastWords = nullptr;
    uint64_t row = 1;
    uint64_t anyBit = 0; // bits of all words or-ed: which multiples of 8 occur within 512
    for (auto& chunk : directory) {
        for (uint64_t w = 0; chunk && w < CHUNK_WORDS; w++) {
            chunk[w].firstRow = static_cast<uint32_t>(row);
            row += countBits(chunk[w].bits);
            anyBit |= chunk[w].bits;
        }
    }
    count = row - 1;
    commonAlignment = 256;
    for (uint32_t bit = 0; bit < 64; bit++) {
        uint32_t address = bit * 8;
        if ((anyBit >> bit & 1) != 0 && address != 0) {
            commonAlignment = std::min(commonAlignment, address & (~address + 1));
        }
    }
}

uint32_t ObjectIdMap::rowInArray(uint64_t id) const {
    auto found = std::lower_bound(ids.begin(), ids.end(), id);
    if (found == ids.end() || *found != id) {
        return 0;
    }
    return static_cast<uint32_t>(found - ids.begin()) + 1;
}

uint64_t ObjectIdMap::next(uint64_t id) const {
    if (!directory.empty()) {
        return nextInChunks(id);
    }
    auto found = std::upper_bound(ids.begin(), ids.end(), id);
    return found == ids.end() ? 0 : *found;
}

uint64_t ObjectIdMap::nextInChunks(uint64_t id) const {
    uint64_t chunk = id >> CHUNK_SHIFT;
    if (chunk < firstChunk) {
        return 0;
    }
    uint64_t word = (id >> WORD_SHIFT) & (CHUNK_WORDS - 1);
    // Bits above that of id; the double shift keeps the shift count below 64.
    uint64_t mask = ~0ULL << ((id >> 3) & 63) << 1;
    for (chunk -= firstChunk; chunk < directory.size(); chunk++, word = 0) {
        for (; directory[chunk] && word < CHUNK_WORDS; word++) {
            uint64_t bits = directory[chunk][word].bits & mask;
            mask = ~0ULL;
            if (bits != 0) {
                return ((firstChunk + chunk) << CHUNK_SHIFT) + (word << WORD_SHIFT) +
                       8 * static_cast<uint64_t>(__builtin_ctzll(bits));
            }
        }
        mask = ~0ULL;
    }
    return 0;
}

uint64_t ObjectIdMap::memory() const {
    uint64_t total = directory.size() * sizeof(void*) + ids.capacity() * sizeof(uint64_t);
    for (const auto& chunk : directory) {
        total += chunk ? CHUNK_WORDS * sizeof(Builder::Word) : 0;
    }
    return total;
}
