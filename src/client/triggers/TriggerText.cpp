#include "client/triggers/TriggerText.h"

#include "client/attach/ProcFs.h"
#include "client/console/Errors.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iostream>
#include <sstream>

namespace vdk {

namespace {

constexpr size_t MostBytes = 16 << 20;

const struct {
    char letter, character;
} Escapes[] = {{'s', ' '}, {'t', '\t'}, {'n', '\n'}, {'r', '\r'}, {'\\', '\\'}};

std::string quoted(const std::string& word) {
    return "'" + printable(word, 100) + "'";
}

// The value without its quoting; a backslash ahead of any other letter stands for itself.
std::string unquoteValue(const std::string& value) {
    std::string result;
    for (size_t i = 0; i < value.size(); i++) {
        const char letter = value[i] == '\\' && i + 1 < value.size() ? value[i + 1] : '\0';
        const auto* escape =
            std::find_if(std::begin(Escapes), std::end(Escapes),
                         [letter](const auto& known) { return known.letter == letter; });
        if (escape == std::end(Escapes)) {
            result += value[i];
        } else {
            result += escape->character;
            i++;
        }
    }
    return result;
}

// A property as one word of the text; who wrote a backslash has quoted already.
std::string quotedBlanks(const std::string& value) {
    std::string result;
    for (char c : value) {
        const auto* escape = std::find_if(std::begin(Escapes), std::end(Escapes),
                                          [c](const auto& known) { return known.character == c; });
        result += escape == std::end(Escapes) || c == '\\' ? std::string(1, c)
                                                           : std::string("\\") + escape->letter;
    }
    return result;
}

bool isDuration(const std::string& text) {
    const size_t digits = text.find_first_not_of("0123456789");
    if (digits == 0 || digits == std::string::npos) {
        return false;
    }
    const std::string postfix = text.substr(digits);
    return parseNumber(text.substr(0, digits), 0, LONG_MAX).has_value() &&
           (postfix == "ms" || postfix == "s" || postfix == "m" || postfix == "h");
}

// What is wrong with a value, or "".
std::string valueFault(TriggerValue kind, const std::string& value) {
    switch (kind) {
    case TriggerValue::Text:
        return "";
    case TriggerValue::Flag:
        return value == "true" || value == "false" ? "" : "is neither true nor false";
    case TriggerValue::Number:
        return parseNumber(value, INT_MIN, INT_MAX) ? "" : "is no whole number";
    case TriggerValue::LongNumber:
        return parseNumber(value, LONG_MIN, LONG_MAX) ? "" : "is no whole number";
    case TriggerValue::Duration:
        return isDuration(value) ? ""
                                 : "is no duration: a whole number with ms, s, m or h "
                                   "behind it, such as 30s";
    }
    return "";
}

// Goes through the lines of one text.
class Checker {
public:
    TriggerCheck result;

    void line(const std::string& text) {
        number++;
        const size_t first = text.find_first_not_of(" \t\r");
        if (first == std::string::npos || text[first] == '#') {
            return;
        }
        const std::string trimmed = text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
        if (first > 0) {
            action(trimmed);
        } else {
            listener(trimmed);
        }
    }

private:
    int number = 0;
    // The listener that actions belong to; without one, or with one of an unknown name, null.
    const TriggerName* current = nullptr;
    bool hasListener = false;

    void report(const std::string& word, const std::string& message,
                const std::vector<std::string>& expected = {}) {
        result.problems.push_back({number, word, message, expected});
    }

    static std::string wordOf(const std::string& text) {
        return text.substr(0, text.find_first_of(" \t\r"));
    }

    void listener(const std::string& text) {
        const std::string name = wordOf(text);
        hasListener = true;
        current = findTriggerName(triggerListeners(), name);
        result.listeners.push_back({name, {}, {}});
        if (current) {
            result.listeners.back().properties = properties(text, *current);
            checkPattern(result.listeners.back());
        } else if (isPrefix(name) || findTriggerName(triggerActions(), name)) {
            report(name, quoted(name) + " belongs to an action, whose line begins with two blanks");
        } else {
            const std::vector<std::string> names = namesOfAll(triggerListeners());
            report(name, quoted(name) + " is no listener" + nearest(name, names), names);
        }
    }

    void checkPattern(const TriggerListener& parsed) {
        const bool hasPattern = std::any_of(
            parsed.properties.begin(), parsed.properties.end(), [](const auto& property) {
                return property.first == "methodPattern" && !property.second.empty();
            });
        if (parsed.name == MethodListenerName && !hasPattern) {
            report(parsed.name, parsed.name + " has no methodPattern, such as "
                                              "methodPattern=com.shop.Cart:add(*)");
        }
    }

    void action(const std::string& text) {
        if (!hasListener) {
            report(wordOf(text), quoted(wordOf(text)) + " stands before any listener: actions "
                                                        "follow the line of theirs");
            return;
        }
        TriggerAction parsed;
        std::string rest = text;
        for (const std::string& prefix : methodEventPrefixes()) {
            if (startsWith(text, prefix)) {
                parsed.event = prefix.substr(0, prefix.size() - 1);
                rest = text.substr(
                    std::min(text.size(), text.find_first_not_of(" \t\r", prefix.size())));
            }
        }
        parsed.name = wordOf(rest);
        checkPlace(parsed);
        if (const TriggerName* known = findTriggerName(triggerActions(), parsed.name)) {
            parsed.properties = properties(rest, *known);
            checkPermission(*known);
        } else if (findTriggerName(triggerListeners(), parsed.name)) {
            report(parsed.name,
                   quoted(parsed.name) + " is a listener, whose line begins without a blank");
        } else {
            const std::vector<std::string> names = namesOfAll(triggerActions());
            report(parsed.name,
                   parsed.name.empty()
                       ? "there is no action behind " + quoted(text)
                       : quoted(parsed.name) + " is no action" + nearest(parsed.name, names),
                   names);
        }
        result.listeners.back().actions.push_back(parsed);
    }

    // Method listeners have actions for each of three events, others have one list.
    void checkPlace(const TriggerAction& parsed) {
        if (!current) {
            return;
        }
        const bool isMethod = current->name == MethodListenerName;
        if (isMethod && parsed.event.empty()) {
            report(parsed.name,
                   "an action of " + current->name + " begins with " +
                       join(methodEventPrefixes(), ", "),
                   methodEventPrefixes());
        } else if (!isMethod && !parsed.event.empty()) {
            report(parsed.event + ":", quoted(parsed.event + ":") + " is for actions of " +
                                           MethodListenerName + " only");
        }
        const TriggerName* known = findTriggerName(triggerActions(), parsed.name);
        if (known && known->onlyForMethods && !isMethod) {
            report(parsed.name, parsed.name + " stands under " + MethodListenerName +
                                    " only, not under " + current->name);
        }
    }

    void checkPermission(const TriggerName& known) {
        if (!known.neededOption.empty()) {
            result.needs.push_back({number, known.name, known.neededOption});
        }
    }

    std::vector<std::pair<std::string, std::string>> properties(const std::string& text,
                                                                const TriggerName& owner) {
        std::vector<std::pair<std::string, std::string>> found;
        std::string blanks = text;
        std::replace_if(
            blanks.begin(), blanks.end(), [](char c) { return c == '\t' || c == '\r'; }, ' ');
        const std::vector<std::string> words = split(blanks, ' ');
        for (size_t i = 1; i < words.size(); i++) {
            if (!words[i].empty()) {
                property(words[i], owner, &found);
            }
        }
        return found;
    }

    void property(const std::string& word, const TriggerName& owner,
                  std::vector<std::pair<std::string, std::string>>* found) {
        const size_t sign = word.find('=');
        const std::string name = word.substr(0, sign);
        const TriggerProperty* known = nullptr;
        std::vector<std::string> names;
        for (const TriggerProperty& other : owner.properties) {
            names.push_back(other.name);
            const bool isThis = other.name == name || (other.value == TriggerValue::Duration &&
                                                       other.name + "Ms" == name);
            known = isThis ? &other : known;
        }
        if (!known) {
            report(word,
                   sign == std::string::npos && !names.empty()
                       ? quoted(word) + " is no property: in a value a blank is written \\s" +
                             nearest(name, names)
                       : owner.name + " has no property " + quoted(name) +
                             (names.empty() ? ", and no other" : nearest(name, names)),
                   names);
            return;
        }
        if (sign == std::string::npos) {
            report(word, quoted(name) + " has no value: " + name + "=...");
            return;
        }
        if (std::any_of(found->begin(), found->end(),
                        [&](const auto& other) { return other.first == known->name; })) {
            report(word, quoted(name) + " stands there twice");
        }
        std::string text = word.substr(sign + 1);
        if (known->name != name && parseNumber(text, 0, LONG_MAX)) {
            text += "ms"; // the unit stands in the name
        }
        value(text, *known, found);
    }

    void value(const std::string& text, const TriggerProperty& property,
               std::vector<std::pair<std::string, std::string>>* found) {
        const std::string value = unquoteValue(text);
        const std::string fault = valueFault(property.value, value);
        if (!fault.empty()) {
            report(text, property.name + ": " + quoted(text) + " " + fault);
        }
        if (property.value == TriggerValue::Text) {
            checkMacros(value);
        }
        found->emplace_back(property.name, value);
    }

    void checkMacros(const std::string& text) {
        for (size_t start = text.find("${"); start != std::string::npos;
             start = text.find("${", start + 2)) {
            const size_t end = text.find('}', start);
            const std::string macro = text.substr(start, end - start);
            if (end == std::string::npos) {
                report(macro, quoted(macro) + " is not closed by }");
                return;
            }
            checkMacro(macro.substr(2));
        }
    }

    // A name, and perhaps a blank and an option.
    void checkMacro(const std::string& macro) {
        const std::string name = wordOf(macro);
        const size_t second = macro.find_first_not_of(' ', name.size());
        const std::string option = second == std::string::npos ? "" : macro.substr(second);
        std::vector<std::string> names;
        for (const TriggerMacro& known : triggerMacros()) {
            names.push_back(known.name);
            if (known.name == name) {
                checkMacroUse(known, option);
                return;
            }
        }
        report(name, quoted(name) + " is no macro" + nearest(name, names), names);
    }

    void checkMacroUse(const TriggerMacro& macro, const std::string& option) {
        const std::vector<std::string>& options = macro.options;
        if (macro.onlyForMethods && current && current->name != MethodListenerName) {
            report(macro.name, "${" + macro.name + "} tells of a method's call: under " +
                                   current->name + " there is none");
        } else if (macro.name == "EVAL_FIELD") {
            if (option.empty()) {
                report(macro.name,
                       "${EVAL_FIELD} wants the name of a field: ${EVAL_FIELD\\smyName}");
            }
        } else if (!option.empty() &&
                   std::find(options.begin(), options.end(), option) == options.end()) {
            report(option, "${" + macro.name + "} has no option " + quoted(option), options);
        }
    }

    static bool isPrefix(const std::string& word) {
        const auto& prefixes = methodEventPrefixes();
        return std::find(prefixes.begin(), prefixes.end(), word) != prefixes.end();
    }

    // Names are long, and people know parts of them.
    static std::string nearest(const std::string& name, const std::vector<std::string>& names) {
        const std::string near = didYouMean(name, names, name.size() / 3 + 1);
        return near.empty() ? didYouMean(capitalized(name), names) : near;
    }
};

} // namespace

size_t TriggerCheck::actionCount() const {
    size_t count = 0;
    for (const TriggerListener& listener : listeners) {
        count += listener.actions.size();
    }
    return count;
}

TriggerCheck checkTriggerText(const std::string& text) {
    Checker checker;
    for (const std::string& line : split(text, '\n')) {
        checker.line(line);
    }
    return checker.result;
}

std::string triggerTextOf(const std::vector<std::string>& words) {
    std::string text;
    bool isBehindPrefix = false;
    for (const std::string& word : words) {
        const std::string name = word.substr(0, word.find_first_of(" ="));
        const bool isProperty = name.size() < word.size() && word[name.size()] == '=';
        const bool isPrefix =
            std::any_of(methodEventPrefixes().begin(), methodEventPrefixes().end(),
                        [&](const std::string& prefix) { return startsWith(word, prefix); });
        if (isProperty || isBehindPrefix) {
            text += " " + (isProperty ? quotedBlanks(word) : word);
        } else {
            const bool isAction = isPrefix || findTriggerName(triggerActions(), name);
            text += std::string(text.empty() ? "" : "\n") + (isAction ? "  " : "") + word;
        }
        isBehindPrefix = isPrefix && word.back() == ':';
    }
    return text + "\n";
}

std::string readTriggerFile(const std::string& path) {
    if (path == "-") {
        std::ostringstream text;
        text << std::cin.rdbuf();
        return text.str();
    }
    const auto text = readSmallFile(path, MostBytes);
    if (!text) {
        throw ClientError(ExitCode::Usage, "input.open",
                          "cannot read " + path + ": " + strerror(errno));
    }
    return *text;
}

void requireGoodTriggers(const TriggerCheck& check, const std::string& where) {
    if (check.problems.empty()) {
        return;
    }
    const TriggerProblem& first = check.problems.front();
    const size_t others = check.problems.size() - 1;
    throw ClientError(ExitCode::Refused, "triggers.text",
                      where + ", line " + std::to_string(first.line) + ": " + first.message +
                          (others == 0   ? ""
                           : others == 1 ? " (and another problem)"
                                         : " (and " + std::to_string(others) + " other problems)"),
                      first.expected.empty() ? "`vdk triggers check FILE` tells of all lines"
                                             : "there are " + join(first.expected, ", "));
}

} // namespace vdk
