#include "client/commands/WhyEmpty.h"

#include "client/agent/Protocol.h"

namespace vdk {

namespace {

// What a snapshot without the data says, and an agent that has it switched on and saw nothing yet.
struct Texts {
    const char *snapshot, *nothingYet;
};

Texts textsOf(Shown what, const DataSource& source) {
    switch (what) {
    case Shown::Cpu:
        return {"the snapshot has no CPU data: sampling was off",
                source.status & protocol::CPU_COUNTS_BIT
                    ? "no CPU data yet: tracing is on, and no call was traced; those on virtual "
                      "threads are not"
                    : "no CPU data yet: sampling is on, and no thread has run"};
    case Shown::Monitors:
        return {"the snapshot has no waits for monitors",
                "no thread has waited for a monitor yet; those on virtual threads are not seen"};
    case Shown::Exceptions:
        return {"the snapshot has no exceptions", "no exceptions counted yet"};
    default:
        return {"the snapshot has no allocations: they were not recorded",
                "no allocations yet: they are recorded, and there was none"};
    }
}

// What there is none of yet.
const char* nounOf(Shown what) {
    switch (what) {
    case Shown::Cpu:
        return "no CPU data yet";
    case Shown::Monitors:
        return "no waits recorded yet";
    case Shown::Exceptions:
        return "no exceptions counted yet";
    default:
        return "no allocations yet";
    }
}

} // namespace

int64_t statusBitOf(Shown what) {
    switch (what) {
    case Shown::Cpu:
        return protocol::CPU_TIMES_BIT;
    case Shown::Monitors:
        return protocol::MONITORS_BIT;
    case Shown::Exceptions:
        return protocol::EXCEPTION_TELEMETRY_BIT;
    default:
        return protocol::ALLOCATION_RECORDING_BIT;
    }
}

StartHint startHint(Shown what, const std::string& target) {
    switch (what) {
    case Shown::Cpu:
        return {"cpu.off", "CPU sampling is off", "vdk sample start " + target};
    case Shown::Monitors:
        return {"monitors.off", "waits are not recorded", "vdk monitors start " + target};
    case Shown::Exceptions:
        return {"exceptions.off", "exceptions are not counted", "vdk exceptions on " + target};
    default:
        return {"alloc.off", "allocations are not recorded", "vdk alloc start " + target};
    }
}

std::string whyNoJ2ee(const DataSource& source) {
    if (source.live && (source.status & protocol::J2EE_BIT) != 0) {
        return "no requests, statements or look-ups yet: they are recorded, and there was none";
    }
    return source.live ? "no requests, statements and look-ups recorded yet: `vdk sample start " +
                             source.name + " --j2ee`"
                       : "the snapshot has no requests, statements and look-ups: they were not "
                         "recorded with CPU times";
}

std::string whyEmpty(Shown what, const DataSource& source, bool isKnown) {
    const std::string start = "`" + startHint(what, source.name).command + "`";
    if (what == Shown::Live || what == Shown::Garbage) {
        return isKnown ? what == Shown::Live ? "no recorded object lives"
                                             : "no recorded object has ended"
               : source.live
                   ? "not known which recorded objects live: " + start
                   : "the snapshot does not tell which recorded objects lived: allocations were "
                     "not recorded";
    }
    const Texts texts = textsOf(what, source);
    const bool isOn = (source.status & statusBitOf(what)) != 0;
    return !source.live ? texts.snapshot : isOn ? texts.nothingYet : nounOf(what) + (": " + start);
}

} // namespace vdk
