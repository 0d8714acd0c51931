// A set of rows that tells the place of each in ascending order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vdk {

// Two bits for each row that there is. Rows are added first; number() then makes it
// ready.
class RowRanks {
public:
    explicit RowRanks(int rowCount) : words(size_t(rowCount) / 64 + 1) {}

    void add(int row) { words[size_t(row) / 64].bits |= bitOf(row); }
    void number() {
        count = 0;
        for (Word& word : words) {
            word.before = count;
            count += uint32_t(__builtin_popcountll(word.bits));
        }
    }
    size_t size() const { return count; }
    // Calls visit(row) for each, ascending.
    template <typename Visit>
    void forEach(Visit&& visit) const {
        for (size_t i = 0; i < words.size(); i++) {
            for (uint64_t left = words[i].bits; left != 0; left &= left - 1) {
                visit(int(i * 64) + __builtin_ctzll(left));
            }
        }
    }
    // Any row, also one that there is not.
    bool has(int row) const {
        return row >= 0 && size_t(row) / 64 < words.size() &&
               (words[size_t(row) / 64].bits & bitOf(row)) != 0;
    }
    // How many rows of the set are below one that it has.
    size_t rank(int row) const {
        const Word& word = words[size_t(row) / 64];
        return word.before + size_t(__builtin_popcountll(word.bits & (bitOf(row) - 1)));
    }

private:
    struct Word {
        uint64_t bits = 0;
        uint32_t before = 0;
    };
    static uint64_t bitOf(int row) { return uint64_t(1) << (size_t(row) % 64); }

    std::vector<Word> words;
    uint32_t count = 0;
};

} // namespace vdk
