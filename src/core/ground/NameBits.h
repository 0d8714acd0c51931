#pragma once

#include "core/ground/ZString.h"

// NameBits<BITS>: a set of names, by one bit each: memory that does not grow, and a few names too
// many. BITS: a power of two.
template <unsigned BITS>
class NameBits {
public:
    void add(const ZString& name) {
        const unsigned hash = hashOf(name.c_str(), name.getLength());
        words[hash / WORD_BITS] |= 1UL << hash % WORD_BITS;
    }
    void addAll(const NameBits& other) {
        for (unsigned i = 0; i < WORDS; i++) {
            words[i] |= other.words[i];
        }
    }
    bool mayHave(const ZString& name) const { return mayHave(name.c_str(), name.getLength()); }
    bool mayHave(const char* name, int length) const {
        const unsigned hash = hashOf(name, length);
        return (words[hash / WORD_BITS] >> hash % WORD_BITS & 1) != 0;
    }
    bool isEmpty() const {
        for (const unsigned long word : words) {
            if (word != 0) {
                return false;
            }
        }
        return true;
    }
    // Names that share a bit count as one.
    int count() const {
        int bits = 0;
        for (const unsigned long word : words) {
            bits += __builtin_popcountl(word);
        }
        return bits;
    }
    void clear() { memset(words, 0, sizeof words); }

private:
    static constexpr unsigned WORD_BITS = 64;
    static constexpr unsigned WORDS = BITS / WORD_BITS;

    static unsigned hashOf(const char* name, int length) {
        unsigned hash = 2166136261U;
        for (int i = 0; i < length; i++) {
            hash = (hash ^ static_cast<unsigned char>(name[i])) * 16777619U;
        }
        return (hash ^ hash >> 15) % BITS;
    }

    unsigned long words[WORDS] = {};
};
