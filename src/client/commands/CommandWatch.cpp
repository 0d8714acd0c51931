// Commands that watch methods without a probe of the user's: watch, stack, monitor.
#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/InputFile.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/watch/CallView.h"
#include "client/watch/MonitorView.h"
#include "client/watch/StackCounts.h"
#include "client/watch/WatchFeed.h"
#include "client/watch/WatchPattern.h"

#include <algorithm>
#include <functional>

namespace vdk {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds ReadInterval(100);
// How soon a signal, and the end of whoever reads the output, are noticed.
constexpr milliseconds LongestWait(100);
// Of notes about calls that are not shown.
constexpr milliseconds NoteInterval(1000);
constexpr long UsualStackCalls = 100;
// Events that may wait in the JVM; those with stacks are larger.
constexpr int32_t Room = 4096, RoomWithStacks = 1024;

// Loads the agent where it is not there yet.
LiveAgent agentOf(Console& console, const Arguments& arguments) {
    const std::string target = arguments.text("TARGET");
    try {
        return connectAgent(target, arguments);
    } catch (const ClientError& e) {
        if (e.word != "target.unprofiled") {
            throw;
        }
    }
    Machine machine;
    LiveAgent agent = attachedAgent(machine, target, arguments);
    console.note("the agent was loaded into process " + std::to_string(agent.info.pid) +
                 ", and stays");
    return agent;
}

// All of several conditions.
std::string conditionOf(const std::vector<std::string>& texts) {
    if (texts.size() < 2) {
        return join(texts, "");
    }
    return "(" + join(texts, ") && (") + ")";
}

// What the three commands have in common.
WatchRequest requestOf(const Arguments& arguments) {
    WatchRequest request;
    request.pattern = watchPattern(arguments.text("PATTERN"));
    request.instanceOf = arguments.text("--instance-of");
    request.shortestNs = int64_t(arguments.durationMs("--min", 0)) * 1000000;
    request.where = conditionOf(arguments.all("--where"));
    if (arguments.has("--masks")) {
        request.masks = readWholeFile(arguments.text("--masks"));
    }
    return request;
}

// What is shown of a call: arguments, result and exception unless something was asked for.
int32_t shownParts(const Arguments& arguments) {
    static const std::pair<const char*, int32_t> parts[] = {
        {"--args", protocol::WATCH_ARGUMENTS},
        {"--result", protocol::WATCH_RESULT},
        {"--this", protocol::WATCH_THIS},
        {"--exception", protocol::WATCH_EXCEPTION},
    };
    int32_t flags = 0;
    for (const auto& [option, flag] : parts) {
        flags |= arguments.has(option) ? flag : 0;
    }
    if (flags == 0) {
        flags = protocol::WATCH_ARGUMENTS | protocol::WATCH_RESULT | protocol::WATCH_EXCEPTION;
    }
    flags |= arguments.has("--stack") ? protocol::WATCH_STACK : 0;
    return flags | (arguments.has("--to-string") ? protocol::WATCH_TO_STRING : 0);
}

// A watch from its start to its end, however that comes.
class Watching {
public:
    Watching(Console& console, const LiveAgent& agent, WatchRequest wanted, milliseconds interval)
        : console(console), request(std::move(wanted)), client(agent.client),
          classes(client.start(request)), feed(client, interval) {
        const std::string number = formatCount(classes) + (classes == 1 ? " class" : " classes");
        console.note(classes > 0 ? "watching " + request.pattern + " in " + number + "; Ctrl-C ends"
                                 : "no loaded class has " + request.pattern +
                                       ": waiting for one; Ctrl-C ends\n"
                                       "(a class is named with its package, *.Cart is one in any; "
                                       "a nested one is Outer$Inner)");
    }

    // Hands on what comes, until Ctrl-C, until all is there that was wanted, or until the sink says
    // that it has enough. Gives the last of it; an end before that is thrown by checkEnd().
    WatchFeed::News run(const std::function<bool(const WatchFeed::News&)>& sink) {
        WatchFeed::News news;
        try {
            bool wanted = true;
            while (wanted && !isUnread() && !isInterrupted() && !news.last) {
                if (feed.take(news, LongestWait)) {
                    wanted = sink(news);
                    console.out << std::flush;
                }
            }
            return feed.finish();
        } catch (const ClientError&) {
            failure = std::current_exception();
            news.calls.clear();
            return news;
        }
    }

    void checkEnd() const {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }

    const WatchRequest& wanted() const { return request; }
    int wovenClasses() const { return classes; }

private:
    bool isUnread() {
        if (isReaderGone()) {
            console.out.setstate(std::ios::badbit);
        }
        return !console.out;
    }

    Console& console;
    const WatchRequest request;
    WatchClient client;
    const int classes;
    WatchFeed feed;
    std::exception_ptr failure;
};

// Prints calls as they come, and tells how many there were.
class CallPrinter {
public:
    CallPrinter(Console& console, const Watching& watching) : console(console) {
        if (console.json) {
            JsonDocument json(console, WatchSchema, false);
            json.field("event", "started").field("pattern", watching.wanted().pattern);
            json.field("classes", watching.wovenClasses());
            json.end();
            console.out << std::flush;
        }
    }

    void show(const WatchFeed::News& news) {
        for (const WatchedCall& call : news.calls) {
            console.json ? writeCall(console, call) : printCall(console, call);
            shown++;
            threw += call.threw ? 1 : 0;
        }
        const auto now = WatchFeed::Clock::now();
        const int64_t missed = news.totals.dropped + news.lost;
        if (missed > told && now - toldAt >= NoteInterval) {
            tellMissed(missed - told);
            told = missed;
            toldAt = now;
        }
    }

    void end(const WatchTotals& totals) {
        if (!console.out) {
            return; // who reads has seen enough
        }
        const int64_t missed = std::max<int64_t>(totals.matched - shown - totals.failed, 0);
        if (console.json) {
            JsonDocument json(console, WatchSchema, false);
            json.field("event", "ended").field("calls", totals.calls);
            json.field("matched", totals.matched).field("shown", shown).field("threw", threw);
            json.field("notShown", missed).field("failed", totals.failed);
            json.end();
            return;
        }
        std::string text = formatCount(totals.calls) + (totals.calls == 1 ? " call, " : " calls, ");
        if (totals.matched != totals.calls) {
            text += formatCount(totals.matched) + " as wanted, ";
        }
        text += formatCount(shown) + " shown";
        text += threw > 0 ? " (" + formatCount(threw) + " threw)" : "";
        text += missed > 0 ? ", " + formatCount(missed) + " not shown" : "";
        text +=
            totals.failed > 0 ? ", " + formatCount(totals.failed) + " could not be printed" : "";
        console.note(text);
    }

private:
    void tellMissed(int64_t calls) {
        if (console.json) {
            JsonDocument json(console, WatchSchema, false);
            json.field("event", "dropped").field("calls", calls);
            json.end();
            return;
        }
        console.note(formatCount(calls) + (calls == 1 ? " call" : " calls") +
                     " not shown: they come faster than they can be read");
    }

    Console& console;
    int64_t shown = 0, threw = 0, told = 0;
    WatchFeed::Clock::time_point toldAt;
};

void showCalls(Console& console, const LiveAgent& agent, const WatchRequest& request) {
    Watching watching(console, agent, request, ReadInterval);
    CallPrinter printer(console, watching);
    const WatchFeed::News last = watching.run([&](const WatchFeed::News& news) {
        printer.show(news);
        return true;
    });
    printer.show(last);
    printer.end(last.totals);
    watching.checkEnd();
}

void showStacks(Console& console, const LiveAgent& agent, const WatchRequest& request, size_t top) {
    StackCounts stacks;
    const auto add = [&](const WatchFeed::News& news) {
        for (const WatchedCall& call : news.calls) {
            stacks.add(call);
        }
        return true;
    };
    Watching watching(console, agent, request, ReadInterval);
    const WatchFeed::News last = watching.run(add);
    add(last);
    const WatchTotals& totals = last.totals;
    if (!console.json) {
        stacks.print(console, top);
        const int64_t missed = totals.matched - stacks.calls();
        console.note(formatCount(stacks.calls()) + (stacks.calls() == 1 ? " call" : " calls") +
                     (missed > 0 ? ", " + formatCount(missed) + " more without their stacks" : ""));
        watching.checkEnd();
        return;
    }
    JsonDocument json(console, "vdk.stack/1");
    json.field("pid", agent.info.pid).field("pattern", request.pattern);
    json.field("calls", totals.calls).field("matched", totals.matched);
    json.field("counted", stacks.calls()).key("stacks").beginArray();
    stacks.write(json, top);
    json.endArray();
    json.end();
    watching.checkEnd();
}

} // namespace

int runWatch(Console& console, const Arguments& arguments) {
    WatchRequest request = requestOf(arguments);
    request.flags = shownParts(arguments);
    request.mostEvents = arguments.number("--count", 0);
    request.room = arguments.has("--stack") ? RoomWithStacks : Room;
    request.stackDepth = int32_t(arguments.number("--depth", 0));
    showCalls(console, agentOf(console, arguments), request);
    return 0;
}

int runStack(Console& console, const Arguments& arguments) {
    WatchRequest request = requestOf(arguments);
    request.flags = protocol::WATCH_STACK;
    request.room = RoomWithStacks;
    request.stackDepth = int32_t(arguments.number("--depth", 0));
    const bool each = arguments.has("--each");
    request.mostEvents = arguments.number("--count", each ? 0 : UsualStackCalls);
    const LiveAgent agent = agentOf(console, arguments);
    if (each) {
        showCalls(console, agent, request);
    } else {
        showStacks(console, agent, request, size_t(arguments.number("--top", 30)));
    }
    return 0;
}

int runMonitor(Console& console, const Arguments& arguments) {
    constexpr long UsualPeriodMs = 5000, LeastPeriodMs = 100, LongestReadMs = 2000;
    const std::string target = arguments.text("TARGET");
    if (target == "start" || target == "stop") {
        throw ClientError(ExitCode::Usage, "usage", "'" + target + "' is no JVM",
                          "`vdk monitors " + target + "` is about waits for monitors and locks");
    }
    WatchRequest request = requestOf(arguments);
    request.flags = protocol::WATCH_SUMS;
    const long periodMs = std::max(arguments.durationMs("--every", UsualPeriodMs), LeastPeriodMs);
    // The agent wants to be asked in between.
    const long readsOfPeriod = (periodMs + LongestReadMs - 1) / LongestReadMs;
    long periods = arguments.number("--count", 0);
    const LiveAgent agent = agentOf(console, arguments);
    Watching watching(console, agent, request, milliseconds(periodMs / readsOfPeriod));
    MonitorView view(console, request.pattern, agent.info.pid);
    const auto start = WatchFeed::Clock::now();
    auto next = start + milliseconds(periodMs);
    const WatchFeed::News last = watching.run([&](const WatchFeed::News& news) {
        // A read may come a little early.
        if (news.at + milliseconds(LeastPeriodMs / 2) < next) {
            return true;
        }
        view.showPeriod(news);
        next = std::max(next + milliseconds(periodMs), news.at + milliseconds(LeastPeriodMs / 2));
        return --periods != 0;
    });
    view.showSum(last);
    if (last.totals.dropped > 0) {
        console.warn(formatCount(last.totals.dropped) + " calls are of methods that have no line: "
                                                        "the pattern names more than 1,000");
    }
    watching.checkEnd();
    return 0;
}

} // namespace vdk
