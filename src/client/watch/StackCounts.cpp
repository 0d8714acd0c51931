#include "client/watch/StackCounts.h"

#include "client/console/Text.h"
#include "client/profile/EventTree.h"
#include "client/watch/CallView.h"

namespace vdk {

void StackCounts::add(const WatchedCall& call) {
    Sum& sum = stacks[call.stack.empty() ? Stack{call.name()} : call.stack];
    sum.calls++;
    sum.errors += call.threw ? 1 : 0;
    sum.totalNs += call.durationNs;
    all++;
}

void StackCounts::print(Console& console, size_t top) const {
    const auto shown = heaviest(stacks, top, [](const Sum& sum) { return sum.calls; });
    for (const auto& [stack, sum] : shown) {
        const std::string share = formatPercent(100.0 * double(sum.calls) / double(all)) + "%";
        console.out << formatCount(sum.calls) << (sum.calls == 1 ? " call, " : " calls, ") << share
                    << ", mean " << shortDuration(sum.totalNs / sum.calls)
                    << (sum.errors > 0 ? ", " + formatCount(sum.errors) + " threw" : "") << "\n";
        printStack(console, stack);
    }
    noteRest(console, stacks.size(), shown.size());
}

void StackCounts::write(JsonWriter& json, size_t top) const {
    for (const auto& [stack, sum] :
         heaviest(stacks, top, [](const Sum& each) { return each.calls; })) {
        json.beginObject().field("calls", sum.calls);
        json.field("errors", sum.errors).field("meanNs", sum.totalNs / sum.calls);
        json.key("stack").beginArray();
        for (const std::string& frame : stack) {
            json.value(frame);
        }
        json.endArray().endObject();
    }
}

} // namespace vdk
