#include "client/fleet/JvmSearch.h"

#include "client/commands/Sources.h"
#include "client/console/Text.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace vdk {

namespace {

// How long a port without a marker is given to answer as an agent.
constexpr int PatienceMs = 1000;

} // namespace

JvmSearch::JvmSearch(std::vector<std::string> targets)
    : targets(std::move(targets)), looking([this] { lookAround(); }) {}

bool JvmSearch::look(Clock::time_point deadline) {
    looking.begin();
    if (!looking.await(deadline)) {
        return false;
    }
    taken = seen;
    return true;
}

bool JvmSearch::lookOn() {
    if (!looking.await(Clock::now())) {
        return false;
    }
    taken = seen;
    looking.begin();
    return true;
}

std::vector<Jvm> JvmSearch::takeNew() {
    // One that a look has missed is still the same.
    given.erase(
        std::remove_if(given.begin(), given.end(),
                       [](const Jvm& jvm) { return kill(jvm.pid, 0) != 0 && errno == ESRCH; }),
        given.end());
    std::vector<Jvm> fresh;
    for (const Jvm& jvm : taken) {
        if (std::none_of(given.begin(), given.end(),
                         [&](const Jvm& other) { return isSame(jvm, other); })) {
            fresh.push_back(jvm);
        }
    }
    given.insert(given.end(), fresh.begin(), fresh.end());
    return fresh;
}

void JvmSearch::forget(const Jvm& jvm) {
    given.erase(std::remove_if(given.begin(), given.end(),
                               [&](const Jvm& other) { return isSame(jvm, other); }),
                given.end());
}

std::vector<std::pair<std::string, Endpoint>> JvmSearch::addresses() const {
    std::vector<std::pair<std::string, Endpoint>> result;
    for (const std::string& target : targets) {
        Endpoint endpoint;
        if (parseEndpoint(target, endpoint)) {
            result.emplace_back(target, endpoint);
        }
    }
    return result;
}

bool JvmSearch::mayFindMore() const {
    return targets.empty() ||
           std::any_of(targets.begin(), targets.end(), [](const std::string& target) {
               Endpoint endpoint;
               return !parseNumber(target, 1, INT32_MAX) && !parseEndpoint(target, endpoint);
           });
}

bool JvmSearch::isSame(const Jvm& one, const Jvm& other) {
    return one.pid == other.pid && one.port == other.port && one.session == other.session &&
           one.dataFile == other.dataFile;
}

void JvmSearch::lookAround() {
    try {
        Machine machine;
        machine.patienceMs = PatienceMs;
        std::vector<Jvm> all = machine.finder.findAll();
        all.erase(
            std::remove_if(all.begin(), all.end(), [&](const Jvm& jvm) { return !wants(jvm); }),
            all.end());
        seen = std::move(all);
    } catch (const std::exception&) {
        seen.clear(); // interrupted, or no memory: the next look tells
    }
}

bool JvmSearch::wants(const Jvm& jvm) const {
    if (!jvm.isProfiled()) {
        return false;
    }
    const auto names = [&](const std::string& target) {
        const auto pid = parseNumber(target, 1, INT32_MAX);
        return pid ? *pid == jvm.pid
                   : containsIgnoringCase(jvm.mainName, target) ||
                         containsIgnoringCase(jvm.session, target);
    };
    return targets.empty() || std::any_of(targets.begin(), targets.end(), names);
}

} // namespace vdk
