// Words for the bits that the JVM tells a thread's state with.
#pragma once

namespace vdk {

// "running", "in native", "blocked", "waiting", "parked", "sleeping", "suspended", "alive",
// "ended" or "new".
const char* threadStateName(int jvmtiThreadState);

} // namespace vdk
