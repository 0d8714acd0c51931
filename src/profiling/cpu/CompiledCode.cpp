// Pieces of code stand in a hash table by the granules of addresses that they touch. Writers take a
// lock. Readers follow lists whose links are changed one at a time: one that is on a piece as it is
// taken out still finds its way, for the memory lives on until no handler is at work.
//
// The JVM tells the stack of inlined calls for many addresses of a piece. Stacks share their outer
// calls, and neighbours often have the same place in the bytecode; so a piece has a tree of calls,
// and for each run of addresses the call that it is in and the place there.
#include "profiling/cpu/CompiledCode.h"

#include "core/ground/ZLock.h"
#include "core/ground/ZVector.h"
#include "platform/ThreadTimers.h"

#include <atomic>
#include <cstring>
#include <jvmticmlr.h>

namespace {

const int GRANULE_BITS = 10;
const uintptr_t BUCKETS = 1 << 15;
const int NO_CALL = -1;
// Beyond that inlined calls are not told apart.
const int MOST_CALLS = 2000;
const uint8_t CALL_RELATIVE = 0xe8;
const int NO_POSITION = UINT16_MAX; // no method is that long

struct Call {
    jmethodID method;
    int caller;
    int position; // in the caller's bytecode
};

// Addresses behind those of the run before, up to and with this one.
struct Run {
    uint32_t last;
    uint16_t position; // in the bytecode of the innermost method
    uint16_t call : 15;
    uint16_t isReturn : 1; // a call comes back to the last one
};
static_assert(MOST_CALLS < 1 << 15, "calls are numbered in a run");
static_assert(sizeof(Run) == 8, "pieces have hundreds of them");

struct Piece;

struct Link {
    Piece* piece;
    uintptr_t granule;
    std::atomic<Link*> next;
};

struct Piece {
    Piece(jmethodID id, CompiledCode::Kind codeKind, uintptr_t from, uintptr_t to)
        : method(id), kind(codeKind), start(from), end(to),
          shape(CodeShape::read(code(), to - from)) {}
    ~Piece() {
        delete[] links;
        delete[] calls;
        delete[] runs;
    }
    Piece(const Piece&) = delete;
    Piece& operator=(const Piece&) = delete;

    const uint8_t* code() const { return reinterpret_cast<const uint8_t*>(start); }

    const jmethodID method; // null of a stub
    const CompiledCode::Kind kind;
    const uintptr_t start;
    const uintptr_t end;
    const CodeShape shape;
    bool isWhole = true; // all inlined calls are told apart
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
std::atomic<unsigned> ourChanges{0};

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

// Whether the instruction before is a call: relative, or by a register or memory with 0 to 4 bytes
// of an offset.
bool isBehindCall(const uint8_t* code, uint32_t offset) {
    const uint8_t CALL_INDIRECT = 0xff;
    const uint32_t INDIRECT_LENGTHS[] = {2, 3, 4, 6, 7};
    if (offset >= 5 && code[offset - 5] == CALL_RELATIVE) {
        return true;
    }
    for (const uint32_t length : INDIRECT_LENGTHS) {
        if (offset >= length && code[offset - length] == CALL_INDIRECT &&
            (code[offset - length + 1] >> 3 & 7) == 2) {
            return true;
        }
    }
    return false;
}

// Builds the tree of calls and the runs of a piece.
class InlinedCalls {
public:
    explicit InlinedCalls(Piece* owner) : piece(owner) {
        calls.push({owner->method, NO_CALL, NO_POSITION});
    }

    void add(const PCStackInfo& info) {
        const uintptr_t pc = reinterpret_cast<uintptr_t>(info.pc);
        if (pc < piece->start || pc > piece->end || pc - piece->start > UINT32_MAX ||
            info.numstackframes < 1) {
            return;
        }
        int call = 0; // the outermost, which is the piece's own method
        for (jint i = info.numstackframes - 2; i >= 0; i--) {
            call = childOf(call, info.methods[i], positionOf(info, i + 1));
        }
        const uint32_t offset = static_cast<uint32_t>(pc - piece->start);
        if (!runs.isEmpty() && runs.peek().last >= offset) {
            return; // not in order: told before
        }
        const Run run = {offset, positionOf(info, 0), static_cast<uint16_t>(call),
                         isBehindCall(piece->code(), offset)};
        if (!runs.isEmpty() && runs.peek().call == run.call &&
            runs.peek().position == run.position && !runs.peek().isReturn && !run.isReturn) {
            runs.peek().last = offset;
        } else {
            runs.push(run);
        }
    }

    void finish() {
        piece->calls = copyOf(calls);
        piece->runs = copyOf(runs);
        piece->runCount = runs.getSize();
    }

private:
    static uint16_t positionOf(const PCStackInfo& info, jint i) {
        const jint position = info.bcis == nullptr ? NO_POSITION : info.bcis[i];
        return static_cast<uint16_t>(position < 0 || position > NO_POSITION ? NO_POSITION
                                                                            : position);
    }

    int childOf(int caller, jmethodID method, int position) {
        for (int i = calls.getSize() - 1; i > caller; i--) {
            if (calls[i].caller == caller && calls[i].method == method &&
                calls[i].position == position) {
                return i;
            }
        }
        if (calls.getSize() >= MOST_CALLS) {
            piece->isWhole = false;
            return caller;
        }
        calls.push({method, caller, position});
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

void insert(Piece* piece) {
    LockHolder lock(ourCodeLock);
    widen(piece->start, piece->end);
    link(piece);
    ourChanges++;
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

const Piece* findPiece(uintptr_t pc) {
    const uintptr_t granule = pc >> GRANULE_BITS;
    for (const Link* link = bucketOf(granule).load(); link != nullptr; link = link->next.load()) {
        if (link->granule == granule && pc >= link->piece->start && pc < link->piece->end) {
            return link->piece;
        }
    }
    return nullptr;
}

const Piece* findMethod(uintptr_t pc) {
    const Piece* const piece = findPiece(pc);
    return piece == nullptr || piece->kind == CompiledCode::STUB ? nullptr : piece;
}

// The run that ends at an offset or goes on there; null behind the last one. What the JVM tells of
// an address holds for the instructions before it.
const Run* runAt(const Piece& piece, uint32_t offset) {
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
    return low < piece.runCount ? &piece.runs[low] : nullptr;
}

CompiledCode::Frame startFrame(const Piece* piece) {
    CompiledCode::Frame frame;
    if (piece != nullptr && piece->isWhole) {
        frame.kind = piece->kind;
        frame.words = piece->shape.words;
    }
    return frame;
}

// Those behind the last run have no calls inlined.
int innermostAt(const Piece& piece, uint32_t offset) {
    const Run* const run = runAt(piece, offset);
    return run == nullptr ? 0 : run->call;
}

int writeFrames(const Piece& piece, const Run& run, CallFrame* frames, int most) {
    int count = 0;
    int position = run.position;
    for (int call = run.call; call != NO_CALL; call = piece.calls[call].caller) {
        if (count == most) {
            return 0;
        }
        frames[count++] = {position == NO_POSITION ? -1 : position, piece.calls[call].method};
        position = piece.calls[call].position;
    }
    return count;
}

} // namespace

void CompiledCode::add(jmethodID method, bool isNative, const void* start, jint bytes,
                       const void* compileInfo) {
    const uintptr_t from = reinterpret_cast<uintptr_t>(start);
    if (method == nullptr || bytes <= 0) {
        return;
    }
    Piece* const piece = new Piece(method, isNative ? NATIVE_METHOD : METHOD, from,
                                   from + static_cast<uintptr_t>(bytes));
    readInlinedCalls(piece, compileInfo);
    insert(piece);
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
        ourChanges++;
    }
}

void CompiledCode::addOther(const void* start, jint bytes) {
    const uintptr_t from = reinterpret_cast<uintptr_t>(start);
    if (bytes > 0) {
        insert(new Piece(nullptr, STUB, from, from + static_cast<uintptr_t>(bytes)));
    }
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
    ourChanges++;
    freeGonePieces();
}

void CompiledCode::collect() {
    LockHolder lock(ourCodeLock);
    if (!ourGonePieces.isEmpty()) {
        freeGonePieces();
    }
}

int CompiledCode::methodsAt(uintptr_t pc, jmethodID* methods, int most) {
    const Piece* const piece = findMethod(pc);
    int count = 0;
    if (piece == nullptr) {
        return 0;
    }
    for (int call = innermostAt(*piece, static_cast<uint32_t>(pc - piece->start));
         call != NO_CALL && count < most; call = piece->calls[call].caller) {
        methods[count++] = piece->calls[call].method;
    }
    return count;
}

bool CompiledCode::isWithinMethod(uintptr_t pc) {
    const Piece* const piece = findMethod(pc);
    return piece != nullptr && pc > piece->start;
}

bool CompiledCode::mayBeCode(uintptr_t pc) {
    return pc >= ourLowest && pc < ourHighest;
}

CompiledCode::Frame CompiledCode::callAt(uintptr_t pc, CallFrame* frames, int most) {
    const Piece* const piece = findPiece(pc);
    Frame frame = startFrame(piece);
    if (frame.kind == NATIVE_METHOD && most > 0) {
        frames[0] = {-1, piece->method};
        frame.count = 1;
    } else if (frame.kind == METHOD) {
        const uint32_t offset = static_cast<uint32_t>(pc - piece->start);
        const Run* const run = runAt(*piece, offset);
        const bool isKnown = run != nullptr && run->last == offset && run->isReturn;
        frame.count = isKnown ? writeFrames(*piece, *run, frames, most) : 0;
    }
    return frame;
}

CompiledCode::Frame CompiledCode::interruptedAt(uintptr_t pc, CallFrame* frames, int most) {
    const Piece* const piece = findPiece(pc);
    Frame frame = startFrame(piece);
    if (frame.kind == METHOD) {
        const uint32_t offset = static_cast<uint32_t>(pc - piece->start);
        const Run* const run = runAt(*piece, offset);
        frame.state = piece->shape.stateAt(piece->code(), piece->end - piece->start, offset);
        frame.count = run == nullptr ? 0 : writeFrames(*piece, *run, frames, most);
    }
    return frame;
}

bool CompiledCode::isCallOfStub(uintptr_t pc, uintptr_t inStub) {
    const uint32_t CALL_BYTES = 5;
    const Piece* const piece = findMethod(pc);
    const Piece* const stub = findPiece(inStub);
    if (piece == nullptr || stub == nullptr || stub->kind != STUB ||
        pc - piece->start < CALL_BYTES ||
        *reinterpret_cast<const uint8_t*>(pc - CALL_BYTES) != CALL_RELATIVE) {
        return false;
    }
    int32_t distance = 0;
    memcpy(&distance, reinterpret_cast<const void*>(pc - sizeof(distance)), sizeof(distance));
    const uintptr_t called = pc + static_cast<uintptr_t>(static_cast<intptr_t>(distance));
    return called >= stub->start && called <= inStub;
}

unsigned CompiledCode::getChanges() {
    return ourChanges;
}
