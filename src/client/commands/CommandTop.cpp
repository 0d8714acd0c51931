#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/SelectionArguments.h"
#include "client/commands/TopView.h"
#include "client/commands/WhyEmpty.h"
#include "client/console/Screen.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "platform/Platform.h"

#include <algorithm>

namespace vdk {

namespace {

// Stops the sampling that this command started, however it ends.
class SamplingGuard {
public:
    SamplingGuard(LiveAgent& agent, bool start) : agent(agent), started(start) {
        if (started) {
            agent.client.startCpuProfiling(protocol::CPU_SAMPLING, std::nullopt, std::nullopt);
        }
    }
    ~SamplingGuard() {
        if (!started) {
            return;
        }
        try {
            forgetInterrupt();
            agent.client.stopCpuProfiling();
        } catch (const ClientError&) {
            // The JVM may be gone; there is nothing left to stop then.
        }
    }
    SamplingGuard(const SamplingGuard&) = delete;
    SamplingGuard& operator=(const SamplingGuard&) = delete;

private:
    LiveAgent& agent;
    bool started;
};

// What the command line asks for.
TopChoices choicesOf(const Arguments& arguments, int64_t status) {
    TopChoices choices;
    choices.filters = arguments.text("--filters") == "on";
    choices.cpu = (status & protocol::CPU_TIMES_BIT) != 0 || arguments.has("--sample");
    choices.allocations = (status & protocol::ALLOCATION_RECORDING_BIT) != 0;
    const std::string show = arguments.text("--show", arguments.has("--by") ? "cpu" : "");
    for (const ShownName& name : shownNames()) {
        if (show == name.option) {
            choices.show = name.what;
            choices.by = TopChoices::usualGrouping(name.what);
        }
    }
    if (arguments.has("--by")) {
        choices.by = groupingOf(arguments.text("--by"));
    }
    choices.selection = selectionOf(arguments);
    if (arguments.has("--top")) {
        choices.top = size_t(arguments.number("--top", 0));
    }
    return choices;
}

[[noreturn]] void refuse(Shown what, const std::string& target, const char* orElse) {
    const StartHint hint = startHint(what, target);
    throw ClientError(ExitCode::Refused, hint.word, hint.what, "`" + hint.command + "`" + orElse);
}

// Refuses what would stay empty. What was recorded before can be looked at.
void checkRecorded(const TopChoices& choices, const LiveAgent& agent, const Moment& first,
                   const std::string& target) {
    const bool needsCpu = choices.show ? choices.show == Shown::Cpu : !choices.allocations;
    if (needsCpu && !choices.cpu) {
        refuse(Shown::Cpu, target, ", or `vdk top --sample`");
    }
    if (choices.show && choices.show != Shown::Cpu && first.shown.rows.empty() &&
        !(agent.status & statusBitOf(*choices.show))) {
        refuse(*choices.show, target, "");
    }
}

// Looks at an agent from time to time; keys change what is looked at.
class TopLoop {
public:
    TopLoop(Console& console, LiveAgent& agent, const Arguments& arguments)
        : console(console), agent(agent), fetcher(agent.client),
          choices(choicesOf(arguments, agent.status)),
          intervalMs(std::max(arguments.durationMs("--interval", 2000), 100L)),
          endless(console.outIsTerminal && !arguments.has("--count")),
          left(arguments.number("--count", 1)) {
        source.name = arguments.text("TARGET");
        source.live = true;
        source.status = agent.status;
        fetcher.follow(SampledCpuTable);
        before = fetch();
        checkRecorded(choices, agent, before, source.name);
    }

    void run() {
        // Who reads the output may have closed it.
        Screen screen(console, endless && !console.json);
        if (screen.isOn()) {
            console.out << Screen::Home << printable(agent.info.sessionName)
                        << ": the first numbers come in " << formatLimit(int(intervalMs))
                        << "; q ends\n"
                        << std::flush;
        }
        TopView view(console, agent, source);
        while (console.out && (endless || left-- > 0) && waitForNext(screen, view)) {
            Moment next = fetch();
            if (now) {
                before = std::move(*now);
            }
            now = std::move(next);
            view.show(before, *now, choices, screen.isOn());
        }
    }

private:
    Moment fetch() {
        int tables = CpuTables | MonitorTables | ExceptionTables | 1 << SLOT_Telemetry;
        const bool ofLife = choices.show == Shown::Live || choices.show == Shown::Garbage;
        if (ofLife || (choices.show ? choices.show == Shown::Allocations : choices.allocations)) {
            tables |= AllocationTables;
        }
        // The agent passes over all recorded objects to know which live.
        ofLife ? fetcher.follow(LiveAllocationsTable) : fetcher.unfollow(LiveAllocationsTable);
        fetcher.fetch(tables);
        return look(fetcher.database(), choices);
    }

    // Until the interval is over, and what keys change is shown at once; false at the end.
    bool waitForNext(Screen& screen, TopView& view) {
        long end = Platform::monotonicTimeNs() + intervalMs * 1000000;
        while (true) {
            const long restMs = (end - Platform::monotonicTimeNs()) / 1000000;
            const std::optional<char> key = screen.waitForKey(std::max(restMs, 0L));
            if (!key) {
                return false;
            }
            if (*key == 0) {
                if (!choices.isPaused) {
                    return true;
                }
                end = Platform::monotonicTimeNs() + intervalMs * 1000000;
                continue;
            }
            if (!takeKey(*key)) {
                continue;
            }
            view.show(before, *now, choices, true);
        }
    }

    // True if there is something else to show now.
    bool takeKey(char key) {
        static const std::pair<char, bool TopChoices::*> switches[] = {
            {'s', &TopChoices::byTotal},
            {'t', &TopChoices::threadsOnly},
            {'p', &TopChoices::isPaused},
            {'h', &TopChoices::withHelp}};
        for (const auto& [name, choice] : switches) {
            if (key == name) {
                choices.*choice = !(choices.*choice);
                return now.has_value();
            }
        }
        const std::optional<Shown> former = choices.show;
        if (key == 'b' && choices.show) {
            choices.by =
                choices.by == Grouping::Line ? Grouping::Method : Grouping(int(choices.by) + 1);
            return now.has_value();
        }
        if (key == 'o') {
            choices.show.reset();
        }
        for (const ShownName& name : shownNames()) {
            if (key == name.option[0]) {
                choices.show = name.what;
                choices.by = TopChoices::usualGrouping(name.what);
            }
        }
        if (choices.show == former) {
            return false;
        }
        Moment fresh = fetch();
        before.takeViewsOf(fresh);
        if (now) {
            now->takeViewsOf(fresh);
        }
        return now.has_value();
    }

    Console& console;
    LiveAgent& agent;
    DataSource source;
    TableFetcher fetcher;
    TopChoices choices;
    const long intervalMs;
    const bool endless;
    long left;
    Moment before;             // the beginning of the interval that is shown
    std::optional<Moment> now; // its end, where the next one begins
};

} // namespace

int runTop(Console& console, const Arguments& arguments) {
    LiveAgent agent = connectAgent(arguments.text("TARGET"), arguments);
    const bool isRunning = (agent.status & protocol::CPU_TIMES_BIT) != 0;
    SamplingGuard guard(agent, arguments.has("--sample") && !isRunning);
    TopLoop(console, agent, arguments).run();
    return 0;
}

} // namespace vdk
