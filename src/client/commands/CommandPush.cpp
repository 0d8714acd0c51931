// `vdk push`: what was recorded in each interval, to a store of profiles.
#include "client/agent/Protocol.h"
#include "client/commands/Commands.h"
#include "client/commands/Sources.h"
#include "client/console/InputFile.h"
#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "client/fleet/JvmSearch.h"
#include "client/fleet/ProfilePush.h"
#include "client/picture/OtlpProfiles.h"
#include "client/picture/Pprof.h"
#include "client/record/Baseline.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace vdk {

namespace {

using Clock = ProfilePush::Clock;
using std::chrono::milliseconds;

constexpr long DefaultIntervalMs = 15000;
constexpr long LeastIntervalMs = 1000;
constexpr long TickMs = 100;
constexpr long MostBytes = 256L << 20; // of one fetch of a JVM's tables
// Between looks for JVMs that were started.
constexpr milliseconds LookPause(1000);
// How long the end waits for a store to take what is left.
constexpr int LastTries = 2;
constexpr const char* CredentialsVariable = "VDK_PUSH_CREDENTIALS";

std::string credentialsOf(const Arguments& arguments) {
    std::string text;
    if (arguments.has("--credentials")) {
        text = readWholeFile(arguments.text("--credentials"));
    } else if (const char* variable = getenv(CredentialsVariable)) {
        text = variable;
    }
    return text.erase(text.find_last_not_of(" \t\r\n") + 1);
}

PushTarget targetOf(const Arguments& arguments) {
    const bool isOtlp = arguments.has("--otlp");
    if (isOtlp == arguments.has("--pyroscope")) {
        throw ClientError(ExitCode::Usage, "usage", "name one store: --pyroscope or --otlp URL");
    }
    return {arguments.text(isOtlp ? "--otlp" : "--pyroscope"), credentialsOf(arguments),
            isOtlp ? PushForm::Otlp : PushForm::Pyroscope};
}

std::string hostName() {
    char name[HOST_NAME_MAX + 1] = "";
    return gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

// One JVM. A copy of its tables is kept, to which each fetch brings what has changed; what they
// held before is taken off for as long as a profile is made of them.
class PushedJvm {
public:
    // With `isNew` all that it has recorded is of the time since the start.
    PushedJvm(LiveAgent liveAgent, const Arguments& arguments, bool isNew)
        : agent(std::move(liveAgent)),
          name(profileName(arguments.text("--name", agent.info.sessionName), tagsOf(arguments))),
          isOtlp(arguments.has("--otlp")) {
        resource.pid = agent.info.pid;
        resource.texts = {
            {"service.name", printable(arguments.text("--name", agent.info.sessionName))},
            {"host.name", hostName()}};
        for (const std::string& tag : tagsOf(arguments)) { // profileName has checked them
            resource.texts.emplace_back(tag.substr(0, tag.find('=')),
                                        tag.substr(tag.find('=') + 1));
        }
        if (arguments.has("--sample") && (agent.status & protocol::CPU_TIMES_BIT) == 0) {
            agent.client.startCpuProfiling(protocol::CPU_SAMPLING, std::nullopt, std::nullopt);
            hasStarted = true;
        }
        if (isNew) {
            lastMs = nowMs();
        } else {
            fetch(); // what was recorded before is none of this
        }
    }
    ~PushedJvm() {
        if (!hasStarted) {
            return;
        }
        try {
            agent.client.stopCpuProfiling();
        } catch (const ClientError&) {
            // The JVM has ended: nothing goes on in it.
        }
    }
    PushedJvm(const PushedJvm&) = delete;
    PushedJvm& operator=(const PushedJvm&) = delete;

    // Of the time since the last call; empty bytes where nothing was recorded.
    OutgoingProfile next() {
        OutgoingProfile profile;
        profile.name = name;
        const int64_t fromMs = lastMs;
        profile.fromSeconds = fromMs / 1000;
        const std::unique_ptr<Baseline> earlier = fetch();
        profile.untilSeconds = std::max(lastMs / 1000, profile.fromSeconds + 1);
        Picture picture({false, false});
        {
            RowsBefore whole;
            if (earlier) {
                earlier->takeOff(fetcher->database(), &whole);
            }
            addAll(picture, fetcher->database(), Side::Now, true, {});
        }
        picture.finish();
        picture.session = printable(agent.info.sessionName);
        if (!picture.trees.empty() && isOtlp) {
            profile.body = otlpProfiles(picture, resource, fromMs, std::max(lastMs, fromMs + 1));
        } else if (!picture.trees.empty()) {
            std::ostringstream bytes;
            writePprof(bytes, picture, lastMs);
            profile.body = bytes.str();
        }
        return profile;
    }

    int pid() const { return agent.info.pid; }

private:
    static int64_t nowMs() {
        return std::chrono::duration_cast<milliseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    }
    static std::vector<std::string> tagsOf(const Arguments& arguments) {
        return arguments.all("--tag");
    }

    // Brings the copy up to date; what its rows held before then, null the first time.
    std::unique_ptr<Baseline> fetch() {
        if (!fetcher) {
            fetcher = std::make_unique<TableFetcher>(agent.client, MostBytes);
        }
        try {
            fetcher->fetch(CpuTables | AllocationTables | MonitorTables | ExceptionTables);
        } catch (...) {
            fetcher.reset(); // half a fetch is of no use
            throw;
        }
        lastMs = nowMs();
        auto now = std::make_unique<Baseline>(fetcher->database());
        std::swap(now, before);
        return now;
    }

    LiveAgent agent;
    const std::string name;
    const bool isOtlp;
    OtlpResource resource;
    bool hasStarted = false;
    int64_t lastMs = 0;
    std::unique_ptr<TableFetcher> fetcher;
    std::unique_ptr<Baseline> before;
};

class PushCommand {
public:
    PushCommand(Console& console, const Arguments& arguments)
        : console(console), arguments(arguments), search(arguments.all("TARGET")),
          intervalMs(arguments.durationMs("--every", DefaultIntervalMs)),
          count(arguments.number("--count", 0)),
          push(targetOf(arguments), int(arguments.durationMs("--timeout", 15000))) {
        if (intervalMs < LeastIntervalMs) {
            throw ClientError(ExitCode::Usage, "usage", "--every takes 1s or more");
        }
        if (arguments.has("--all") ? !arguments.all("TARGET").empty()
                                   : arguments.all("TARGET").empty()) {
            throw ClientError(ExitCode::Usage, "usage", "name targets, or --all");
        }
        findFirst();
    }

    int run() {
        Clock::time_point due = Clock::now() + milliseconds(intervalMs);
        long made = 0;
        while ((!jvms.empty() || search.mayFindMore()) && sleepUnlessInterrupted(TickMs)) {
            findMore();
            if (Clock::now() >= due) {
                due = std::max(due + milliseconds(intervalMs), Clock::now());
                collect();
                made++;
            }
            send();
            if (count > 0 && made >= count) {
                break;
            }
        }
        finish();
        tell();
        const PushCounts& counts = push.counts();
        return counts.refused + counts.rejected + counts.dropped > 0 || !push.isEmpty()
                   ? int(ExitCode::Refused)
                   : 0;
    }

private:
    // A target that names nothing yet is told as that.
    void findFirst() {
        search.look(Clock::time_point::max());
        throwIfInterrupted();
        for (const std::string& target : arguments.all("TARGET")) {
            const auto& found = search.found();
            const JvmSearch alone({target});
            if (std::none_of(found.begin(), found.end(),
                             [&](const Jvm& jvm) { return alone.wants(jvm); })) {
                jvms.push_back(
                    std::make_unique<PushedJvm>(connectAgent(target, arguments), arguments, false));
            }
        }
        addFound(false);
        nextLook = Clock::now() + LookPause;
    }

    void findMore() {
        if (search.mayFindMore() && Clock::now() >= nextLook && search.lookOn()) {
            nextLook = Clock::now() + LookPause;
            addFound(true);
        }
    }

    void addFound(bool isNew) {
        for (const Jvm& jvm : search.takeNew()) {
            try {
                const int timeoutMs = int(arguments.durationMs("--timeout", 15000));
                jvms.push_back(std::make_unique<PushedJvm>(connectAgent(Machine(), jvm, timeoutMs),
                                                           arguments, isNew));
                if (isNew) {
                    console.note("process " + std::to_string(jvm.pid) + " (" +
                                 printable(jvm.shortName()) + ") is sent as well");
                }
            } catch (const ClientError& problem) {
                if (!isNew && !arguments.has("--all")) {
                    throw;
                }
                if (problem.code == ExitCode::Aborted) {
                    return;
                }
                console.warn("process " + std::to_string(jvm.pid) + ": " + problem.what());
            }
        }
    }

    void collect() {
        for (auto& jvm : jvms) {
            try {
                OutgoingProfile profile = jvm->next();
                if (profile.body.empty()) {
                    empty++;
                } else {
                    push.add(std::move(profile));
                }
            } catch (const ClientError& problem) {
                if (problem.code == ExitCode::Aborted) {
                    return; // the end is near
                }
                console.warn("process " + std::to_string(jvm->pid()) + ": " + problem.what());
                if (problem.word == "target.ended" || problem.word == "agent.connect") {
                    jvm.reset();
                }
            }
        }
        jvms.erase(std::remove(jvms.begin(), jvms.end(), nullptr), jvms.end());
    }

    void send() {
        try {
            const std::string trouble = push.sendDue(Clock::now());
            if (!trouble.empty()) {
                console.warn(trouble);
            }
        } catch (const ClientError& problem) {
            if (problem.code != ExitCode::Aborted) {
                throw;
            }
        }
    }

    // What the last interval has recorded goes as well.
    void finish() {
        if (isInterrupted()) {
            forgetInterrupt();
            collect();
        }
        for (int i = 0; i < LastTries && !push.isEmpty() && !isInterrupted(); i++) {
            push.hurry();
            send();
        }
        jvms.clear();
    }

    void tell() {
        const PushCounts& counts = push.counts();
        if (console.json) {
            JsonDocument json(console, "vdk.push/1");
            json.field("sent", counts.sent).field("sentBytes", counts.sentBytes);
            json.field("refused", counts.refused).field("rejected", counts.rejected);
            json.field("dropped", counts.dropped);
            json.field("failures", counts.failures).field("empty", empty);
            json.end();
            return;
        }
        console.out << "sent " << formatCount(counts.sent) << " profiles ("
                    << formatBytes(counts.sentBytes) << "), refused " << formatCount(counts.refused)
                    << (counts.rejected > 0
                            ? ", rejected of those taken " + formatCount(counts.rejected)
                            : "")
                    << ", dropped " << formatCount(counts.dropped) << ", " << formatCount(empty)
                    << " intervals without data\n";
    }

    Console& console;
    const Arguments& arguments;
    JvmSearch search;
    Clock::time_point nextLook;
    const long intervalMs;
    const long count;
    ProfilePush push;
    std::vector<std::unique_ptr<PushedJvm>> jvms;
    int64_t empty = 0;
};

} // namespace

int runPush(Console& console, const Arguments& arguments) {
    return PushCommand(console, arguments).run();
}

} // namespace vdk
