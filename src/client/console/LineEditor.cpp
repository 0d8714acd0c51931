#include "client/console/LineEditor.h"

#include "client/console/Signals.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cstdio>
#include <histedit.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

namespace {

constexpr int KeptLines = 1000;
// More are no help below a line.
constexpr size_t MostOffers = 100;

LineEditor& editorOf(EditLine* editor) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
}

std::string commonStart(const std::vector<std::string>& texts) {
    std::string start = texts.front();
    for (const std::string& text : texts) {
        const auto end = std::mismatch(start.begin(), start.end(), text.begin(), text.end()).first;
        start.erase(end, start.end());
    }
    return start;
}

} // namespace

LineEditor::LineEditor(std::string promptText, std::string historyPath, Complete completeWord)
    : prompt(std::move(promptText)), historyFile(std::move(historyPath)),
      complete(std::move(completeWord)), editor(el_init("vdk", stdin, stdout, stderr)),
      lines(history_init()) {
    if (editor == nullptr || lines == nullptr) {
        throw std::bad_alloc();
    }
    HistEvent event;
    history(lines, &event, H_SETSIZE, KeptLines);
    history(lines, &event, H_SETUNIQUE, 1);
    if (!historyFile.empty()) {
        history(lines, &event, H_LOAD, historyFile.c_str());
    }
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, promptOf);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_HIST, history, lines);
    el_set(editor, EL_ADDFN, "vdk-complete", "complete a word", completeAt);
    el_set(editor, EL_BIND, "^I", "vdk-complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

LineEditor::~LineEditor() {
    if (!historyFile.empty()) {
        const mode_t before = umask(0077);
        HistEvent event;
        history(lines, &event, H_SAVE, historyFile.c_str());
        umask(before);
    }
    history_end(lines);
    el_end(editor);
}

std::optional<std::string> LineEditor::read() {
    int length = 0;
    const char* line = el_gets(editor, &length);
    if (isInterrupted()) {
        el_reset(editor);
        fputs("\n", stdout);
        return "";
    }
    if (line == nullptr || length <= 0) {
        return std::nullopt;
    }
    std::string text(line, size_t(length));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    if (text.find_first_not_of(' ') != std::string::npos) {
        HistEvent event;
        history(lines, &event, H_ENTER, text.c_str());
    }
    return text;
}

char* LineEditor::promptOf(EditLine* editor) {
    return const_cast<char*>(editorOf(editor).prompt.c_str());
}

unsigned char LineEditor::completeAt(EditLine* editor, int) {
    const LineInfo* line = el_line(editor);
    const std::string before(line->buffer, line->cursor);
    const size_t blank = before.find_last_of(" '\"");
    const size_t start = blank == std::string::npos ? 0 : blank + 1;
    const std::string word = before.substr(start);
    std::vector<std::string> offers = editorOf(editor).complete(before.substr(0, start), word);
    if (offers.empty()) {
        return CC_REFRESH_BEEP;
    }
    std::string more = commonStart(offers);
    if (offers.size() == 1) {
        more += " ";
    }
    if (more.size() > word.size()) {
        el_insertstr(editor, more.c_str() + word.size());
        return CC_REFRESH;
    }
    fputs("\n", stdout);
    for (size_t i = 0; i < std::min(offers.size(), MostOffers); i++) {
        printf("%s\n", printable(offers[i], 200).c_str());
    }
    if (offers.size() > MostOffers) {
        printf("(%zu more)\n", offers.size() - MostOffers);
    }
    return CC_REDISPLAY;
}

} // namespace vdk
