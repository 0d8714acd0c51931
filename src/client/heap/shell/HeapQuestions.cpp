#include "client/heap/shell/HeapQuestions.h"

#include "client/commands/CommandLine.h"
#include "client/console/Text.h"
#include "client/heap/HeapReport.h"

#include <algorithm>

namespace vdk {

namespace {

const char* const OfTheStart[] = {"--index", "--dump", "--threads"};

HeapOptions optionsOfAll(const Arguments& arguments) {
    HeapOptions options = heapOptions(arguments);
    options.graphNeeded = true;
    return options;
}

} // namespace

HeapQuestions::HeapQuestions(Console& console, const Arguments& arguments)
    : file(arguments.text("FILE")), sharing(optionsOfAll(arguments)),
      session(console, optionsOfAll(arguments), true) {}

int HeapQuestions::ask(const std::vector<std::string>& words, Console& console) const {
    const bool opens = !words.empty() && (words[0] == "shell" || words[0] == "server");
    for (const std::string option : OfTheStart) {
        const bool isThere = std::any_of(words.begin(), words.end(), [&](const std::string& word) {
            return word == option || startsWith(word, option + "=");
        });
        if (opens || isThere) {
            console.error(ClientError(ExitCode::Usage, "usage",
                                      (opens ? words[0] : option) + ": the heap is open already"));
            return int(ExitCode::Usage);
        }
    }
    std::vector<std::string> all = {"heap", file};
    all.insert(all.end(), words.begin(), words.end());
    return runClient(all, console);
}

std::vector<std::string> questionWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    char quote = 0;
    bool isWord = false;
    for (size_t i = 0; i < line.size(); i++) {
        const char c = line[i];
        if (quote != 0) {
            if (c == quote) {
                quote = 0;
            } else {
                word += c;
            }
        } else if (c == '\'' || c == '"') {
            quote = c;
            isWord = true;
        } else if (c != ' ' && c != '\t') {
            word += c;
            isWord = true;
        } else if (isWord) {
            words.push_back(word);
            word.clear();
            isWord = false;
            const size_t rest = line.find_first_not_of(" \t", i);
            const bool isQuery = words.size() == 1 && words[0] == "sql" &&
                                 rest != std::string::npos && line[rest] != '\'' &&
                                 line[rest] != '"' && line[rest] != '-';
            if (isQuery) {
                words.push_back(line.substr(rest));
                return words;
            }
        }
    }
    if (quote != 0) {
        throw ClientError(ExitCode::Usage, "usage",
                          std::string("the quote ") + quote + " has no end");
    }
    if (isWord) {
        words.push_back(word);
    }
    return words;
}

} // namespace vdk
