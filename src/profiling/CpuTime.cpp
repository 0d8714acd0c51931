#include "profiling/CpuTime.h"

#include "platform/Platform.h"

long getProcessCPUTimeNs() {
    return Platform::processCPUTimeNs();
}

long getThreadCPUTimeNs(long nativeThreadID) {
    const long time = Platform::threadCPUTimeNs(nativeThreadID);
    return time < 0 ? 0 : time;
}

long getCurrentThreadCPUTimeNs() {
    return Platform::currentThreadCPUTimeNs();
}
