#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

// DESCRIPTION
//   Maps the object identifiers of a heap dump to row numbers: 1, 2, ... in ascending order of the
//   identifiers. Built once from all identifiers, then read by any number of threads. A look-up of
//   heap addresses costs one or two memory reads, the whole map about 1/32 of the heap's address
//   range in bytes.
// IMPLEMENTATION
//   JVMs use addresses of 8-byte alignment as identifiers. For those the map is a bitmap over the
//   address space, one bit for 8 bytes, in words that hold their first row number beside them, so
//   that a row is that number plus a count of bits. Words are grouped in chunks of 2 MiB of
//   addresses; chunks that hold nothing don't exist. Other identifiers, and addresses so far apart
//   that the chunks would take more memory than the file justifies, are kept in a sorted array.
class ObjectIdMap {
public:
    // Collects identifiers; one for each thread that reads, merged at the end.
    class Builder {
    public:
        // chunkBudget bounds the bytes that the bitmap form may take before it is given up.
        explicit Builder(uint64_t chunkBudget) : budget(chunkBudget) {}
        // Adds an identifier other than 0; one more time is the same as once.
        void add(uint64_t id) {
            uint64_t chunk = id >> CHUNK_SHIFT;
            if (chunk == lastChunk && (id & 7) == 0) {
                lastWords[(id >> WORD_SHIFT) & (CHUNK_WORDS - 1)].bits |= bitOf(id);
                return;
            }
            addSlow(id);
        }
        // Takes over all that the other builder holds; the other is empty afterwards.
        void merge(Builder& other);

    private:
        friend class ObjectIdMap;
        struct Word {
            uint64_t bits;
            uint32_t firstRow; // row of the lowest bit set, counted up when the map is finished
        };
        void addSlow(uint64_t id);
        void giveUpChunks();
        Word* chunkOf(uint64_t chunk);

        uint64_t budget;
        bool asArray = false;
        uint64_t lastChunk = ~0ULL;
        Word* lastWords = nullptr;
        std::unordered_map<uint64_t, std::unique_ptr<Word[]>> chunks;
        std::vector<uint64_t> ids;
    };

    ObjectIdMap() = default;
    // Numbers all identifiers of builder, which is empty afterwards.
    void build(Builder& builder);

    // Number of identifiers, at the same time the highest row.
    uint64_t size() const { return count; }
    // The row of id, 0 if there is no such identifier.
    uint32_t rowOf(uint64_t id) const {
        if (!directory.empty()) {
            uint64_t chunk = (id >> CHUNK_SHIFT) - firstChunk;
            if (chunk >= directory.size() || (id & 7) != 0 || !directory[chunk]) {
                return 0;
            }
            const Builder::Word& word = directory[chunk][(id >> WORD_SHIFT) & (CHUNK_WORDS - 1)];
            uint64_t bit = bitOf(id);
            if ((word.bits & bit) == 0) {
                return 0;
            }
            return word.firstRow + countBits(word.bits & (bit - 1));
        }
        return rowInArray(id);
    }
    // The smallest identifier above id, 0 if there is none.
    uint64_t next(uint64_t id) const;
    // Largest power of two, up to 256, that divides all identifiers.
    uint32_t alignment() const { return commonAlignment; }
    // Bytes that the map takes.
    uint64_t memory() const;

private:
    static constexpr int WORD_SHIFT = 9;   // a word's 64 bits stand for 512 addresses
    static constexpr int CHUNK_SHIFT = 21; // a chunk stands for 2 MiB of addresses
    static constexpr uint64_t CHUNK_WORDS = 1ULL << (CHUNK_SHIFT - WORD_SHIFT);

    static uint64_t bitOf(uint64_t id) { return 1ULL << ((id >> 3) & 63); }
    // Bits set in v, without the instruction that older processors lack (Hacker's Delight, 5-1).
    static uint32_t countBits(uint64_t v) {
        v -= (v >> 1) & 0x5555555555555555ULL;
        v = (v & 0x3333333333333333ULL) + ((v >> 2) & 0x3333333333333333ULL);
        v = (v + (v >> 4)) & 0x0f0f0f0f0f0f0f0fULL;
        return static_cast<uint32_t>((v * 0x0101010101010101ULL) >> 56);
    }
    uint32_t rowInArray(uint64_t id) const;
    uint64_t nextInChunks(uint64_t id) const;
    void numberChunks(Builder& builder);

    uint64_t count = 0;
    uint32_t commonAlignment = 8;
    uint64_t firstChunk = 0;
    std::vector<std::unique_ptr<Builder::Word[]>> directory;
    std::vector<uint64_t> ids;
};
