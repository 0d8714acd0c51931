#include "client/commands/SelectionArguments.h"

#include "client/console/Text.h"

namespace vdk {

Selection selectionOf(const Arguments& arguments) {
    return {arguments.all("--thread"), arguments.all("--include"), arguments.all("--exclude"),
            arguments.all("--focus"), arguments.has("--no-waits")};
}

void noteUnmatched(Console& console, const std::vector<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
        console.note("nothing here is called " + printable(pattern));
    }
}

void select(Profile& profile, const Selection& selection) {
    if (!selection.isEmpty()) {
        StackSelector(profile, selection).apply(profile);
    }
}

} // namespace vdk
