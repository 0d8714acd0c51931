// Small text helpers of the client: splitting, numbers with units, and making foreign text safe to
// print.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vdk {

std::vector<std::string> split(std::string_view text, char separator);
std::string join(const std::vector<std::string>& parts, std::string_view separator);
bool startsWith(std::string_view text, std::string_view prefix);
bool endsWith(std::string_view text, std::string_view suffix);

// True when `part` occurs in `text`, letters compared without case (ASCII only).
bool containsIgnoringCase(std::string_view text, std::string_view part);

// The whole text as a decimal number in [low, high]; nothing otherwise.
std::optional<long> parseNumber(std::string_view text, long low, long high);

// "30", "30s", "500ms", "5m", "1h": milliseconds, at most what an int holds; a bare number is
// seconds.
std::optional<long> parseDurationMs(std::string_view text);
// Bytes, with k or m for the units of 1024; below 2 GB.
std::optional<int> parseSize(std::string_view text);

// A limit as people give it: "15 s", "500 ms".
std::string formatLimit(int milliseconds);

// The text in single quotes, for a shell; shellWord() leaves a text that needs no quotes as it is.
std::string shellQuoted(std::string_view text);
std::string shellWord(std::string_view text);

// The text with its first letter in upper case.
std::string capitalized(std::string text);

// ": did you mean list?" for a word that is close to one of the known ones, "" for any other. Words
// with more differences than `most` are not close; 0 leaves two, in short words one.
std::string didYouMean(const std::string& word, const std::vector<std::string>& known,
                       size_t most = 0);

// Nanoseconds as people read them: "12.3 s", "45.6 ms", "7 us".
std::string formatNs(int64_t ns);

// Bytes as people read them: "12.3 MB", "-1.5 KB".
std::string formatBytes(int64_t bytes);

// A number of things with thousands apart: "12,345,678".
std::string formatCount(int64_t count);

// "12.3", one digit behind the point.
std::string formatPercent(double percent);

// True for characters that move a terminal's cursor, end a line, or turn the direction of what
// follows: controls (C0, DEL and C1), direction marks and line separators.
bool isUnprintable(unsigned codePoint);

// These take the JVM's modified UTF-8 too.

// Text of another process, safe on a terminal: unprintable characters and bytes that are not UTF-8
// become "?"; a text longer than `limit` characters is cut and ends in "...".
std::string printable(std::string_view text, size_t limit = 4096);

// The same for a text of several lines: all but the first are indented.
std::string printableLines(std::string_view text, size_t limit = 65536);

// Valid UTF-8 with each unprintable character replaced by what the function gives for it.
std::string replaceUnprintable(std::string_view text,
                               const std::function<std::string(unsigned)>& replacement);

// The text with every byte that does not belong to valid UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);
// The same, and the zero character too: many readers of files end a text there.
std::string wholeText(std::string_view text);

} // namespace vdk
