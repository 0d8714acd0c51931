// `vdk heap FILE shell`: questions from a terminal, or lines of a script.
#include "client/console/LineEditor.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/heap/HeapReport.h"
#include "client/heap/HeapReports.h"
#include "client/heap/shell/HeapQuestions.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace vdk {

namespace {

constexpr char Help[] = "q            ends\n"
                        "sql QUERY    needs no quotes\n"
                        "The tab key completes reports, options, classes and fields.\n";

std::vector<std::string> startingWith(const std::string& word, std::vector<std::string> names) {
    names.erase(std::remove_if(names.begin(), names.end(),
                               [&](const std::string& name) { return !startsWith(name, word); }),
                names.end());
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

// Names that questions hold; classes and fields are collected once.
class Names {
public:
    explicit Names(const HeapModel& model) {
        for (const HeapClass& type : model.classes) {
            classes.push_back(type.name);
            for (const HeapField& field : type.fields) {
                fields.insert(field.name);
            }
        }
    }

    std::vector<std::string> offers(const std::string& before, const std::string& word) const {
        if (before.find_first_not_of(' ') == std::string::npos) {
            std::vector<std::string> names = heapReportNames();
            names.insert(names.end(), {"help", "q"});
            return startingWith(word, names);
        }
        if (startsWith(word, "-")) {
            return startingWith(word, heapOptionNames());
        }
        const bool wantsField = endsWith(before, "--where ") || endsWith(before, "--where '") ||
                                endsWith(before, "--where \"") || endsWith(before, "--sort ") ||
                                endsWith(before, ", '");
        return startingWith(
            word, wantsField ? std::vector<std::string>(fields.begin(), fields.end()) : classes);
    }

private:
    std::vector<std::string> classes;
    std::set<std::string> fields;
};

// Without a home or a folder there is no history, which is no reason not to answer.
std::string historyFile() {
    const char* home = getenv("HOME");
    if (home == nullptr || *home == 0) {
        return "";
    }
    const std::string folder = std::string(home) + "/.vdk";
    const bool isThere = mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
    return isThere ? folder + "/heap_history" : "";
}

bool hasTerminal(const Console& console) {
    return console.outIsTerminal && isatty(STDIN_FILENO) != 0;
}

class Shell {
public:
    Shell(Console& console, const Arguments& arguments)
        : console(console), questions(console, arguments) {}

    // The code of the last question.
    int runTyped() {
        const Names names(questions.model());
        LineEditor editor("heap> ", historyFile(),
                          [&](const std::string& before, const std::string& word) {
                              return names.offers(before, word);
                          });
        console.note("help lists the reports, q ends");
        for (;;) {
            const std::optional<std::string> line = editor.read();
            if (!line) {
                console.out << "\n";
                return code;
            }
            if (isInterrupted()) {
                restartInterrupts();
            } else if (!take(*line)) {
                return code;
            }
            if (isInterrupted()) {
                restartInterrupts(); // it ended a question, not the shell
            }
        }
    }

    int runScript(std::istream& in) {
        std::string line;
        while (!isInterrupted() && std::getline(in, line) && take(line)) {
        }
        return code;
    }

private:
    // False at the end.
    bool take(const std::string& line) {
        std::vector<std::string> words;
        try {
            words = questionWords(line);
        } catch (const ClientError& e) {
            console.error(e);
            code = int(e.code);
            return true;
        }
        if (words.empty() || words[0][0] == '#') {
            return true;
        }
        if (words.size() == 1 && (words[0] == "q" || words[0] == "quit" || words[0] == "exit")) {
            return false;
        }
        if (words[0] == "help") {
            console.out << heapReportHelp() << Help;
            return true;
        }
        Console answer(console.out, console);
        code = questions.ask(words, answer);
        console.out.flush();
        return true;
    }

    Console& console;
    const HeapQuestions questions;
    int code = 0;
};

} // namespace

int reportHeapShell(Console& console, const Arguments& arguments) {
    heapArguments(arguments, 0, 0, "no arguments");
    if (console.json) {
        throw ClientError(ExitCode::Usage, "usage", "a shell is for people",
                          "`vdk heap FILE server` answers in JSON");
    }
    Shell shell(console, arguments);
    return hasTerminal(console) ? shell.runTyped() : shell.runScript(std::cin);
}

int runHeapWithoutReport(Console& console, const Arguments& arguments) {
    if (console.json || arguments.has("--csv") || !hasTerminal(console)) {
        return reportHeapSummary(console, arguments);
    }
    std::optional<Shell> shell;
    try {
        shell.emplace(console, arguments);
    } catch (const ClientError& e) {
        if (e.word != "heap.results") {
            throw;
        }
        return reportHeapSummary(console, arguments); // of a file that has no more to ask for
    }
    const int code = showHeapFirstScreen(console, arguments, true);
    console.out.flush();
    return code == 0 ? shell->runTyped() : code;
}

} // namespace vdk
