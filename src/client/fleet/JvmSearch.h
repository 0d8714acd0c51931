// The profiled JVMs that somebody wants to know of, looked for again and again: JVMs come, end and
// are started again. A look that hangs holds nobody up.
#pragma once

#include "client/attach/JvmList.h"
#include "client/fleet/Errand.h"

#include <string>
#include <vector>

namespace vdk {

class JvmSearch {
public:
    using Clock = Errand::Clock;

    // Process ids, addresses, and parts of main class, JAR or session name; none takes all JVMs.
    explicit JvmSearch(std::vector<std::string> targets);

    // Begins a look unless one is under way, and takes what it has found if it is over at the
    // deadline; false if not.
    bool look(Clock::time_point deadline);
    // Takes what an earlier look has found, if it is over, and begins the next. Waits for nothing.
    bool lookOn();
    const std::vector<Jvm>& found() const { return taken; }

    // Those found that this has not given before.
    std::vector<Jvm> takeNew();
    // The next takeNew() gives it again, if it is found again.
    void forget(const Jvm& jvm);

    // Those of the targets that are addresses, which a look does not tell of.
    std::vector<std::pair<std::string, Endpoint>> addresses() const;
    // True for a profiled JVM that one of the targets names.
    bool wants(const Jvm& jvm) const;
    // True if a JVM that is started later may be one of the wanted.
    bool mayFindMore() const;

    // False for another process of the same id, or another agent in it.
    static bool isSame(const Jvm& one, const Jvm& other);

private:
    void lookAround();

    const std::vector<std::string> targets;
    std::vector<Jvm> seen; // written by the errand alone
    std::vector<Jvm> taken;
    std::vector<Jvm> given; // by takeNew(), until their processes end
    Errand looking;
};

} // namespace vdk
