// Whether the agent's library can be loaded into a process, as far as its C library decides it.
#pragma once

#include "client/attach/ProcFs.h"
#include "platform/GlibcFloor.h"

namespace vdk {

// The version of the glibc that the process maps, from the text inside that file; nothing if it
// maps none, or the file cannot be read.
std::optional<GlibcVersion> targetGlibc(const ProcFs& processes, int pid);

// Throws ClientError AttachRefused "agent.libc" on musl, "agent.glibc" if glibc is too old.
void checkTargetLibc(const ProcFs& processes, int pid);

} // namespace vdk
