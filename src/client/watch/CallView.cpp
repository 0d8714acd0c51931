#include "client/watch/CallView.h"

#include "client/console/Text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace vdk {

namespace {

// What is left of a line for values is never less.
constexpr size_t LeastValueColumns = 16;

std::string listed(const std::vector<std::string>& values) {
    return escaped(join(values, ", "));
}

// "(arguments) => result", in so many columns. The result keeps half of them if it needs them.
std::string valuesOf(const WatchedCall& call, const std::string& outcome, size_t columns) {
    const std::string self = call.self ? " of " + escaped(*call.self) : "";
    std::string arguments = call.arguments ? "(" + listed(*call.arguments) + ")" : "";
    const size_t half = std::max(columns / 2, LeastValueColumns);
    const size_t kept = std::min(displayWidth(outcome) + displayWidth(self), half);
    arguments = fitted(arguments, std::max(columns - std::min(columns, kept), LeastValueColumns));
    const size_t used = displayWidth(arguments);
    return arguments +
           fitted(self + outcome, std::max(columns - std::min(columns, used), LeastValueColumns));
}

std::string outcomeOf(const WatchedCall& call) {
    if (call.threw) {
        return " throws" + (call.exception ? " " + escaped(*call.exception) : "");
    }
    return call.result ? " => " + escaped(*call.result) : "";
}

} // namespace

std::string escaped(const std::string& text) {
    return replaceUnprintable(text, [](unsigned c) -> std::string {
        switch (c) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            char code[16];
            snprintf(code, sizeof(code), "\\u%04x", c);
            return code;
        }
    });
}

std::string timeOfDay(int64_t timeMs) {
    const time_t seconds = time_t(timeMs / 1000);
    tm parts = {};
    localtime_r(&seconds, &parts);
    char text[32];
    snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
             int(timeMs % 1000));
    return text;
}

std::string shortDuration(int64_t ns) {
    if (ns < 1000) {
        return std::to_string(ns) + " ns";
    }
    return ns < 10000 ? formatPercent(double(ns) / 1e3) + " us" : formatNs(ns);
}

void printStack(Console& console, const std::vector<std::string>& stack) {
    for (const std::string& frame : stack) {
        console.out << "    at " << printable(frame) << "\n";
    }
}

void printCall(Console& console, const WatchedCall& call) {
    const std::string time = timeOfDay(call.endMs);
    const std::string thread = printable(call.thread);
    const std::string name = printable(call.name());
    const std::string duration = shortDuration(call.durationNs);
    size_t columns = SIZE_MAX / 2;
    if (console.outIsTerminal) {
        const size_t taken = displayWidth(time + thread + name + duration) + 6;
        const size_t all = size_t(screenSize(STDOUT_FILENO).columns);
        columns = all - std::min(all, taken);
    }
    const std::string values = valuesOf(call, outcomeOf(call), columns);
    console.out << console.styled(time, "2") << "  " << thread << "  " << console.styled(name, "1")
                << (call.threw ? console.styled(values, "31") : values) << "  " << duration << "\n";
    printStack(console, call.stack);
}

void writeCall(Console& console, const WatchedCall& call) {
    JsonDocument json(console, WatchSchema, false);
    json.field("event", "call").field("number", call.number).field("timeMs", call.endMs);
    json.field("durationNs", call.durationNs);
    json.field("threadId", call.threadId).field("thread", call.thread);
    json.field("class", call.className).field("method", call.method);
    json.field("signature", call.signature).field("threw", call.threw);
    const auto text = [&json](const char* name, const std::optional<std::string>& value) {
        if (value) {
            json.field(name, *value);
        }
    };
    const auto list = [&json](const char* name, const std::vector<std::string>& values) {
        json.key(name).beginArray();
        for (const std::string& value : values) {
            json.value(value);
        }
        json.endArray();
    };
    text("objectClass", call.objectClass);
    text("this", call.self);
    if (call.arguments) {
        list("args", *call.arguments);
    }
    text("result", call.result);
    text("exception", call.exception);
    if (!call.stack.empty()) {
        list("stack", call.stack);
    }
    json.end();
}

} // namespace vdk
