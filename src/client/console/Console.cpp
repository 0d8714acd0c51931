#include "client/console/Console.h"

#include "client/console/Text.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <locale.h>
#include <poll.h>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

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
    if (!quiet && !json) {
        err << printableLines(text) << "\n" << std::flush;
    }
}

void Console::warn(const std::string& text) {
    if (json) {
        warnings.push_back(text);
        return;
    }
    err << "vdk: " << printableLines(text) << "\n" << std::flush;
}

void Console::error(const ClientError& problem) {
    if (json) {
        std::ostringstream text;
        JsonWriter writer(text, false);
        beginDocument(writer, "vdk.error/1");
        writer.field("code", int(problem.code)).field("word", problem.word);
        writer.field("message", problem.what()).field("hint", problem.hint);
        if (!warnings.empty()) {
            writer.key("warnings").beginArray();
            for (const std::string& warning : warnings) {
                writer.value(warning);
            }
            writer.endArray();
        }
        writer.endObject();
        err << text.str() << "\n" << std::flush;
        return;
    }
    err << "vdk: " << printableLines(problem.what()) << "\n";
    if (!problem.hint.empty() && !quiet) {
        err << "hint: " << printableLines(problem.hint) << "\n";
    }
    err << std::flush;
}

void Console::flushWarnings() {
    for (const std::string& warning : warnings) {
        std::ostringstream text;
        JsonWriter writer(text, false);
        beginDocument(writer, "vdk.warning/1").field("message", warning).endObject();
        err << text.str() << "\n" << std::flush;
    }
    warnings.clear();
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

bool isReaderGone() {
    pollfd entry = {STDOUT_FILENO, 0, 0};
    return poll(&entry, 1, 0) == 1 && (entry.revents & POLLERR) != 0;
}

ProgressBar::ProgressBar(Console& console, std::string label)
    : console(console), label(std::move(label)) {}

ProgressBar::~ProgressBar() {
    if (shown >= 0) {
        console.err << "\r\033[K" << std::flush;
    }
}

void ProgressBar::show(int percent, const std::string& remark) {
    percent = std::clamp(percent, 0, 100);
    if (!console.showsProgress() || (percent == shown && remark == shownRemark)) {
        return;
    }
    shown = percent;
    shownRemark = remark;
    int room = screenSize(STDERR_FILENO).columns;
    int width = std::clamp(room - int(label.size()) - 10, 10, 50);
    int filled = width * percent / 100;
    std::string line = label + " [" + std::string(size_t(filled), '#') +
                       std::string(size_t(width - filled), '.') + "] " + std::to_string(percent) +
                       "%" + (remark.empty() ? "" : ", " + remark);
    // A line that wraps could not be written over.
    line.resize(std::min(line.size(), size_t(room - 1)));
    console.err << "\r" << line << "\033[K" << std::flush;
}

// Calls visit(columns, end) for each character of the text: what it takes on a terminal, and the
// position behind it. Widths are those of the system's tables.
template <typename Visitor>
static void eachCharacter(const std::string& text, Visitor visit) {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    locale_t former = utf8 ? uselocale(utf8) : locale_t();
    mbstate_t state = {};
    for (size_t at = 0; at < text.size();) {
        if (!utf8) { // a system without that table: a sequence counts once
            bool goesOn = (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80;
            if (!visit(goesOn ? 0 : 1, ++at)) {
                return;
            }
            continue;
        }
        wchar_t character = 0;
        size_t length = mbrtowc(&character, text.data() + at, text.size() - at, &state);
        if (length == 0 || length > text.size()) {
            state = {};
            length = 1;
            character = L'?';
        }
        at += length;
        if (!visit(size_t(std::max(wcwidth(character), 0)), at)) {
            break;
        }
    }
    if (utf8) {
        uselocale(former);
    }
}

size_t displayWidth(const std::string& text) {
    size_t width = 0;
    eachCharacter(text, [&](size_t columns, size_t) {
        width += columns;
        return true;
    });
    return width;
}

std::string fitted(const std::string& text, size_t columns) {
    if (displayWidth(text) <= columns) {
        return text;
    }
    size_t width = 0, keep = 0, dots = std::min<size_t>(columns, 3);
    eachCharacter(text, [&](size_t wide, size_t end) {
        width += wide;
        keep = width <= columns - dots ? end : keep;
        return width <= columns;
    });
    return text.substr(0, keep) + std::string(dots, '.');
}

// The widest column of texts gives way first; none gets too narrow to tell anything.
std::vector<size_t> TextTable::columnWidths(size_t room) const {
    const size_t least = 12;
    std::vector<size_t> widths;
    size_t sum = 2 * (columns.size() - 1);
    for (size_t i = 0; i < columns.size(); i++) {
        size_t width = displayWidth(columns[i].title);
        for (const auto& row : rows) {
            width = std::max(width, displayWidth(row[i]));
        }
        widths.push_back(width);
        sum += width;
    }
    while (sum > room) {
        size_t widest = columns.size();
        for (size_t i = 0; i < columns.size(); i++) {
            bool gives = columns[i].align == Left && widths[i] > least;
            if (gives && (widest == columns.size() || widths[i] > widths[widest])) {
                widest = i;
            }
        }
        if (widest == columns.size()) {
            break;
        }
        widths[widest]--;
        sum--;
    }
    return widths;
}

void TextTable::print(Console& console) const {
    std::vector<size_t> widths =
        columnWidths(console.outIsTerminal ? size_t(screenSize(STDOUT_FILENO).columns) : SIZE_MAX);
    auto line = [&](auto cell) {
        std::string text;
        for (size_t i = 0; i < columns.size(); i++) {
            std::string content = fitted(cell(i), widths[i]);
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
    auto title = [&](size_t i) {
        std::string text = columns[i].title;
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return char(toupper(c)); });
        return text;
    };
    console.out << console.styled(line(title), "1") << "\n";
    for (const auto& row : rows) {
        console.out << line([&](size_t i) { return row[i]; }) << "\n";
    }
}

JsonWriter& beginDocument(JsonWriter& json, const char* schema) {
    return json.beginObject().field("schema", schema);
}

JsonDocument::JsonDocument(Console& console, const char* schema, bool pretty)
    : JsonWriter(console.out, pretty), out(console.out) {
    beginDocument(*this, schema);
}

void JsonDocument::end() {
    endObject();
    out << "\n";
}

} // namespace vdk
