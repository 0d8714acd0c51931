#include "client/triggers/TriggerNames.h"

#include <algorithm>

namespace vdk {

const TriggerName* findTriggerName(const std::vector<TriggerName>& list, const std::string& name) {
    auto found = std::find_if(list.begin(), list.end(),
                              [&](const TriggerName& known) { return known.name == name; });
    return found == list.end() ? nullptr : &*found;
}

std::vector<std::string> namesOfAll(const std::vector<TriggerName>& list) {
    std::vector<std::string> names;
    for (const TriggerName& known : list) {
        names.push_back(known.name);
    }
    return names;
}

const std::vector<std::string>& methodEventPrefixes() {
    static const std::vector<std::string> prefixes = {"onenter:", "onreturn:", "onexception:"};
    return prefixes;
}

} // namespace vdk
