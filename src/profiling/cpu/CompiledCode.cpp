// Pieces of code stand in a hash table by the granules of addresses that they touch. Writers take a
// lock. Readers follow lists whose links are changed one at a time: one that is on a piece as it is
// taken out still finds its way, for the memory lives on until no handler is at work.
//
// The JVM tells the stack of inlined calls for many addresses of a piece. Most neighbours have the
// same, and stacks share their outer calls; so a piece has a tree of calls, and for each run of
// addresses the call that it is in.
#include "profiling/cpu/CompiledCode.h"

#include "core/ground/ZLock.h"
#include "core/ground/ZVector.h"
#include "platform/ThreadTimers.h"

#include <atomic>
#include <jvmticmlr.h>

namespace {

const int GRANULE_BITS = 10;
const uintptr_t BUCKETS = 1 << 15;
const int NO_CALL = -1;
// Beyond that inlined calls are not told apart.
const int MOST_CALLS = 2000;

struct Call {
    jmethodID method;
    int caller;
};

// Addresses behind those of the run before, up to and with this one.
struct Run {
    uint32_t last;
    int call;
};

struct Piece;

struct Link {
    Piece* piece;
    uintptr_t granule;
    std::atomic<Link*> next;
};

struct Piece {
    Piece(jmethodID id, uintptr_t from, uintptr_t to) : method(id), start(from), end(to) {}
    ~Piece() {
        delete[] links;
        delete[] calls;
        delete[] runs;
    }
    Piece(const Piece&) = delete;
    Piece& operator=(const Piece&) = delete;

    const jmethodID method;
    const uintptr_t start;
    const uintptr_t end;
    Link* links = nullptr;
    int linkCount = 0;
    Call* calls = nullptr;
    Run* runs = nullptr;
    int runCount = 0;
    Piece* previousPiece = nullptr;
    Piece* nextPiece = nullptr;
};

ZLock& ourCodeLock = *new ZLock("CompiledCodeLock");
std::atomic<Link*> ourBuckets[BUCKETS];
Piece* ourPieces = nullptr;
ZVector<Piece*>& ourGonePieces = *new ZVector<Piece*>();
std::atomic<uintptr_t> ourLowest{UINTPTR_MAX};
std::atomic<uintptr_t> ourHighest{0};

std::atomic<Link*>& bucketOf(uintptr_t granule) {
    return ourBuckets[(granule ^ (granule >> 15)) % BUCKETS];
}

template <typename T>
T* copyOf(const ZVector<T>& vector) {
    T* const copy = new T[static_cast<size_t>(vector.getSize())];
    for (int i = 0; i < vector.getSize(); i++) {
        copy[i] = vector[i];
    }
    return copy;
}

// Builds the tree of calls and the runs of a piece.
class InlinedCalls {
public:
    explicit InlinedCalls(Piece* owner) : piece(owner) { calls.push({owner->method, NO_CALL}); }

    void add(const PCStackInfo& info) {
        const uintptr_t pc = reinterpret_cast<uintptr_t>(info.pc);
        if (pc < piece->start || pc - piece->start > UINT32_MAX || info.numstackframes < 1) {
            return;
        }
        int call = 0; // the outermost, which is the piece's own method
        for (jint i = info.numstackframes - 2; i >= 0; i--) {
            call = childOf(call, info.methods[i]);
        }
        const uint32_t offset = static_cast<uint32_t>(pc - piece->start);
        if (!runs.isEmpty() && runs.peek().last >= offset) {
            return; // not in order: told before
        }
        if (!runs.isEmpty() && runs.peek().call == call) {
            runs.peek().last = offset;
        } else {
            runs.push({offset, call});
        }
    }

    void finish() {
        piece->calls = copyOf(calls);
        piece->runs = copyOf(runs);
        piece->runCount = runs.getSize();
    }

private:
    int childOf(int caller, jmethodID method) {
        for (int i = calls.getSize() - 1; i > caller; i--) {
            if (calls[i].caller == caller && calls[i].method == method) {
                return i;
            }
        }
        if (calls.getSize() >= MOST_CALLS) {
            return caller;
        }
        calls.push({method, caller});
        return calls.getSize() - 1;
    }

    Piece* piece;
    ZVector<Call> calls;
    ZVector<Run> runs;
};

void readInlinedCalls(Piece* piece, const void* compileInfo) {
    InlinedCalls inlined(piece);
    for (auto* header = static_cast<const jvmtiCompiledMethodLoadRecordHeader*>(compileInfo);
         header != nullptr; header = header->next) {
        if (header->kind != JVMTI_CMLR_INLINE_INFO) {
            continue;
        }
        const auto* const record =
            reinterpret_cast<const jvmtiCompiledMethodLoadInlineRecord*>(header);
        for (jint i = 0; i < record->numpcs; i++) {
            inlined.add(record->pcinfo[i]);
        }
    }
    inlined.finish();
}

void widen(uintptr_t start, uintptr_t end) {
    if (start < ourLowest) {
        ourLowest = start;
    }
    if (end > ourHighest) {
        ourHighest = end;
    }
}

void link(Piece* piece) {
    const uintptr_t first = piece->start >> GRANULE_BITS;
    const uintptr_t last = (piece->end - 1) >> GRANULE_BITS;
    piece->linkCount = static_cast<int>(last - first + 1);
    piece->links = new Link[last - first + 1];
    for (uintptr_t granule = first; granule <= last; granule++) {
        Link& link = piece->links[granule - first];
        std::atomic<Link*>& bucket = bucketOf(granule);
        link.piece = piece;
        link.granule = granule;
        link.next = bucket.load();
        bucket = &link;
    }
    piece->nextPiece = ourPieces;
    if (ourPieces != nullptr) {
        ourPieces->previousPiece = piece;
    }
    ourPieces = piece;
}

void unlink(Piece* piece) {
    for (int i = 0; i < piece->linkCount; i++) {
        Link* const gone = &piece->links[i];
        std::atomic<Link*>* place = &bucketOf(gone->granule);
        while (place->load() != gone && place->load() != nullptr) {
            place = &place->load()->next;
        }
        if (place->load() == gone) {
            *place = gone->next.load();
        }
    }
    if (piece->nextPiece != nullptr) {
        piece->nextPiece->previousPiece = piece->previousPiece;
    }
    (piece->previousPiece == nullptr ? ourPieces : piece->previousPiece->nextPiece) =
        piece->nextPiece;
    ourGonePieces.push(piece);
}

// Caller holds the lock.
void freeGonePieces() {
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (ThreadTimers::handlersAtWork() != 0) {
        return; // next time
    }
    for (int i = 0; i < ourGonePieces.getSize(); i++) {
        delete ourGonePieces[i];
    }
    ourGonePieces.clear();
}

const Piece* find(uintptr_t pc) {
    const uintptr_t granule = pc >> GRANULE_BITS;
    for (const Link* link = bucketOf(granule).load(); link != nullptr; link = link->next.load()) {
        if (link->granule == granule && pc >= link->piece->start && pc < link->piece->end) {
            return link->piece;
        }
    }
    return nullptr;
}

// The innermost call that ends at an offset or goes on there. What the JVM tells of an address
// holds for the instructions before it, and those behind the last one have no calls inlined.
int callAt(const Piece& piece, uint32_t offset) {
    int low = 0;
    int high = piece.runCount;
    while (low < high) {
        const int middle = (low + high) / 2;
        if (piece.runs[middle].last >= offset) {
            high = middle;
        } else {
            low = middle + 1;
        }
    }
    return low < piece.runCount ? piece.runs[low].call : 0;
}

} // namespace

void CompiledCode::add(jmethodID method, const void* start, jint bytes, const void* compileInfo) {
    const uintptr_t from = reinterpret_cast<uintptr_t>(start);
    if (method == nullptr || bytes <= 0) {
        return;
    }
    Piece* const piece = new Piece(method, from, from + static_cast<uintptr_t>(bytes));
    readInlinedCalls(piece, compileInfo);
    LockHolder lock(ourCodeLock);
    widen(piece->start, piece->end);
    link(piece);
}

void CompiledCode::remove(jmethodID method, const void* start) {
    const uintptr_t from = reinterpret_cast<uintptr_t>(start);
    LockHolder lock(ourCodeLock);
    Piece* found = nullptr;
    for (const Link* link = bucketOf(from >> GRANULE_BITS).load(); link != nullptr;
         link = link->next.load()) {
        // The oldest: the JVM may tell late, when other code has taken the place.
        if (link->piece->start == from && link->piece->method == method) {
            found = link->piece;
        }
    }
    if (found != nullptr) {
        unlink(found);
    }
}

void CompiledCode::addOther(const void* start, jint bytes) {
    const uintptr_t from = reinterpret_cast<uintptr_t>(start);
    LockHolder lock(ourCodeLock);
    widen(from, from + static_cast<uintptr_t>(bytes > 0 ? bytes : 0));
}

void CompiledCode::clear() {
    LockHolder lock(ourCodeLock);
    for (std::atomic<Link*>& bucket : ourBuckets) {
        bucket = nullptr;
    }
    while (ourPieces != nullptr) {
        Piece* const piece = ourPieces;
        ourPieces = piece->nextPiece;
        ourGonePieces.push(piece);
    }
    freeGonePieces();
}

void CompiledCode::collect() {
    LockHolder lock(ourCodeLock);
    if (!ourGonePieces.isEmpty()) {
        freeGonePieces();
    }
}

int CompiledCode::methodsAt(uintptr_t pc, jmethodID* methods, int most) {
    const Piece* const piece = find(pc);
    int count = 0;
    if (piece == nullptr) {
        return 0;
    }
    for (int call = callAt(*piece, static_cast<uint32_t>(pc - piece->start));
         call != NO_CALL && count < most; call = piece->calls[call].caller) {
        methods[count++] = piece->calls[call].method;
    }
    return count;
}

bool CompiledCode::isWithinMethod(uintptr_t pc) {
    const Piece* const piece = find(pc);
    return piece != nullptr && pc > piece->start;
}

bool CompiledCode::mayBeCode(uintptr_t pc) {
    return pc >= ourLowest && pc < ourHighest;
}
