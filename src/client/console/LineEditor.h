// Lines that a user types at a terminal, with editing, history and completion.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

struct editline;
struct history;

namespace vdk {

class LineEditor {
public:
    // What may stand in place of the last word; `before` is the line ahead of it.
    using Complete =
        std::function<std::vector<std::string>(const std::string& before, const std::string& word)>;

    // historyFile: read and, when this ends, written for its user alone; empty for none.
    LineEditor(std::string prompt, std::string historyFile, Complete complete);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // The next line; an empty one at Ctrl-C; nothing at the end of the input.
    std::optional<std::string> read();

private:
    static char* promptOf(editline* editor);
    static unsigned char completeAt(editline* editor, int key);

    const std::string prompt;
    const std::string historyFile;
    const Complete complete;
    editline* editor;
    history* lines;
};

} // namespace vdk
