#include "client/console/Text.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstdio>

namespace vdk {

std::vector<std::string> split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (true) {
        size_t end = text.find(separator, start);
        if (end == std::string_view::npos) {
            parts.emplace_back(text.substr(start));
            return parts;
        }
        parts.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string result;
    for (const std::string& part : parts) {
        if (&part != &parts.front()) {
            result += separator;
        }
        result += part;
    }
    return result;
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool containsIgnoringCase(std::string_view text, std::string_view part) {
    auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end() ||
           part.empty();
}

std::optional<long> parseNumber(std::string_view text, long low, long high) {
    long value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < low || value > high) {
        return std::nullopt;
    }
    return value;
}

std::optional<long> parseDurationMs(std::string_view text) {
    static const struct {
        const char* suffix;
        long factorMs;
    } units[] = {{"ms", 1}, {"s", 1000}, {"m", 60000}, {"h", 3600000}, {"", 1000}};
    for (const auto& unit : units) {
        if (!endsWith(text, unit.suffix)) {
            continue;
        }
        std::string_view digits =
            text.substr(0, text.size() - std::string_view(unit.suffix).size());
        auto value = parseNumber(digits, 0, INT32_MAX / unit.factorMs);
        return value ? std::optional<long>(*value * unit.factorMs) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<int> parseSize(std::string_view text) {
    const long factor = endsWith(text, "k") ? 1 << 10 : endsWith(text, "m") ? 1 << 20 : 1;
    const auto value =
        parseNumber(text.substr(0, text.size() - (factor > 1 ? 1 : 0)), 0, INT32_MAX / factor);
    return value ? std::optional<int>(int(*value * factor)) : std::nullopt;
}

std::string formatLimit(int milliseconds) {
    return milliseconds % 1000 != 0 ? std::to_string(milliseconds) + " ms"
                                    : std::to_string(milliseconds / 1000) + " s";
}

std::string shellQuoted(std::string_view text) {
    std::string result = "'";
    for (char c : text) {
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return result + "'";
}

std::string shellWord(std::string_view text) {
    const char* plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=.,:/@%";
    bool isPlain = !text.empty() && text.find_first_not_of(plain) == std::string_view::npos;
    return isPlain ? std::string(text) : shellQuoted(text);
}

std::string capitalized(std::string text) {
    if (!text.empty()) {
        text[0] = char(std::toupper(static_cast<unsigned char>(text[0])));
    }
    return text;
}

// Letters to insert, leave out, change or swap with their neighbour between two words.
static size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> cost(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); i++) {
        for (size_t k = 0; k <= b.size(); k++) {
            if (i == 0 || k == 0) {
                cost[i][k] = i + k;
                continue;
            }
            size_t change = cost[i - 1][k - 1] + (a[i - 1] == b[k - 1] ? 0 : 1);
            cost[i][k] = std::min({change, cost[i - 1][k] + 1, cost[i][k - 1] + 1});
            if (i > 1 && k > 1 && a[i - 1] == b[k - 2] && a[i - 2] == b[k - 1]) {
                cost[i][k] = std::min(cost[i][k], cost[i - 2][k - 2] + 1);
            }
        }
    }
    return cost[a.size()][b.size()];
}

std::string didYouMean(const std::string& word, const std::vector<std::string>& known,
                       size_t most) {
    const std::string* nearest = nullptr;
    // as many differences are too many
    size_t least = std::max<size_t>(most + 1, word.size() < 4 ? 2 : 3);
    for (const std::string& name : known) {
        bool begun = word.size() > 2 && startsWith(name, word);
        size_t distance = begun ? 0 : word.size() > 100 ? least : editDistance(word, name);
        if (distance < least) {
            least = distance;
            nearest = &name;
        }
    }
    return nearest ? ": did you mean " + *nearest + "?" : "";
}

static std::string format(const char* pattern, double value) {
    char buffer[64];
    snprintf(buffer, sizeof(buffer), pattern, value);
    return buffer;
}

std::string formatNs(int64_t ns) {
    double value = double(ns);
    if (ns >= 10000000000) {
        return format("%.1f s", value / 1e9);
    }
    if (ns >= 1000000000) {
        return format("%.2f s", value / 1e9);
    }
    if (ns >= 1000000) {
        return format("%.1f ms", value / 1e6);
    }
    return format("%.0f us", value / 1e3);
}

std::string formatBytes(int64_t bytes) {
    if (bytes < 0 && bytes != INT64_MIN) {
        return "-" + formatBytes(-bytes);
    }
    if (bytes >= 1 << 30) {
        return format("%.2f GB", double(bytes) / (1 << 30));
    }
    if (bytes >= 1 << 20) {
        return format("%.1f MB", double(bytes) / (1 << 20));
    }
    if (bytes >= 1 << 10) {
        return format("%.1f KB", double(bytes) / (1 << 10));
    }
    return format("%.0f B", double(bytes));
}

std::string formatCount(int64_t count) {
    std::string digits = std::to_string(count);
    size_t first = count < 0 ? 1 : 0;
    for (size_t at = digits.size(); at > first + 3; at -= 3) {
        digits.insert(at - 3, ",");
    }
    return digits;
}

std::string formatPercent(double percent) {
    return format("%.1f", percent);
}

// Length of the valid UTF-8 sequence at the start of the text; 0 if there is none.
static size_t utf8Length(std::string_view text) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    size_t length = first >= 0xc2 && first < 0xe0   ? 2
                    : first >= 0xe0 && first < 0xf0 ? 3
                    : first >= 0xf0 && first < 0xf5 ? 4
                                                    : 0;
    if (length == 0 || text.size() < length) {
        return 0;
    }
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    if ((first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) >= 0xa0) ||
        (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) >= 0x90)) {
        return 0;
    }
    return length;
}

// Code point of a valid sequence.
static unsigned codePoint(std::string_view sequence) {
    unsigned value = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() > 1) {
        value &= 0xffu >> (sequence.size() + 1);
    }
    for (size_t i = 1; i < sequence.size(); i++) {
        value = value << 6 | (static_cast<unsigned char>(sequence[i]) & 0x3f);
    }
    return value;
}

bool isUnprintable(unsigned c) {
    bool control = c < 0x20 || (c >= 0x7f && c < 0xa0);
    bool direction = c == 0x61c || c == 0x200e || c == 0x200f || (c >= 0x202a && c <= 0x202e) ||
                     (c >= 0x2066 && c <= 0x2069);
    bool lineEnd = c == 0x2028 || c == 0x2029;
    return control || direction || lineEnd;
}

// The JVM's texts have characters beyond the BMP as two halves of three bytes each, and the zero
// character as C0 80: the text with both as they are in UTF-8.
static std::string withoutModifications(std::string_view text) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    // Half a pair: ED, its kind in the upper bits of the second byte.
    auto half = [&](size_t i, unsigned kind) {
        return i + 2 < text.size() && byte(i) == 0xed && (byte(i + 1) & 0xf0) == kind &&
               (byte(i + 2) & 0xc0) == 0x80;
    };
    auto bits = [&](size_t i) { return (byte(i + 1) & 0xfu) << 6 | (byte(i + 2) & 0x3fu); };
    std::string result;
    for (size_t i = 0; i < text.size();) {
        if (half(i, 0xa0) && half(i + 3, 0xb0)) {
            unsigned c = 0x10000 + (bits(i) << 10) + bits(i + 3);
            for (unsigned value : {0xf0 | c >> 18, 0x80 | (c >> 12 & 0x3f), 0x80 | (c >> 6 & 0x3f),
                                   0x80 | (c & 0x3f)}) {
                result += static_cast<char>(value);
            }
            i += 6;
        } else if (i + 1 < text.size() && byte(i) == 0xc0 && byte(i + 1) == 0x80) {
            result += '\0';
            i += 2;
        } else {
            result += text[i++];
        }
    }
    return result;
}

static std::string cleaned(std::string_view original, size_t limit, bool keepLines) {
    std::string plain = withoutModifications(original);
    std::string_view text = plain;
    std::string result;
    size_t characters = 0;
    while (!text.empty()) {
        if (characters++ >= limit) {
            return result + "...";
        }
        size_t length = utf8Length(text);
        if (keepLines && text[0] == '\n') {
            // A line that another process made must not look like one of ours.
            result += text.size() > 1 && text[1] == ' ' ? "\n" : "\n  ";
        } else if (length == 0 || isUnprintable(codePoint(text.substr(0, length)))) {
            result += '?';
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return result;
}

std::string printable(std::string_view text, size_t limit) {
    return cleaned(text, limit, false);
}

std::string printableLines(std::string_view text, size_t limit) {
    while (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    return cleaned(text, limit, true);
}

std::string replaceUnprintable(std::string_view text,
                               const std::function<std::string(unsigned)>& replacement) {
    std::string valid = validUtf8(text), result;
    for (std::string_view left = valid; !left.empty();) {
        size_t length = utf8Length(left);
        unsigned c = codePoint(left.substr(0, length));
        result += isUnprintable(c) ? replacement(c) : std::string(left.substr(0, length));
        left.remove_prefix(length);
    }
    return result;
}

std::string validUtf8(std::string_view original) {
    std::string plain = withoutModifications(original);
    std::string_view text = plain;
    std::string result;
    while (!text.empty()) {
        size_t length = utf8Length(text);
        if (length == 0) {
            result += "\xef\xbf\xbd";
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return result;
}

std::string wholeText(std::string_view text) {
    const std::string valid = validUtf8(text);
    std::string whole;
    for (char c : valid) {
        c == 0 ? whole += "\xef\xbf\xbd" : whole += c;
    }
    return whole;
}

} // namespace vdk
