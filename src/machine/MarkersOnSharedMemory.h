#pragma once

#include "core/ground/ZString.h"
#include "machine/InterProcessMutex.h"

#include <stddef.h>

// The marker area: one System V segment in which every profiled JVM of the machine leaves its port
// and a name, so that a client finds it. The layout is shared with every other process and version
// that takes part: DO NOT CHANGE.
//
// The segment is writable by everybody, so all that is read from it is hostile input: texts are
// bounded, numbers are checked before they are shown, nothing in it is used as a pointer or index.
struct MarkerRecord {
    static const int NAME_BYTES = 47;

    int port;
    int state; // bit 0: listening
    char sessionName[NAME_BYTES];
    char zero;
    int pid; // 0 means a free slot
};

static_assert(sizeof(MarkerRecord) == 60, "layout shared between processes");
static_assert(offsetof(MarkerRecord, sessionName) == 8 && offsetof(MarkerRecord, pid) == 56,
              "layout shared between processes");

struct MarkerArea {
    static const int RECORD_COUNT = 17929;

    MarkerRecord records[RECORD_COUNT];
};

static_assert(sizeof(MarkerArea) == 0x106a1c, "layout shared between processes");

// The record of the process. Without one: null, or with `create` a free record that is now the
// process's. A full area is an internal error. Caller holds the marker mutex.
MarkerRecord* findMarkerByPID(MarkerArea* area, int pid, bool create);

// What a client may be shown of one record.
struct Marker {
    int pid;
    int port;
    int state;
};

// MarkersOnSharedMemory: a marker area, attached at construction. Every operation takes
// the marker mutex as far as it can be had in time, and runs without it otherwise: two writers at
// once cost a lost record at worst.
class MarkersOnSharedMemory {
public:
    static const int AREA_KEY = 0x42341490;

    explicit MarkersOnSharedMemory(int areaKey = AREA_KEY,
                                   int mutexKey = InterProcessMutex::MARKER_KEY);
    MarkersOnSharedMemory(const MarkersOnSharedMemory&) = delete;
    MarkersOnSharedMemory& operator=(const MarkersOnSharedMemory&) = delete;

    // The area of this machine, attached at the first use and never detached.
    static MarkersOnSharedMemory& ofThisMachine();

    bool isAttached() const { return area != nullptr; }

    // Clears the records of processes that are gone.
    void clearDeadRecords();

    // Writes the record of this process. sessionName may be quoted (see unquote); a long one is cut
    // and ends in "...".
    void createMarker(int port, int state, const ZString& sessionName);

    // Clears dead records, then gives the records whose state has a bit of stateMask, each process
    // once. False if the area is not attached.
    bool fillMarked(int stateMask, ZVector<Marker>* out);

    // The session name of the record; empty if the process has none.
    ZString getSessionName(int pid);

    // For tests that fill the area by hand.
    MarkerArea* getArea() { return area; }

private:
    MarkerArea* area;
    InterProcessMutex mutex;
};

// Writes the marker of this process into the machine's area. Without shared memory the process runs
// unmarked.
void createMarker(int port, int state, const ZString& sessionName);

// Copies of the records whose state has a bit of stateMask, each process once, as a client reads
// them: no lock is waited for, which any user could hold, and nothing is made or cleared, as the
// process ids may be those of another namespace. False if there is no area.
bool readMarkers(int stateMask, ZVector<MarkerRecord>* out,
                 int areaKey = MarkersOnSharedMemory::AREA_KEY);

// Agents of earlier versions: the process ids whose marker has state bit 0 in the older area. The
// records of dead processes are cleared. False when no such area exists.
bool fillMarked8(ZVector<int>* pids);
