#include "client/events/SqlText.h"

#include "client/console/Text.h"

#include <cctype>

namespace vdk {

namespace {

bool isWordLetter(char letter) {
    const auto byte = static_cast<unsigned char>(letter);
    return isalnum(byte) || letter == '_' || letter == '$' || byte >= 0x80;
}

// Walks over a statement once; everything that a database takes for a value becomes "?".
class ShapeMaker {
public:
    explicit ShapeMaker(const std::string& sql) : sql(sql) {}

    std::string run() {
        while (at < sql.size()) {
            step();
        }
        while (!shape.empty() && (shape.back() == ' ' || shape.back() == ';')) {
            shape.pop_back();
        }
        return shape;
    }

private:
    void step() {
        const char letter = sql[at];
        const bool inWord = at > 0 && isWordLetter(sql[at - 1]);
        if (isspace(static_cast<unsigned char>(letter))) {
            at++;
            blank();
        } else if (sql.compare(at, 2, "--") == 0) {
            at = behind("\n", at + 2);
            blank();
        } else if (sql.compare(at, 2, "/*") == 0) {
            at = behind("*/", at + 2);
            blank();
        } else if (letter == '\'') {
            at = behindQuoted('\'');
            value();
        } else if (letter == '"' || letter == '`') {
            const size_t end = behindQuoted(letter);
            shape.append(sql, at, end - at);
            at = end;
        } else if (letter == '?') {
            at++;
            value();
        } else if (isdigit(static_cast<unsigned char>(letter)) && !inWord) {
            while (at < sql.size() && (isWordLetter(sql[at]) || sql[at] == '.')) {
                at++;
            }
            value();
        } else {
            shape += letter;
            at++;
        }
    }

    size_t behind(const char* end, size_t from) const {
        const size_t found = sql.find(end, from);
        return found == std::string::npos ? sql.size() : found + std::string(end).size();
    }

    // A doubled quote stands for one.
    size_t behindQuoted(char quote) const {
        size_t end = at + 1;
        while (end < sql.size()) {
            if (sql[end++] == quote) {
                if (end == sql.size() || sql[end] != quote) {
                    break;
                }
                end++;
            }
        }
        return end;
    }

    void blank() {
        if (!shape.empty() && shape.back() != ' ') {
            shape += ' ';
        }
    }

    // The second and later ones of a list are told as one.
    void value() {
        for (const char* before : {"?, ...,", "?, ..., ", "?,", "?, "}) {
            if (endsWith(shape, before)) {
                shape.resize(shape.size() - std::string(before).size());
                shape += "?, ...";
                return;
            }
        }
        shape += '?';
    }

    const std::string& sql;
    size_t at = 0;
    std::string shape;
};

} // namespace

std::string statementShape(const std::string& sql) {
    return ShapeMaker(sql).run();
}

} // namespace vdk
