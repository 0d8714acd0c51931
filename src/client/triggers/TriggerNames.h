// The names of the trigger text: listeners, actions, their properties and the macros. The lists are
// written by the build from the agent's Java classes (build/TriggerNamesWriter.java).
#pragma once

#include <string>
#include <vector>

namespace vdk {

enum class TriggerValue { Text, Flag, Number, LongNumber, Duration };

struct TriggerProperty {
    std::string name;
    TriggerValue value;
    std::string fallback; // what a line without it has
};

// A listener or an action.
struct TriggerName {
    std::string name;
    std::vector<TriggerProperty> properties;
    bool onlyForMethods = false; // of an action: stands under a method listener only
    std::string neededOption;    // of an action: the agent's option that allows it, or ""
};

struct TriggerMacro {
    std::string name;
    bool onlyForMethods;
    std::vector<std::string> options; // what may stand behind the name
};

const std::vector<TriggerName>& triggerListeners();
const std::vector<TriggerName>& triggerActions();
const std::vector<TriggerMacro>& triggerMacros();

// Null if there is none of that name.
const TriggerName* findTriggerName(const std::vector<TriggerName>& list, const std::string& name);
std::vector<std::string> namesOfAll(const std::vector<TriggerName>& list);

// The listener whose actions stand behind onenter:, onreturn: or onexception:.
constexpr const char* MethodListenerName = "MethodListener";
const std::vector<std::string>& methodEventPrefixes();

} // namespace vdk
