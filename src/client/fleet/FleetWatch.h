// The profiled JVMs of this machine, each read by a thread of its own: one that hangs costs the
// others nothing, and a reading is over at its deadline whatever JVMs do.
#pragma once

#include "client/fleet/JvmMetrics.h"
#include "client/fleet/JvmSearch.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vdk {

struct FleetChoices {
    std::vector<std::string> targets; // none takes all profiled JVMs
    int timeoutMs = 15000;            // for each answer of an agent
};

class FleetWatch {
public:
    explicit FleetWatch(FleetChoices choices);
    ~FleetWatch();
    FleetWatch(const FleetWatch&) = delete;
    FleetWatch& operator=(const FleetWatch&) = delete;

    // Reads all and gives the text in this form, no later than after so long.
    std::string scrape(MetricForm form, int deadlineMs);

    // The families of the fleet itself, those of its JVMs behind them.
    static std::vector<MetricFamily> families();

private:
    class Target;

    void followJvms();

    const FleetChoices choices;
    std::mutex scraping;                                    // one at a time
    std::map<std::string, std::unique_ptr<Target>> targets; // by pid, or by address
    std::vector<std::unique_ptr<Target>> leaving; // of JVMs that have ended, still at work
    JvmSearch search;
};

} // namespace vdk
