#include "client/fleet/FleetWatch.h"

#include "client/console/Signals.h"
#include "client/console/Text.h"
#include "core/ground/Exceptions.h"

#include <algorithm>

namespace vdk {

namespace {

using Clock = Errand::Clock;
using std::chrono::milliseconds;

// A part of a scrape's time that looking for JVMs may take; what was found last counts otherwise.
constexpr int LookingPart = 3;
// The part that JVMs may take which were not ready the last time.
constexpr int SecondTryPart = 10;
// An update of a JVM's tables that is larger than this is refused.
constexpr long MostBytes = 256L << 20;

const MetricFamily Jvms = {"vdk_jvms", MetricType::Gauge, "",
                           "JVMs of this machine that are asked for metrics."};
const MetricFamily Up = {"vdk_jvm_up", MetricType::Gauge, "",
                         "1 if the agent of the JVM answered in time, else 0."};
const MetricFamily Took = {"vdk_jvm_scrape_duration_seconds", MetricType::Gauge, "seconds",
                           "How long the agent took to answer."};

} // namespace

// One JVM: its connection, the copy of its tables, and the last reading.
class FleetWatch::Target {
public:
    // Of a JVM that was found.
    Target(Jvm jvm, int timeoutMs)
        : jvm(std::move(jvm)), timeoutMs(timeoutMs), reading_([this] { read(); }) {}
    // Of an address.
    Target(const Endpoint& endpoint, int timeoutMs)
        : endpoint(endpoint), timeoutMs(timeoutMs), reading_([this] { read(); }) {}

    void begin() { isLate = !reading_.begin(); }
    // One that was not ready by the scrape before is not waited for until the deadline again.
    void await(Clock::time_point deadline, Clock::time_point soon) {
        const bool isDone = reading_.await(isLate ? Clock::now() : hasFailed ? soon : deadline);
        isRead = isDone && isGood;
        hasFailed = !isRead;
    }
    bool isIdle() { return reading_.await(Clock::now()); }

    // Of a reading that was awaited.
    bool isUp() const { return isRead; }
    const JvmReading& reading() const { return current; }
    double seconds() const { return took; }

    MetricLabels labels() const {
        if (endpoint) {
            return {{"instance_address", endpoint->text()}};
        }
        return {{"pid", std::to_string(jvm.pid)}, {"session", printable(jvm.session, 100)}};
    }
    bool isStill(const Jvm& other) const { return JvmSearch::isSame(jvm, other); }

private:
    void read() {
        const Clock::time_point begin = Clock::now();
        try {
            fetch();
            isGood = true;
        } catch (const ClientError&) {
            isGood = false;
        } catch (const VDKRuntimeException&) {
            isGood = false;
        } catch (const std::exception&) { // no memory, for one
            isGood = false;
        }
        if (!isGood) {
            source.reset(); // it may be half of an update
        }
        took = std::chrono::duration<double>(Clock::now() - begin).count();
    }

    void fetch() {
        const Machine machine;
        LiveAgent agent = endpoint ? LiveAgent{AgentClient(*endpoint, timeoutMs), {}, 0}
                                   : connectAgent(machine, jvm, timeoutMs);
        if (endpoint) {
            agent.info = agent.client.info(&agent.status);
            jvm.session = agent.info.sessionName;
        }
        if (!source || agent.info.sessionId != sessionId) {
            source = std::make_unique<DataSource>();
            source->client = std::make_unique<AgentClient>(agent.client);
            source->fetcher = std::make_unique<TableFetcher>(*source->client, MostBytes);
            source->fetcher->followAll();
            sessionId = agent.info.sessionId;
        }
        source->status = agent.status;
        source->fetcher->fetch(MetricTables);
        current = readMetrics(*source, jvm, agent.info, limit);
    }

    Jvm jvm;
    const std::optional<Endpoint> endpoint;
    const int timeoutMs;
    std::unique_ptr<DataSource> source;
    int64_t sessionId = 0;
    SeriesLimit limit;
    JvmReading current;
    double took = 0;
    bool isGood = false;
    bool isRead = false;
    bool hasFailed = false; // to be ready for the last scrape
    bool isLate = false;    // the reading was begun for an earlier scrape
    Errand reading_;        // last: it works with all of the above
};

FleetWatch::FleetWatch(FleetChoices choices)
    : choices(std::move(choices)), search(this->choices.targets) {
    for (const auto& [target, endpoint] : search.addresses()) {
        targets[target] = std::make_unique<Target>(endpoint, this->choices.timeoutMs);
    }
}

FleetWatch::~FleetWatch() = default;

// New JVMs get a target, those that are gone lose theirs.
void FleetWatch::followJvms() {
    std::map<std::string, const Jvm*> seen;
    for (const Jvm& jvm : search.found()) {
        seen[std::to_string(jvm.pid)] = &jvm;
    }
    for (auto entry = targets.begin(); entry != targets.end();) {
        Endpoint endpoint;
        const auto jvm = seen.find(entry->first);
        const bool stays = parseEndpoint(entry->first, endpoint) ||
                           (jvm != seen.end() && entry->second->isStill(*jvm->second));
        if (!stays) {
            leaving.push_back(std::move(entry->second));
        }
        entry = stays ? std::next(entry) : targets.erase(entry);
    }
    for (const auto& [pid, jvm] : seen) {
        if (targets.count(pid) == 0) {
            targets[pid] = std::make_unique<Target>(*jvm, choices.timeoutMs);
        }
    }
    leaving.erase(std::remove_if(leaving.begin(), leaving.end(),
                                 [](const auto& target) { return target->isIdle(); }),
                  leaving.end());
}

std::vector<MetricFamily> FleetWatch::families() {
    std::vector<MetricFamily> all = {Jvms, Up, Took};
    for (const JvmMetric& metric : jvmMetrics()) {
        all.push_back(metric.family);
    }
    return all;
}

std::string FleetWatch::scrape(MetricForm form, int deadlineMs) {
    const std::lock_guard<std::mutex> lock(scraping);
    const Clock::time_point begin = Clock::now();
    const Clock::time_point deadline = begin + milliseconds(deadlineMs);
    if (search.look(begin + milliseconds(deadlineMs / LookingPart))) {
        followJvms();
    }
    for (const auto& [key, target] : targets) {
        target->begin();
    }
    for (const auto& [key, target] : targets) {
        target->await(deadline, begin + milliseconds(deadlineMs / SecondTryPart));
    }
    MetricText text(form);
    text.begin(Jvms);
    text.add(Jvms, {}, {}, double(targets.size()));
    text.begin(Up);
    for (const auto& [key, target] : targets) {
        text.add(Up, target->labels(), {}, target->isUp() ? 1 : 0);
    }
    text.begin(Took);
    for (const auto& [key, target] : targets) {
        if (target->isUp()) {
            text.add(Took, target->labels(), {}, target->seconds());
        }
    }
    const std::vector<JvmMetric>& metrics = jvmMetrics();
    for (size_t i = 0; i < metrics.size(); i++) {
        text.begin(metrics[i].family);
        for (const auto& [key, target] : targets) {
            if (!target->isUp()) {
                continue;
            }
            for (const auto& [labels, value] : target->reading().samples[i]) {
                text.add(metrics[i].family, target->labels(), labels, value);
            }
        }
    }
    return text.finish();
}

} // namespace vdk
