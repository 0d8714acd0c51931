// The trigger text as the client reads it: to tell what is wrong with it before an agent gets it.
#pragma once

#include "client/triggers/TriggerNames.h"

namespace vdk {

struct TriggerProblem {
    int line; // from 1 on
    std::string word;
    std::string message;
    std::vector<std::string> expected; // names that could stand there
};

struct TriggerAction {
    std::string event; // "onenter" and the like under a method listener
    std::string name;
    std::vector<std::pair<std::string, std::string>> properties; // values without their quoting
};

struct TriggerListener {
    std::string name;
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<TriggerAction> actions;
};

// An option of the agent that a line needs.
struct TriggerNeed {
    int line;
    std::string action;
    std::string option;
};

struct TriggerCheck {
    std::vector<TriggerListener> listeners;
    std::vector<TriggerProblem> problems;
    std::vector<TriggerNeed> needs;

    size_t actionCount() const;
};

TriggerCheck checkTriggerText(const std::string& text);

// The text of the words of a command line: a name begins a line, behind name= stand properties of
// the line before, in which blanks are no separators. Actions get the blanks that tell them apart.
std::string triggerTextOf(const std::vector<std::string>& words);

// Throws ClientError Usage "input.open" for a file that cannot be read. "-" is standard input.
std::string readTriggerFile(const std::string& path);

// Throws ClientError Refused "triggers.text" with the first problem.
void requireGoodTriggers(const TriggerCheck& check, const std::string& where);

} // namespace vdk
