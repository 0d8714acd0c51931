#include "machine/MarkersOnSharedMemory.h"

#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "core/ground/ZSet.h"
#include "machine/ProcessList.h"
#include "platform/Platform.h"

#include <stdlib.h>
#include <string.h>

namespace {

const int CUT_NAME_BYTES = 44;
const int MAX_PORT = 65535;
const int LISTENING = 1;

// Area of earlier versions: records of two ints.
const int OLD_AREA_KEY = 0x4234148e;
const int OLD_RECORD_COUNT = 65536;
struct OldMarkerRecord {
    int pid;
    int state;
};
static_assert(sizeof(OldMarkerRecord) * OLD_RECORD_COUNT == 0x80000, "layout of earlier versions");

// Other processes write at any time: each word is read and written whole.
int load(const int& word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

void store(int& word, int value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

MarkerArea* attachArea(int key) {
    Platform::SharedMemoryOutcome outcome;
    void* address = Platform::attachSharedMemory(key, sizeof(MarkerArea), &outcome);
    ZString text("shmem marker: ");
    if (address != nullptr) {
        text.append("OK: ");
        text.appendLong(outcome.segment);
    } else if (outcome.segment == -1) {
        text.append("shmget(): errno=");
        text.appendLong(outcome.error);
    } else {
        text.append(outcome.nullAddress ? "shmat() -> NULL: shmid=" : "shmat() -> -1: shmid=");
        text.appendLong(outcome.segment);
    }
    Logger::message(text);
    return static_cast<MarkerArea*>(address);
}

ZString cutName(const ZString& name) {
    if (name.getLength() < MarkerRecord::NAME_BYTES) {
        return name;
    }
    return name.substring(0, CUT_NAME_BYTES) + "...";
}

// Two agents of one machine may be older than this check, so the name is bounded by its field.
ZString boundedName(const MarkerRecord& record) {
    char name[MarkerRecord::NAME_BYTES + 1];
    memcpy(name, record.sessionName, MarkerRecord::NAME_BYTES);
    name[MarkerRecord::NAME_BYTES] = 0;
    return ZString(name);
}

bool isPlausible(const Marker& marker) {
    return marker.pid > 0 && marker.port > 0 && marker.port <= MAX_PORT;
}

} // namespace

MarkerRecord* findMarkerByPID(MarkerArea* area, int pid, bool create) {
    for (MarkerRecord& record : area->records) {
        if (load(record.pid) == pid) {
            return &record;
        }
    }
    if (!create) {
        return nullptr;
    }
    const int first = (pid & 0x7fffffff) % MarkerArea::RECORD_COUNT;
    for (int i = 0; i < MarkerArea::RECORD_COUNT; i++) {
        MarkerRecord& record = area->records[(first + i) % MarkerArea::RECORD_COUNT];
        if (load(record.pid) == 0) {
            store(record.pid, pid);
            return &record;
        }
    }
    Logger::error("No free marker slots available", VDK_HERE);
}

MarkersOnSharedMemory::MarkersOnSharedMemory(int areaKey, int mutexKey)
    : area(attachArea(areaKey)), mutex(mutexKey) {}

MarkersOnSharedMemory& MarkersOnSharedMemory::ofThisMachine() {
    // Never destroyed: threads of the JVM outlive static destructors.
    static MarkersOnSharedMemory& markers = *new MarkersOnSharedMemory();
    return markers;
}

void MarkersOnSharedMemory::clearDeadRecords() {
    if (area == nullptr) {
        return;
    }
    ProcessList processes;
    if (!processes.isKnown()) {
        return;
    }
    InterProcessLock lock(mutex);
    for (MarkerRecord& record : area->records) {
        const int pid = load(record.pid);
        if (pid != 0 && !processes.isAlive(pid)) {
            store(record.port, 0);
            store(record.state, 0);
            store(record.pid, 0);
        }
    }
}

void MarkersOnSharedMemory::createMarker(int port, int state, const ZString& sessionName) {
    if (area == nullptr) {
        return;
    }
    clearDeadRecords();
    const ZString name = cutName(unquote(sessionName));
    InterProcessLock lock(mutex);
    MarkerRecord* record = findMarkerByPID(area, Platform::vdk_getpid(), true);
    store(record->port, port);
    memset(record->sessionName, 0, sizeof record->sessionName);
    memcpy(record->sessionName, name.c_str(), static_cast<size_t>(name.getLength()));
    record->zero = 0;
    store(record->state, state);
}

bool MarkersOnSharedMemory::fillMarked(int stateMask, ZVector<Marker>* out) {
    if (area == nullptr) {
        return false;
    }
    clearDeadRecords();
    ZSet<int> seen(ZVECTOR_DEFAULT_CAPACITY);
    InterProcessLock lock(mutex);
    for (const MarkerRecord& record : area->records) {
        const Marker marker = {load(record.pid), load(record.port), load(record.state)};
        if ((marker.state & stateMask) != 0 && isPlausible(marker) && !seen.contains(marker.pid)) {
            seen.add(marker.pid);
            out->push(marker);
        }
    }
    return true;
}

ZString MarkersOnSharedMemory::getSessionName(int pid) {
    if (area == nullptr || pid == 0) {
        return ZString();
    }
    InterProcessLock lock(mutex);
    const MarkerRecord* record = findMarkerByPID(area, pid, false);
    return record == nullptr ? ZString() : boundedName(*record);
}

void createMarker(int port, int state, const ZString& sessionName) {
    MarkersOnSharedMemory::ofThisMachine().createMarker(port, state, sessionName);
}

bool readMarkers(int stateMask, ZVector<MarkerRecord>* out, int areaKey) {
    MarkerRecord* const records = static_cast<MarkerRecord*>(malloc(sizeof(MarkerArea)));
    if (records == nullptr || !Platform::readSharedMemory(areaKey, records, sizeof(MarkerArea))) {
        free(records);
        return false;
    }
    ZSet<int> seen(ZVECTOR_DEFAULT_CAPACITY);
    for (int i = 0; i < MarkerArea::RECORD_COUNT; i++) {
        const MarkerRecord& record = records[i];
        const Marker marker = {record.pid, record.port, record.state};
        if ((marker.state & stateMask) != 0 && isPlausible(marker) && !seen.contains(marker.pid)) {
            seen.add(marker.pid);
            out->push(record);
        }
    }
    free(records);
    return true;
}

bool fillMarked8(ZVector<int>* pids) {
    const size_t size = sizeof(OldMarkerRecord) * OLD_RECORD_COUNT;
    static OldMarkerRecord* records =
        static_cast<OldMarkerRecord*>(Platform::attachExistingSharedMemory(OLD_AREA_KEY, size));
    if (records == nullptr) {
        return false;
    }
    ProcessList processes;
    for (int i = 0; i < OLD_RECORD_COUNT; i++) {
        const int pid = load(records[i].pid);
        if (pid == 0) {
            continue;
        }
        if (!processes.isAlive(pid)) {
            store(records[i].pid, 0);
            store(records[i].state, 0);
        } else if ((load(records[i].state) & LISTENING) != 0) {
            pids->push(pid);
        }
    }
    return true;
}
