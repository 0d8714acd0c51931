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
template <typename Word>
Word load(const Word& word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

template <typename Word>
void store(Word& word, Word value) {
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

unsigned MarkerView::namespaceOf(const MarkerRecord& record) const {
    if (notes == nullptr) {
        return 0;
    }
    const MarkerNote& note = notes->notes[&record - area->records];
    return load(note.pid) == load(record.pid) ? load(note.pidNamespace) : 0;
}

bool MarkerView::mayBeOwn(const MarkerRecord& record) const {
    const unsigned known = namespaceOf(record);
    return known == 0 || pidNamespace == 0 || known == pidNamespace;
}

MarkerRecord* findMarkerByPID(const MarkerView& view, int pid, bool create) {
    for (MarkerRecord& record : view.area->records) {
        if (load(record.pid) == pid && view.mayBeOwn(record)) {
            return &record;
        }
    }
    if (!create) {
        return nullptr;
    }
    for (int isFull = 0; isFull < 2; isFull++) {
        for (int i = 0; i < MarkerArea::RECORD_COUNT; i++) {
            const int first = (pid & 0x7fffffff) % MarkerArea::RECORD_COUNT;
            MarkerRecord& record = view.area->records[(first + i) % MarkerArea::RECORD_COUNT];
            if (isFull != 0 ? !view.mayBeOwn(record) : load(record.pid) == 0) {
                store(record.pid, pid);
                return &record;
            }
        }
    }
    Logger::error("No free marker slots available", VDK_HERE);
}

MarkersOnSharedMemory::MarkersOnSharedMemory(int areaKey, int mutexKey, int notesKey)
    : view{attachArea(areaKey)}, mutex(mutexKey) {
    Platform::SharedMemoryOutcome outcome;
    view.notes = static_cast<MarkerNotes*>(
        Platform::attachSharedMemory(notesKey, sizeof(MarkerNotes), &outcome));
    view.pidNamespace = Platform::pidNamespace();
}

MarkersOnSharedMemory& MarkersOnSharedMemory::ofThisMachine() {
    // Never destroyed: threads of the JVM outlive static destructors.
    static MarkersOnSharedMemory& markers = *new MarkersOnSharedMemory();
    return markers;
}

void MarkersOnSharedMemory::clearDeadRecords() {
    if (view.area == nullptr) {
        return;
    }
    ProcessList processes;
    if (!processes.isKnown()) {
        return;
    }
    const bool seesAll =
        view.pidNamespace == 0 || view.pidNamespace == Platform::INITIAL_PID_NAMESPACE;
    InterProcessLock lock(mutex);
    for (MarkerRecord& record : view.area->records) {
        const int pid = load(record.pid);
        const bool canTell =
            seesAll ? view.mayBeOwn(record) : view.namespaceOf(record) == view.pidNamespace;
        if (pid != 0 && canTell && !processes.isAlive(pid)) {
            store(record.port, 0);
            store(record.state, 0);
            store(record.pid, 0);
            if (view.notes != nullptr) {
                store(view.notes->notes[&record - view.area->records].pid, 0);
            }
        }
    }
}

void MarkersOnSharedMemory::createMarker(int port, int state, const ZString& sessionName) {
    if (view.area == nullptr) {
        return;
    }
    clearDeadRecords();
    const ZString name = cutName(unquote(sessionName));
    InterProcessLock lock(mutex);
    const int pid = Platform::vdk_getpid();
    MarkerRecord* record = findMarkerByPID(view, pid, true);
    if (view.notes != nullptr) {
        MarkerNote& note = view.notes->notes[record - view.area->records];
        store(note.pidNamespace, view.pidNamespace);
        store(note.pid, pid);
    }
    store(record->port, port);
    memset(record->sessionName, 0, sizeof record->sessionName);
    memcpy(record->sessionName, name.c_str(), static_cast<size_t>(name.getLength()));
    record->zero = 0;
    store(record->state, state);
}

bool MarkersOnSharedMemory::fillMarked(int stateMask, ZVector<Marker>* out) {
    if (view.area == nullptr) {
        return false;
    }
    clearDeadRecords();
    ZSet<int> seen(ZVECTOR_DEFAULT_CAPACITY);
    InterProcessLock lock(mutex);
    for (const MarkerRecord& record : view.area->records) {
        const Marker marker = {load(record.pid), load(record.port), load(record.state),
                               view.namespaceOf(record)};
        if ((marker.state & stateMask) != 0 && isPlausible(marker) && view.mayBeOwn(record) &&
            !seen.contains(marker.pid)) {
            seen.add(marker.pid);
            out->push(marker);
        }
    }
    return true;
}

ZString MarkersOnSharedMemory::getSessionName(int pid) {
    if (view.area == nullptr || pid == 0) {
        return ZString();
    }
    InterProcessLock lock(mutex);
    const MarkerRecord* record = findMarkerByPID(view, pid, false);
    return record == nullptr ? ZString() : boundedName(*record);
}

void createMarker(int port, int state, const ZString& sessionName) {
    try {
        MarkersOnSharedMemory::ofThisMachine().createMarker(port, state, sessionName);
    } catch (const VDKRuntimeException&) {
        Logger::refusal("No marker of this JVM: the area that markers are in is full; clients find "
                        "it by its port");
        throw;
    }
}

namespace {

// A copy of a segment as it is now; null if there is none.
template <typename Segment>
Segment* copySegment(int key) {
    Segment* const copy = static_cast<Segment*>(malloc(sizeof(Segment)));
    if (copy != nullptr && !Platform::readSharedMemory(key, copy, sizeof(Segment))) {
        free(copy);
        return nullptr;
    }
    return copy;
}

} // namespace

bool readMarkers(int stateMask, ZVector<NamedMarker>* out, int areaKey, int notesKey) {
    MarkerArea* const area = copySegment<MarkerArea>(areaKey);
    if (area == nullptr) {
        return false;
    }
    MarkerNotes* const notes = copySegment<MarkerNotes>(notesKey);
    ZSet<long> seen(ZVECTOR_DEFAULT_CAPACITY);
    for (int i = 0; i < MarkerArea::RECORD_COUNT; i++) {
        const MarkerRecord& record = area->records[i];
        const bool noted = notes != nullptr && notes->notes[i].pid == record.pid;
        NamedMarker found = {
            {record.pid, record.port, record.state, noted ? notes->notes[i].pidNamespace : 0}, ""};
        const long key =
            static_cast<long>(static_cast<unsigned long>(found.marker.pidNamespace) << 32 |
                              static_cast<unsigned>(found.marker.pid));
        if ((found.marker.state & stateMask) != 0 && isPlausible(found.marker) &&
            !seen.contains(key)) {
            seen.add(key);
            memcpy(found.sessionName, record.sessionName, MarkerRecord::NAME_BYTES);
            out->push(found);
        }
    }
    free(notes);
    free(area);
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
