// How a command talks: results on standard output, all else on standard error.
#pragma once

#include "client/console/Errors.h"
#include "client/console/Json.h"

#include <ostream>
#include <string>
#include <vector>

namespace vdk {

enum class ColorMode { Auto, Always, Never };

class Console {
public:
    Console(std::ostream& out, std::ostream& err, bool outIsTerminal, bool errIsTerminal)
        : out(out), err(err), outIsTerminal(outIsTerminal), errIsTerminal(errIsTerminal) {}
    // Writes to another stream as this console would to its own.
    Console(std::ostream& out, const Console& like)
        : out(out), err(like.err), outIsTerminal(like.outIsTerminal),
          errIsTerminal(like.errIsTerminal), json(like.json), quiet(like.quiet),
          verbose(like.verbose), color(like.color) {}

    // Sets the options of the command line; colors follow NO_COLOR and TERM=dumb in Auto mode.
    void configure(bool json, bool quiet, bool verbose, ColorMode color);

    // What these write may hold texts of other processes: it is made safe for a terminal here.
    // A note for people; nothing with --quiet or --json.
    void note(const std::string& text);
    // With --json a warning waits for error() or flushWarnings().
    void warn(const std::string& text);
    void error(const ClientError& problem);
    // Writes the warnings of a command that went well: one object of schema vdk.warning/1 a line.
    void flushWarnings();

    // The text in a color or weight (an SGR code such as "1" or "31"), plain where colors are off.
    std::string styled(const std::string& text, const char* code) const;

    bool showsProgress() const { return errIsTerminal && !quiet && !json; }

    std::ostream& out;
    std::ostream& err;
    const bool outIsTerminal;
    const bool errIsTerminal;
    bool json = false;
    bool quiet = false;
    bool verbose = false;

private:
    bool color = false;
    std::vector<std::string> warnings;
};

struct ScreenSize {
    int rows, columns;
};

// Of the terminal on a descriptor; 24 rows of 80 columns where there is none or it does not tell.
ScreenSize screenSize(int descriptor);

// True when standard output is a pipe that nobody reads any more, as behind `| head`.
bool isReaderGone();

// Columns that the text takes on a terminal: wide characters take two, combining ones none.
size_t displayWidth(const std::string& text);
// The text, cut to end in "..." if it takes more columns.
std::string fitted(const std::string& text, size_t columns);

// A bar on standard error while the terminal shows it; nothing otherwise.
class ProgressBar {
public:
    ProgressBar(Console& console, std::string label);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void update(int percent) { show(percent, ""); }
    // The same with a remark behind it, such as the time that is left.
    void show(int percent, const std::string& remark);

private:
    Console& console;
    std::string label;
    int shown = -1;
    std::string shownRemark;
};

// Aligned columns of text.
class TextTable {
public:
    enum Align { Left, Right };
    struct Column {
        std::string title;
        Align align = Left;
    };

    explicit TextTable(std::vector<Column> columns) : columns(std::move(columns)) {}
    void add(std::vector<std::string> cells) { rows.push_back(std::move(cells)); }
    bool isEmpty() const { return rows.empty(); }
    // The last column is not padded. On a terminal columns of texts shrink until a line fits.
    void print(Console& console) const;

private:
    std::vector<size_t> columnWidths(size_t room) const;

    std::vector<Column> columns;
    std::vector<std::vector<std::string>> rows;
};

// Starts the object that every --json output is: {"schema": "vdk.<name>/<version>", ...
JsonWriter& beginDocument(JsonWriter& json, const char* schema);

// That object on standard output, with the line's end behind it.
class JsonDocument : public JsonWriter {
public:
    JsonDocument(Console& console, const char* schema, bool pretty = true);
    void end();

private:
    std::ostream& out;
};

} // namespace vdk
