// Why a report or view has nothing to show, as what is switched on explains it.
#pragma once

#include "client/commands/Sources.h"
#include "client/profile/EventData.h"

namespace vdk {

// The bit of the agent's status that tells that it is recorded; live objects and garbage go with
// allocations.
int64_t statusBitOf(Shown what);

// The words "monitors.off" of errors, and the command that starts it.
struct StartHint {
    const char* word;
    const char* what; // "waits are not recorded"
    std::string command;
};
StartHint startHint(Shown what, const std::string& target);

// With isKnown false of live objects and garbage of which the database tells nothing.
std::string whyNoJ2ee(const DataSource& source);
std::string whyEmpty(Shown what, const DataSource& source, bool isKnown);

} // namespace vdk
