#include "client/commands/TopJvm.h"

#include "client/agent/Protocol.h"
#include "client/console/Signals.h"
#include "core/ground/Exceptions.h"

#include <cerrno>
#include <csignal>

namespace vdk {

TopJvm::TopJvm(const std::string& target, LiveAgent liveAgent, bool startSampling)
    : agent(std::move(liveAgent)), looking([this] { look(); }) {
    source.name = target;
    source.live = true;
    source.status = agent.status;
    if (startSampling && (agent.status & protocol::CPU_TIMES_BIT) == 0) {
        agent.client.startCpuProfiling(protocol::CPU_SAMPLING, std::nullopt, std::nullopt);
        hasStarted = true;
    }
    restart();
}

TopJvm::~TopJvm() {
    if (!hasStarted || current == JvmState::Gone) {
        return;
    }
    looking.await(Clock::time_point::max());
    try {
        forgetInterrupt();
        agent.client.stopCpuProfiling();
    } catch (const ClientError&) {
        // The JVM may be gone; there is nothing left to stop then.
    }
}

void TopJvm::restart() {
    fetcher = std::make_unique<TableFetcher>(agent.client);
    fetcher->follow(SampledCpuTable);
    fetcher->follow(SampledLinesTable);
}

Moment TopJvm::fetch(const TopChoices& choices) {
    int tables = CpuTables | MonitorTables | ExceptionTables | 1 << SLOT_Telemetry;
    const bool ofLife = choices.show == Shown::Live || choices.show == Shown::Garbage;
    if (ofLife || (choices.show ? choices.show == Shown::Allocations : choices.allocations)) {
        tables |= AllocationTables;
    }
    // The agent passes over all recorded objects to know which live.
    ofLife ? fetcher->follow(LiveAllocationsTable) : fetcher->unfollow(LiveAllocationsTable);
    fetcher->fetch(tables);
    return vdk::look(fetcher->database(), choices);
}

void TopJvm::look() {
    found.reset();
    problem.clear();
    try {
        found = fetch(wanted);
        return;
    } catch (const ClientError& error) {
        problem = error.word;
    } catch (const VDKRuntimeException&) {
        problem = "agent.data";
    } catch (const std::exception&) { // no memory, for one
        problem = "memory";
    }
    restart(); // the copy may be half of an update
}

bool TopJvm::beginLook(const TopChoices& choices) {
    if (current == JvmState::Gone || !looking.await(Clock::now())) {
        return false;
    }
    wanted = choices;
    return looking.begin();
}

// The process is of this machine unless the target was an address: then only its port tells.
bool TopJvm::hasEnded() const {
    Endpoint endpoint;
    if (problem == "target.ended") {
        return true;
    }
    return parseEndpoint(source.name, endpoint) ? problem == "agent.connect"
                                                : kill(agent.info.pid, 0) != 0 && errno == ESRCH;
}

std::optional<Moment> TopJvm::endLook(Clock::time_point deadline) {
    if (current == JvmState::Gone) {
        return std::nullopt;
    }
    if (!looking.await(deadline)) {
        current = JvmState::Silent;
        return std::nullopt;
    }
    std::optional<Moment> result = std::move(found);
    found.reset();
    current = result ? JvmState::Up : hasEnded() ? JvmState::Gone : JvmState::Silent;
    return result;
}

void TopJvm::advance(Moment moment) {
    if (now) {
        before = std::move(*now);
    }
    (before ? now : before) = std::move(moment);
}

void TopJvm::takeViewsOf(const Moment& moment) {
    for (std::optional<Moment>* end : {&before, &now}) {
        if (*end) {
            (*end)->takeViewsOf(moment);
        }
    }
}

TopSubject TopJvm::subject() const {
    return {agent.info, source, current, before ? &*before : nullptr, now ? &*now : nullptr};
}

} // namespace vdk
