#include "profiling/events/Monitors.h"

#include "core/ground/Globals.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CallbackNatives.h"
#include "db/DB.h"

long Monitors::ourMonitorRecordingStartNs = 0;
long Monitors::ourMonitorRecordingLastNs = 0;

namespace {

const int HALF_BITS = 32;

} // namespace

ZString Monitors::startMonitorProfiling(JNIEnv*) {
    return VDK_MISSING_TEXT("monitor profiling");
}

void Monitors::storeDuration() {
    if (ourMonitorRecordingStartNs == 0) {
        return;
    }
    const long end = (ourStatus & MONITORS_BIT) != 0 ? getTimeNs() : ourMonitorRecordingLastNs;
    const long duration = end - ourMonitorRecordingStartNs;
    ourDB->setProperty("vdk.monitor.profiling.duration.ns.low", static_cast<int>(duration));
    ourDB->setProperty("vdk.monitor.profiling.duration.ns.high",
                       static_cast<int>(duration >> HALF_BITS));
}

void Monitors::clearMonitorData() {
    ourDB->clearTableAndTellReaders(SLOT_Monitor);
}
