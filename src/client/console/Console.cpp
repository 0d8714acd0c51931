#include "client/console/Console.h"

#include "client/console/Text.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vdk {

void Console::configure(bool jsonWanted, bool quietWanted, bool verboseWanted, ColorMode mode) {
    json = jsonWanted;
    quiet = quietWanted;
    verbose = verboseWanted;
    const char* noColor = getenv("NO_COLOR");
    const char* terminal = getenv("TERM");
    bool wanted =
        outIsTerminal && !(noColor && *noColor) && !(terminal && std::string(terminal) == "dumb");
    color = mode == ColorMode::Always || (mode == ColorMode::Auto && wanted);
}

void Console::note(const std::string& text) {
    if (!quiet) {
        err << printableLines(text) << "\n" << std::flush;
    }
}

void Console::warn(const std::string& text) {
    err << "vdk: " << printableLines(text) << "\n" << std::flush;
}

void Console::error(const ClientError& problem) {
    if (json) {
        std::ostringstream text;
        JsonWriter writer(text, false);
        beginDocument(writer, "vdk.error/1");
        writer.field("code", int(problem.code)).field("word", problem.word);
        writer.field("message", problem.what()).field("hint", problem.hint).endObject();
        err << text.str() << "\n" << std::flush;
        return;
    }
    err << "vdk: " << printableLines(problem.what()) << "\n";
    if (!problem.hint.empty() && !quiet) {
        err << "hint: " << printableLines(problem.hint) << "\n";
    }
    err << std::flush;
}

std::string Console::styled(const std::string& text, const char* code) const {
    return color ? "\033[" + std::string(code) + "m" + text + "\033[0m" : text;
}

ScreenSize screenSize(int descriptor) {
    winsize size = {};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0) {
        size = {};
    }
    return {size.ws_row > 0 ? size.ws_row : 24, size.ws_col > 0 ? size.ws_col : 80};
}

ProgressBar::ProgressBar(Console& console, std::string label)
    : console(console), label(std::move(label)) {}

ProgressBar::~ProgressBar() {
    if (shown >= 0) {
        console.err << "\r\033[K" << std::flush;
    }
}

void ProgressBar::update(int percent) {
    percent = std::clamp(percent, 0, 100);
    if (!console.showsProgress() || percent == shown) {
        return;
    }
    shown = percent;
    int width = std::clamp(screenSize(STDERR_FILENO).columns - int(label.size()) - 10, 10, 50);
    int filled = width * percent / 100;
    console.err << "\r" << label << " [" << std::string(size_t(filled), '#')
                << std::string(size_t(width - filled), ' ') << "] " << percent << "%" << std::flush;
}

// Characters that the text takes on a terminal, near enough: UTF-8 sequences count once.
static size_t displayWidth(const std::string& text) {
    return size_t(std::count_if(text.begin(), text.end(),
                                [](unsigned char c) { return (c & 0xc0) != 0x80; }));
}

void TextTable::print(Console& console) const {
    std::vector<size_t> widths;
    for (const Column& column : columns) {
        widths.push_back(displayWidth(column.title));
    }
    for (const auto& row : rows) {
        for (size_t i = 0; i < row.size(); i++) {
            widths[i] = std::max(widths[i], displayWidth(row[i]));
        }
    }
    auto line = [&](auto cell) {
        std::string text;
        for (size_t i = 0; i < columns.size(); i++) {
            std::string content = cell(i);
            std::string padding(widths[i] - std::min(widths[i], displayWidth(content)), ' ');
            bool last = i + 1 == columns.size();
            if (columns[i].align == Right) {
                text += padding + content;
            } else {
                text += last ? content : content + padding;
            }
            text += last ? "" : "  ";
        }
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    };
    console.out << console.styled(line([&](size_t i) { return columns[i].title; }), "1") << "\n";
    for (const auto& row : rows) {
        console.out << line([&](size_t i) { return row[i]; }) << "\n";
    }
}

JsonWriter& beginDocument(JsonWriter& json, const char* schema) {
    return json.beginObject().field("schema", schema);
}

} // namespace vdk
