#include "core/ground/WildcardMatch.h"

#include <chrono>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace {
// The definition: a star tries the rest of the pattern at each position of the text.
bool matchesByDefinition(const char* pattern, const char* text) {
    for (; *pattern != 0; pattern++, text++) {
        if (*pattern == '*') {
            while (*pattern == '*') {
                pattern++;
            }
            if (*pattern == 0) {
                return true;
            }
            for (; *text != 0; text++) {
                if (matchesByDefinition(pattern, text)) {
                    return true;
                }
            }
            return false;
        }
        if (*text != *pattern) {
            return false;
        }
    }
    return *text == 0;
}

std::string randomText(std::mt19937& random, const char* letters, size_t most) {
    std::string text;
    const size_t count = std::char_traits<char>::length(letters);
    for (size_t length = random() % (most + 1); text.size() < length;) {
        text.push_back(letters[random() % count]);
    }
    return text;
}
} // namespace

TEST(WildcardMatch, table) {
    const struct {
        const char* pattern;
        const char* text;
        bool matches;
    } rows[] = {
        {nullptr, "", true},
        {nullptr, "anything", true},
        {"", "", true},
        {"", "a", false},
        {"a", "", false},
        {"*", "", true},
        {"**", "abc", true},
        {"java.*", "java.lang.Object", true},
        {"java.*", "javax.swing.JFrame", false},
        {"java.*", "java.", true},
        {"Java.*", "java.lang.Object", false},
        {"(*)", "()", true},
        {"(*)", "(int)", true},
        {"(*)", "(int", false},
        {"a?c", "abc", false},
        {"a?c", "a?c", true},
        {"*\xC3\xA9*", "caf\xC3\xA9", true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.matches, wildcardMatch(row.pattern, row.text))
            << (row.pattern == nullptr ? "<null>" : row.pattern) << " on " << row.text;
    }
}

TEST(WildcardMatch, agreesWithItsDefinition) {
    std::mt19937 random(11);
    for (int i = 0; i < 200000; i++) {
        const std::string pattern = randomText(random, "ab*", 8);
        const std::string text = randomText(random, "ab", 10);
        ASSERT_EQ(matchesByDefinition(pattern.c_str(), text.c_str()),
                  wildcardMatch(pattern.c_str(), text.c_str()))
            << pattern << " on " << text;
    }
}

TEST(WildcardMatch, manyStarsTakeNoExponentialTime) {
    std::string pattern;
    for (int i = 0; i < 1000; i++) {
        pattern += "*a";
    }
    pattern += "*b";
    const std::string text(20000, 'a');
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(wildcardMatch(pattern.c_str(), text.c_str()));
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_LT(taken.count(), 5.0);
}
