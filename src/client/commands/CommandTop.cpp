#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/SelectionArguments.h"
#include "client/commands/TopJvm.h"
#include "client/commands/WhyEmpty.h"
#include "client/console/Screen.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/fleet/JvmSearch.h"
#include "platform/Platform.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <unistd.h>

namespace vdk {

namespace {

using Clock = Errand::Clock;
using std::chrono::milliseconds;

// Of several JVMs one that does not answer must not keep the end waiting.
constexpr int MostTimeoutMs = 5000;
// What a look for JVMs, and at them, may take before the view goes on without the late ones.
constexpr milliseconds LookLimit(1000);
// Of those that are gone only the latest are shown.
constexpr size_t MostGone = 5;

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
void checkRecorded(const TopChoices& choices, int64_t status, bool hasRows,
                   const std::string& target) {
    const bool needsCpu = choices.show ? choices.show == Shown::Cpu : !choices.allocations;
    if (needsCpu && !choices.cpu) {
        refuse(Shown::Cpu, target, ", or `vdk top --sample`");
    }
    if (choices.show && choices.show != Shown::Cpu && !hasRows &&
        !(status & statusBitOf(*choices.show))) {
        refuse(*choices.show, target, "");
    }
}

// The JVMs that are looked at: the one that was named, or all that are wanted, which come and go.
class TopJvms {
public:
    explicit TopJvms(const Arguments& arguments)
        : arguments(arguments), targets(arguments.all("TARGET")),
          isOfMany(arguments.has("--all") || targets.size() > 1) {
        if (arguments.has("--all") ? !targets.empty() : targets.empty()) {
            throw ClientError(ExitCode::Usage, "usage", "name targets, or --all");
        }
        if (isOfMany) {
            search = std::make_unique<JvmSearch>(targets);
            findFirst();
        } else {
            add(targets[0], connectAgent(targets[0], arguments));
        }
    }

    // Looks at all. Throws what the client throws where there is only one JVM.
    std::vector<std::pair<TopJvm*, Moment>> look(const TopChoices& choices) {
        std::vector<std::pair<TopJvm*, Moment>> moments;
        if (!isOfMany) {
            moments.emplace_back(jvms[0].get(), jvms[0]->fetch(choices));
            return moments;
        }
        if (search->lookOn()) {
            addFound();
        }
        for (const auto& jvm : jvms) {
            jvm->beginLook(choices);
        }
        const Clock::time_point deadline = Clock::now() + LookLimit;
        for (const auto& jvm : jvms) {
            if (std::optional<Moment> moment = jvm->endLook(deadline)) {
                moments.emplace_back(jvm.get(), std::move(*moment));
            }
        }
        forgetGone();
        return moments;
    }

    std::vector<TopSubject> subjects() const {
        std::vector<TopSubject> result;
        for (const auto& jvm : jvms) {
            if (chosen == 0 || jvm->info().pid == chosen) {
                result.push_back(jvm->subject());
            }
        }
        return result;
    }

    // The next one alone, behind the last all again.
    void chooseNext() {
        const auto isChosen = [&](const auto& jvm) { return jvm->info().pid == chosen; };
        const auto at = std::find_if(jvms.begin(), jvms.end(), isChosen);
        const auto next = at == jvms.end() ? jvms.begin() : at + 1;
        chosen = next == jvms.end() ? 0 : (*next)->info().pid;
    }

    // What is recorded in any of them.
    int64_t status() const {
        int64_t all = 0;
        for (const auto& jvm : jvms) {
            all |= jvm->status();
        }
        return all;
    }
    std::string name() const { return targets.empty() ? firstName : targets[0]; }

    const Arguments& arguments;
    const std::vector<std::string> targets;
    const bool isOfMany;
    std::vector<std::unique_ptr<TopJvm>> jvms;

private:
    void add(const std::string& target, LiveAgent agent) {
        firstName = firstName.empty() ? target : firstName;
        jvms.push_back(
            std::make_unique<TopJvm>(target, std::move(agent), arguments.has("--sample")));
    }

    int timeoutMs() const {
        return std::min(int(arguments.durationMs("--timeout", MostTimeoutMs)), MostTimeoutMs);
    }

    // What is wrong with a target is told as that of one would be.
    void findFirst() {
        for (const auto& [target, endpoint] : search->addresses()) {
            add(target, connectAgent(target, arguments));
        }
        search->look(Clock::time_point::max());
        throwIfInterrupted();
        for (const std::string& target : targets) {
            Endpoint endpoint;
            const auto pid = parseNumber(target, 1, INT32_MAX);
            const auto& found = search->found();
            const bool isThere = parseEndpoint(target, endpoint) ||
                                 std::any_of(found.begin(), found.end(), [&](const Jvm& jvm) {
                                     return pid ? jvm.pid == *pid : JvmSearch({target}).wants(jvm);
                                 });
            if (!isThere) {
                connectAgent(target, arguments);
            }
        }
        addFound();
        if (jvms.empty()) {
            throw ClientError(ExitCode::NoTarget, "target.none", "no JVM of this user has an agent",
                              "`vdk list` shows JVMs, `vdk attach` loads the agent");
        }
    }

    void addFound() {
        for (const Jvm& jvm : search->takeNew()) {
            if (targets.empty() && geteuid() != 0 && jvm.uid != long(geteuid())) {
                continue;
            }
            try {
                add(std::to_string(jvm.pid), connectAgent(Machine(), jvm, timeoutMs()));
            } catch (const ClientError& problem) {
                if (problem.code == ExitCode::Aborted) {
                    throw;
                }
                search->forget(jvm); // it may be starting still
            }
        }
    }

    void forgetGone() {
        const auto isGone = [](const auto& jvm) { return jvm->state() == JvmState::Gone; };
        for (auto gone = size_t(std::count_if(jvms.begin(), jvms.end(), isGone)); gone > MostGone;
             gone--) {
            jvms.erase(std::find_if(jvms.begin(), jvms.end(), isGone));
        }
        if (chosen != 0 && subjects().empty()) {
            chosen = 0;
        }
    }

    std::unique_ptr<JvmSearch> search;
    std::string firstName;
    int chosen = 0; // process id of the one that is shown alone
};

// Looks at agents from time to time; keys change what is looked at.
class TopLoop {
public:
    TopLoop(Console& console, TopJvms& jvms, const Arguments& arguments)
        : console(console), jvms(jvms), view(console, jvms.isOfMany),
          choices(choicesOf(arguments, jvms.status())),
          intervalMs(std::max(arguments.durationMs("--interval", 2000), 100L)),
          endless(console.outIsTerminal && !arguments.has("--count")),
          left(arguments.number("--count", 1)) {
        bool hasRows = false;
        for (auto& [jvm, moment] : jvms.look(choices)) {
            hasRows = hasRows || !moment.shown.rows.empty();
            jvm->advance(std::move(moment));
        }
        checkRecorded(choices, jvms.status(), hasRows, jvms.name());
    }

    void run() {
        // Who reads the output may have closed it.
        Screen screen(console, endless && !console.json);
        if (screen.isOn()) {
            const std::string what = jvms.isOfMany ? std::to_string(jvms.jvms.size()) + " JVMs"
                                                   : printable(jvms.jvms[0]->info().sessionName);
            console.out << Screen::Home << what << ": the first numbers come in "
                        << formatLimit(int(intervalMs)) << "; q ends\n"
                        << std::flush;
        }
        while (console.out && (endless || left-- > 0) && waitForNext(screen)) {
            for (auto& [jvm, moment] : jvms.look(choices)) {
                jvm->advance(std::move(moment));
            }
            throwIfInterrupted();
            isFirst = false;
            view.show(jvms.subjects(), choices, screen.isOn());
        }
    }

private:
    // Until the interval is over, and what keys change is shown at once; false at the end.
    bool waitForNext(Screen& screen) {
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
            if (takeKey(*key) && !isFirst) {
                view.show(jvms.subjects(), choices, true);
            }
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
                return true;
            }
        }
        if (key == 'j' && jvms.isOfMany) {
            jvms.chooseNext();
            return true;
        }
        const std::optional<Shown> former = choices.show;
        if (key == 'b' && choices.show) {
            choices.by =
                choices.by == Grouping::Line ? Grouping::Method : Grouping(int(choices.by) + 1);
            return true;
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
        for (const auto& [jvm, moment] : jvms.look(choices)) {
            jvm->takeViewsOf(moment);
        }
        return true;
    }

    Console& console;
    TopJvms& jvms;
    TopView view;
    TopChoices choices;
    const long intervalMs;
    const bool endless;
    long left;
    bool isFirst = true; // nothing was shown yet
};

} // namespace

int runTop(Console& console, const Arguments& arguments) {
    TopJvms jvms(arguments);
    TopLoop(console, jvms, arguments).run();
    return 0;
}

} // namespace vdk
