// What the agent's own threads in a JVM of this machine cost, by the system's account.
#pragma once

#include <map>
#include <string>

namespace vdk {

// CPU seconds by the system's names of the threads, which it cuts. Empty where this user may not
// look, and for no process of this machine (0).
std::map<std::string, double> agentThreadSeconds(int pid);

} // namespace vdk
