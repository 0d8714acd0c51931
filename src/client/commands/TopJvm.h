// A JVM that `vdk top` looks at: its agent, a copy of its tables, and the two moments between which
// the view's interval lies.
#pragma once

#include "client/commands/TopView.h"
#include "client/fleet/Errand.h"

#include <memory>
#include <optional>
#include <string>

namespace vdk {

class TopJvm {
public:
    using Clock = Errand::Clock;

    // With `startSampling` sampling is started, and stopped with this object's end.
    TopJvm(const std::string& target, LiveAgent agent, bool startSampling);
    ~TopJvm();
    TopJvm(const TopJvm&) = delete;
    TopJvm& operator=(const TopJvm&) = delete;

    // Looks here and now. Throws what the agent's client throws.
    Moment fetch(const TopChoices& choices);

    // The same by a thread of its own. False while a former look is still under way.
    bool beginLook(const TopChoices& choices);
    // What a look that was over at the deadline has found; after one that failed, or that is late,
    // state() tells, and the next may go well.
    std::optional<Moment> endLook(Clock::time_point deadline);

    // The interval that is shown ends with this moment, and began with the one before.
    void advance(Moment moment);
    void takeViewsOf(const Moment& moment);

    JvmState state() const { return current; }
    TopSubject subject() const;
    const AgentInfo& info() const { return agent.info; }
    int64_t status() const { return agent.status; }
    const Moment* last() const { return now ? &*now : before ? &*before : nullptr; }

private:
    void look();
    void restart();
    bool hasEnded() const;

    LiveAgent agent;
    DataSource source;
    bool hasStarted = false;
    std::unique_ptr<TableFetcher> fetcher;
    JvmState current = JvmState::Up;
    std::optional<Moment> before; // the beginning of the interval that is shown
    std::optional<Moment> now;    // its end, where the next one begins

    // Of the look.
    TopChoices wanted;
    std::optional<Moment> found;
    std::string problem; // the word of its error
    Errand looking;      // last: it works with all of the above
};

} // namespace vdk
