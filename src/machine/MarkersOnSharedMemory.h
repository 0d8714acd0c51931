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

// Beside the area, in a segment of its own: which pid namespace the id in a record is of.
// Containers may share one area, and their ids say nothing to each other. Agents of earlier
// versions write no note, so one counts only while it names the record's process.
struct MarkerNote {
    int pid;
    unsigned pidNamespace; // see Platform::pidNamespace
};

struct MarkerNotes {
    MarkerNote notes[MarkerArea::RECORD_COUNT];
};

static_assert(sizeof(MarkerNotes) == 0x23048, "layout shared between processes");

// Both segments as one process of a pid namespace sees them.
struct MarkerView {
    MarkerArea* area;
    MarkerNotes* notes = nullptr; // null: all ids count as of this process's namespace
    unsigned pidNamespace = 0;

    unsigned namespaceOf(const MarkerRecord& record) const; // 0 where nothing tells
    bool mayBeOwn(const MarkerRecord& record) const;
};

// The record of the process, which is of the view's namespace. Without one: null, or with `create`
// a free record that is now the process's; in a full area one of another namespace, as nobody
// clears those of a container that has ended but who could see into it. An area that is full of
// others is an internal error. Caller holds the marker mutex.
MarkerRecord* findMarkerByPID(const MarkerView& view, int pid, bool create);

// What a client may be shown of one record.
struct Marker {
    int pid;
    int port;
    int state;
    unsigned pidNamespace; // 0 if it is not known
};

// MarkersOnSharedMemory: a marker area, attached at construction. Every operation takes
// the marker mutex as far as it can be had in time, and runs without it otherwise: two writers at
// once cost a lost record at worst.
class MarkersOnSharedMemory {
public:
    static const int AREA_KEY = 0x42341490;
    static const int NOTES_KEY = 0x42341493;

    explicit MarkersOnSharedMemory(int areaKey = AREA_KEY,
                                   int mutexKey = InterProcessMutex::MARKER_KEY,
                                   int notesKey = NOTES_KEY);
    MarkersOnSharedMemory(const MarkersOnSharedMemory&) = delete;
    MarkersOnSharedMemory& operator=(const MarkersOnSharedMemory&) = delete;

    // The area of this machine, attached at the first use and never detached.
    static MarkersOnSharedMemory& ofThisMachine();

    bool isAttached() const { return view.area != nullptr; }

    // Clears the records of processes that are gone. What lives in another pid namespace cannot be
    // told from here, and is left alone.
    void clearDeadRecords();

    // Writes the record of this process. sessionName may be quoted (see unquote); a long one is cut
    // and ends in "...".
    void createMarker(int port, int state, const ZString& sessionName);

    // Clears dead records, then gives the records whose state has a bit of stateMask, each process
    // once and none of another pid namespace. False if the area is not attached.
    bool fillMarked(int stateMask, ZVector<Marker>* out);

    // The session name of the record; empty if the process has none.
    ZString getSessionName(int pid);

    // For tests that fill the segments by hand.
    const MarkerView& getView() { return view; }

private:
    MarkerView view;
    InterProcessMutex mutex;
};

// Writes the marker of this process into the machine's area. Without shared memory the process runs
// unmarked.
void createMarker(int port, int state, const ZString& sessionName);

// A marker with the name that the process gave itself.
struct NamedMarker {
    Marker marker;
    char sessionName[MarkerRecord::NAME_BYTES + 1];
};

// The records whose state has a bit of stateMask, each process of a pid namespace once, as a client
// reads them: no lock is waited for, which any user could hold, and nothing is made or cleared, as
// the process ids may be those of another namespace. False if there is no area.
bool readMarkers(int stateMask, ZVector<NamedMarker>* out,
                 int areaKey = MarkersOnSharedMemory::AREA_KEY,
                 int notesKey = MarkersOnSharedMemory::NOTES_KEY);

// Agents of earlier versions: the process ids whose marker has state bit 0 in the older area. The
// records of dead processes are cleared. False when no such area exists.
bool fillMarked8(ZVector<int>* pids);
