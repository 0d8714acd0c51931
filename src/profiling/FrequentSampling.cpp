#include "profiling/FrequentSampling.h"

#include "core/ground/Globals.h"
#include "core/ground/UptimeProvider.h"
#include "core/ground/ZVector.h"

namespace {

constexpr long NS_PER_MS = 1000000;

struct LastingEvent {
    long activationUptimeNs;
    int tableIndex;
    int rowIndex;
};

ZVector<LastingEvent>& ourLastingEvents = *new ZVector<LastingEvent>();
// The smallest activation time of the list, 0 if none is known.
long ourNearestUptimeToActivateFrequentSamplingNs = 0;

} // namespace

void frequentSamplingRowCreated(int tableIndex, int rowIndex, int thresholdMs) {
    if (thresholdMs < 0) {
        return;
    }
    const long activation = ourUptimeProvider.getUptimeNs() + thresholdMs * NS_PER_MS;
    ourLastingEvents.push({activation, tableIndex, rowIndex});
    if (ourNearestUptimeToActivateFrequentSamplingNs == 0 ||
        ourNearestUptimeToActivateFrequentSamplingNs > activation) {
        ourNearestUptimeToActivateFrequentSamplingNs = activation;
    }
}

void frequentSamplingRowClosed(int tableIndex, int rowIndex) {
    if (ourLastingEvents.isEmpty()) {
        return;
    }
    int position = -1;
    long nearest = 0;
    for (int i = 0; i < ourLastingEvents.getSize(); i++) {
        const LastingEvent& event = ourLastingEvents[i];
        if (event.tableIndex == tableIndex && event.rowIndex == rowIndex) {
            position = i;
        } else if (nearest == 0 || event.activationUptimeNs < nearest) {
            nearest = event.activationUptimeNs;
        }
    }
    ourNearestUptimeToActivateFrequentSamplingNs = nearest;
    if (position >= 0) {
        ourLastingEvents.removeRange(position, position + 1);
    }
}

bool isFrequentSampling() {
    LockHolder lock(ourLock);
    return !ourLastingEvents.isEmpty() &&
           ourUptimeProvider.getUptimeNs() >= ourNearestUptimeToActivateFrequentSamplingNs;
}
