#include "client/watch/CallView.h"

#include "client/console/Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace vdk {

namespace {

// What is left of a line for values is never less.
constexpr size_t LeastValueColumns = 16;

std::string outcomeOf(const WatchedCall& call) {
    if (call.threw) {
        return " throws" + (call.exception ? " " + escaped(*call.exception) : "");
    }
    return call.result ? " => " + escaped(*call.result) : "";
}

// "IllegalStateException: none left" for "java.lang.IllegalStateException: none left"; a text that
// does not begin with the name of a class stays.
std::string withoutPackage(const std::string& text) {
    const size_t end = std::find_if_not(text.begin(), text.end(),
                                        [](unsigned char c) {
                                            return isalnum(c) || c == '.' || c == '_' || c == '$';
                                        }) -
                       text.begin();
    const size_t point = end > 0 ? text.rfind('.', end - 1) : std::string::npos;
    const bool isName = !text.empty() && isalpha(static_cast<unsigned char>(text[0]));
    return isName && point != std::string::npos ? text.substr(point + 1) : text;
}

// What is known of a call, safe to print.
struct CallTexts {
    const WatchedCall& call;
    std::string arguments, self, outcome;

    explicit CallTexts(const WatchedCall& call)
        : call(call),
          arguments(call.arguments ? "(" + escaped(join(*call.arguments, ", ")) + ")" : ""),
          self(call.self ? " of " + escaped(*call.self) : ""), outcome(outcomeOf(call)) {}

    size_t width() const { return displayWidth(arguments + self + outcome); }

    // Cuts what is too much for so many columns: half of them are the outcome's if it needs them.
    void fit(size_t columns) {
        if (width() > columns && call.self) {
            self = " of " + escaped(withoutPackage(*call.self));
        }
        if (width() > columns && call.threw && call.exception) {
            outcome = " throws " + escaped(withoutPackage(*call.exception));
        }
        const auto cut = [&columns](std::string& text, size_t others) {
            const size_t own = columns - std::min(columns, others);
            text = fitted(text, std::max({own, columns / 2, LeastValueColumns}));
            columns -= std::min(columns, displayWidth(text));
        };
        cut(outcome, displayWidth(arguments + self));
        cut(self, displayWidth(arguments));
        cut(arguments, 0);
    }
};

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

std::string withoutPackages(std::string name, size_t columns) {
    // The last point is the method's, the one before ends the packages.
    size_t method = name.rfind('.', name.find('('));
    for (size_t point = name.find('.'); displayWidth(name) > columns && point < method;
         point = name.find('.')) {
        name.erase(0, point + 1);
        method -= point + 1;
    }
    return name;
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
    std::string name = printable(call.name());
    const std::string duration = shortDuration(call.durationNs);
    CallTexts texts(call);
    if (console.outIsTerminal) {
        const size_t taken = displayWidth(time + thread + duration) + 6 + texts.width();
        const size_t all = size_t(screenSize(STDOUT_FILENO).columns);
        name = withoutPackages(name, all - std::min(all, taken));
        const size_t others = taken - texts.width() + displayWidth(name);
        texts.fit(all - std::min(all, others));
    }
    const std::string values = texts.arguments + texts.self + texts.outcome;
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
