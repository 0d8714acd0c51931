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

    // Sets the options of the command line; colors follow NO_COLOR and TERM=dumb in Auto mode.
    void configure(bool json, bool quiet, bool verbose, ColorMode color);

    // What these write may hold texts of other processes: it is made safe for a terminal here.
    // A note for people; nothing with --quiet.
    void note(const std::string& text);
    void warn(const std::string& text);
    void error(const ClientError& problem);

    // The text in a color or weight (an SGR code such as "1" or "31"), plain where colors are off.
    std::string styled(const std::string& text, const char* code) const;

    bool showsProgress() const { return errIsTerminal && !quiet; }

    std::ostream& out;
    std::ostream& err;
    const bool outIsTerminal;
    const bool errIsTerminal;
    bool json = false;
    bool quiet = false;
    bool verbose = false;

private:
    bool color = false;
};

struct ScreenSize {
    int rows, columns;
};

// Of the terminal on a descriptor; 24 rows of 80 columns where there is none or it does not tell.
ScreenSize screenSize(int descriptor);

// A bar on standard error while the terminal shows it; nothing otherwise.
class ProgressBar {
public:
    ProgressBar(Console& console, std::string label);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void update(int percent);

private:
    Console& console;
    std::string label;
    int shown = -1;
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
    // The last column is not padded.
    void print(Console& console) const;

private:
    std::vector<Column> columns;
    std::vector<std::vector<std::string>> rows;
};

// Starts the object that every --json output is: {"schema": "vdk.<name>/<version>", ...
JsonWriter& beginDocument(JsonWriter& json, const char* schema);

} // namespace vdk
