#include "profiling/cpu/StackWalk.h"

#include "profiling/cpu/CallMemo.h"
#include "profiling/cpu/FrameAnchor.h"
#include "profiling/cpu/InterpretedMethods.h"
#include "profiling/cpu/JvmLayout.h"
#include "profiling/cpu/RawMemory.h"

#include <atomic>

namespace {

using RawMemory::WORD;
using RawMemory::wordAt;

// Words from the frame pointer of a frame of the interpreter, on x86-64 of JDK 17 to 25.
const int INTERPRETED_RETURN = 1;
const int INTERPRETED_CALLERS_STACK = -1;
const int INTERPRETED_METHOD = -3;
const int INTERPRETED_INSTRUCTION = -8;
// The same of the stub that the JVM calls Java through.
const int ENTRY_WRAPPER = -6;

// Walks that are compared: the first ones, and then one of so many.
const long FIRST_COMPARED = 64;
const long COMPARED_PERIOD = 256;
// The JVM's function errs at times, where a frame is about to be left for one.
const long LEAST_UNEQUAL = 8;
const long EQUAL_PER_UNEQUAL = 8;

std::atomic<bool> ourIsReady{false};
uintptr_t ourInterpreterLow = 0;
uintptr_t ourInterpreterHigh = 0;
uintptr_t ourEntryReturn = 0;
uintptr_t ourAnchorAt = 0; // in the wrapper of a call
int ourWrapperWords = 0;
std::atomic<long> ourWalks{0};
std::atomic<long> ourCompared{0};
std::atomic<long> ourUnequal{0};
std::atomic<bool> ourIsRefused{false};

// Null if one of them is not known.
const void* pointerIn(const void* place) {
    return place == nullptr ? nullptr
                            : RawMemory::read<const void*>(reinterpret_cast<uintptr_t>(place));
}

bool findInterpreter() {
    const void* const queue = pointerIn(JvmLayout::addressOf("AbstractInterpreter", "_code"));
    const ptrdiff_t bufferAt = JvmLayout::offsetOf("StubQueue", "_stub_buffer");
    const ptrdiff_t limitAt = JvmLayout::offsetOf("StubQueue", "_buffer_limit");
    if (queue == nullptr || bufferAt == JvmLayout::UNKNOWN || limitAt == JvmLayout::UNKNOWN) {
        return false;
    }
    const uintptr_t begin = reinterpret_cast<uintptr_t>(queue);
    const int32_t limit = RawMemory::read<int32_t>(begin + static_cast<uintptr_t>(limitAt));
    ourInterpreterLow = wordAt(begin + static_cast<uintptr_t>(bufferAt));
    ourInterpreterHigh = ourInterpreterLow + static_cast<uintptr_t>(limit > 0 ? limit : 0);
    return ourInterpreterHigh > ourInterpreterLow;
}

bool findEntry() {
    const void* const address =
        pointerIn(JvmLayout::addressOf("StubRoutines", "_call_stub_return_address"));
    const ptrdiff_t anchorAt = JvmLayout::offsetOf("JavaCallWrapper", "_anchor");
    const ptrdiff_t wrapperBytes = JvmLayout::sizeOf("JavaCallWrapper");
    if (address == nullptr || anchorAt == JvmLayout::UNKNOWN ||
        wrapperBytes == JvmLayout::UNKNOWN) {
        return false;
    }
    ourEntryReturn = reinterpret_cast<uintptr_t>(address);
    ourAnchorAt = static_cast<uintptr_t>(anchorAt);
    ourWrapperWords = static_cast<int>(static_cast<uintptr_t>(wrapperBytes) / WORD);
    return true;
}

} // namespace

bool StackWalk::prepare() {
    ourWalks = 0;
    ourCompared = 0;
    ourUnequal = 0;
    ourIsRefused = false;
    ourIsReady = InterpretedMethods::prepare() && findInterpreter() && findEntry();
    return ourIsReady;
}

void StackWalk::stop() {
    ourIsReady = false;
    InterpretedMethods::clear();
}

StackWalk::StackWalk(const ThreadTimers::Registers& interrupted,
                     const ThreadTimers::Registers& jvmNote, const StackBounds& stackBounds)
    : bounds(stackBounds), note(jvmNote), pc(interrupted.pc), stack(interrupted.stack),
      frame(interrupted.frame) {}

bool StackWalk::go(CallFrame* into, int mostFrames) {
    if (!ourIsReady || ourIsRefused) {
        return false;
    }
    frames = into;
    most = mostFrames;
    if (!startAtTop()) {
        return false;
    }
    Step step = UP;
    while (step == UP && count < most) {
        step = stepUp();
    }
    if (step == LOST || count == 0) {
        return false;
    }
    ourWalks.fetch_add(1, std::memory_order_relaxed);
    return true;
}

bool StackWalk::isOnStack(uintptr_t address, int words) const {
    return address % WORD == 0 && address >= bounds.low && address < bounds.high &&
           bounds.high - address >= static_cast<uintptr_t>(words) * WORD;
}

// To the caller's frame, which begins above all that was seen.
bool StackWalk::leave(uintptr_t above, uintptr_t newPc, uintptr_t newFrame) {
    if (above <= stack || !isOnStack(above, 1)) {
        return false;
    }
    stack = above;
    pc = newPc;
    frame = newFrame;
    return true;
}

bool StackWalk::startAtTop() {
    CompiledCode::Frame top = CompiledCode::interruptedAt(pc, frames, most);
    if (top.kind != CompiledCode::METHOD && note.stack != 0) {
        return goTo(note);
    }
    isFromCode = top.kind == CompiledCode::METHOD || isInterpreter(pc);
    if (isInterpreter(pc)) {
        // Where a frame is entered or left the frame pointer is the caller's.
        return stepInterpreted() == UP;
    }
    if (top.kind != CompiledCode::METHOD) {
        return top.kind == CompiledCode::STUB && leaveStub(findStubsWords()) == UP;
    }
    count = top.count;
    if (count == 0 || top.words == 0 || !isOnStack(stack, top.words + 1)) {
        return false;
    }
    switch (top.state) {
    case CodeShape::NOTHING:
        return leave(stack + WORD, wordAt(stack), frame);
    case CodeShape::FRAME_POINTER:
        return leave(stack + 2 * WORD, wordAt(stack, 1), wordAt(stack));
    default:
        top.words += countPushed(top.words);
        return stepBehind(top) == UP;
    }
}

// Words that code has pushed for a moment below its frame, as comparisons of strings do: by where
// a return address stands. 0 if there is none.
int StackWalk::countPushed(int words) const {
    const int MOST_PUSHED = 2;
    for (int pushed = 0; pushed <= MOST_PUSHED && isOnStack(stack, words + pushed + 1); pushed++) {
        if (isReturn(wordAt(stack, words + pushed - 1))) {
            return pushed;
        }
    }
    return 0;
}

bool StackWalk::isReturn(uintptr_t address) {
    const int MOST_INLINED = 64;
    CallFrame unused[MOST_INLINED];
    return isInterpreter(address) || address == ourEntryReturn ||
           (CompiledCode::mayBeCode(address) &&
            CallMemo::callAt(address, unused, MOST_INLINED).count > 0);
}

// To the last frame of Java below native code or the JVM's.
bool StackWalk::goTo(const ThreadTimers::Registers& last) {
    if (last.stack < stack || !isOnStack(last.stack, 1) || !isOnStack(last.stack - WORD, 1)) {
        return false;
    }
    stack = last.stack;
    pc = last.pc == 0 ? wordAt(last.stack, -1) : last.pc;
    frame = last.frame;
    isBelowNative = true;
    return true;
}

bool StackWalk::isInterpreter(uintptr_t address) {
    return address >= ourInterpreterLow && address < ourInterpreterHigh;
}

StackWalk::Step StackWalk::stepUp() {
    if (isInterpreter(pc)) {
        return stepInterpreted();
    }
    return pc == ourEntryReturn ? stepEntry() : stepCompiled();
}

StackWalk::Step StackWalk::stepInterpreted() {
    // The words around the frame pointer that are read.
    const uintptr_t lowest = frame - static_cast<uintptr_t>(-INTERPRETED_INSTRUCTION) * WORD;
    if (frame < stack || !isOnStack(lowest, 2 - INTERPRETED_INSTRUCTION)) {
        return LOST;
    }
    const uintptr_t method = wordAt(frame, INTERPRETED_METHOD);
    CallFrame& written = frames[count];
    written.method =
        InterpretedMethods::find(method, wordAt(frame, INTERPRETED_INSTRUCTION), &written.position);
    if (written.method == nullptr) {
        isUnknown = true;
        return LOST;
    }
    count++;
    isBelowNative = false;
    const uintptr_t callersStack = wordAt(frame, INTERPRETED_CALLERS_STACK);
    const bool isLeft = callersStack > frame + WORD &&
                        leave(callersStack, wordAt(frame, INTERPRETED_RETURN), wordAt(frame));
    return isLeft ? UP : LOST;
}

// The JVM called Java from native code or its own: its note leads to the Java frame below that.
StackWalk::Step StackWalk::stepEntry() {
    const uintptr_t place = frame - static_cast<uintptr_t>(-ENTRY_WRAPPER) * WORD;
    if (frame < stack || !isOnStack(place, 1 - ENTRY_WRAPPER)) {
        return LOST;
    }
    const uintptr_t wrapper = wordAt(place);
    if (!isOnStack(wrapper, ourWrapperWords)) {
        return LOST;
    }
    const ThreadTimers::Registers last = FrameAnchor::readAt(wrapper + ourAnchorAt);
    if (last.stack == 0) {
        return END;
    }
    return last.stack > frame && goTo(last) ? UP : LOST;
}

StackWalk::Step StackWalk::stepCompiled() {
    CallFrame* const into = frames + count;
    const CompiledCode::Frame found = isLeafCall
                                          ? CompiledCode::interruptedAt(pc, into, most - count)
                                          : CallMemo::callAt(pc, into, most - count);
    const bool wasBelowNative = isBelowNative;
    isBelowNative = false;
    isLeafCall = false;
    switch (found.kind) {
    case CompiledCode::METHOD:
        count += found.count;
        return found.count == 0 ? LOST : stepBehind(found);
    case CompiledCode::NATIVE_METHOD:
        // Only what mounts a virtual thread is returned to.
        isMounted = !wasBelowNative;
        count += isMounted ? 0 : found.count;
        return isMounted ? END : stepBehind(found);
    case CompiledCode::STUB:
        return wasBelowNative ? leaveStub(found.words > 0 ? found.words : findStubsWords()) : LOST;
    default:
        return LOST;
    }
}

// Out of a whole frame of the size that its code tells.
StackWalk::Step StackWalk::stepBehind(const CompiledCode::Frame& found) {
    if (found.words < 2 || !isOnStack(stack, found.words + 1)) {
        return LOST;
    }
    return leave(stack + static_cast<uintptr_t>(found.words) * WORD, wordAt(stack, found.words - 1),
                 wordAt(stack, found.words - 2))
               ? UP
               : LOST;
}

// Words from the stack pointer up to what a call of this stub left as the return address, with it;
// 0 if there is none near.
int StackWalk::findStubsWords() const {
    const int MOST_STUB_WORDS = 128;
    for (int i = 0; i < MOST_STUB_WORDS && isOnStack(stack, i + 1); i++) {
        const uintptr_t back = wordAt(stack, i);
        if (CompiledCode::mayBeCode(back) && CompiledCode::isCallOfStub(back, pc)) {
            return i + 1;
        }
    }
    return 0;
}

// Stubs that have frames save the frame pointer below the return address.
StackWalk::Step StackWalk::leaveStub(int words) {
    if (words == 0 || !isOnStack(stack, words + 1)) {
        return LOST;
    }
    const uintptr_t back = wordAt(stack, words - 1);
    isLeafCall = CompiledCode::isCallOfStub(back, pc);
    return leave(stack + static_cast<uintptr_t>(words) * WORD, back,
                 words == 1 ? frame : wordAt(stack, words - 2))
               ? UP
               : LOST;
}

bool StackWalk::isToBeCompared() const {
    const long walks = ourWalks.load(std::memory_order_relaxed);
    // The JVM's frames have to find room behind.
    return isFromCode && count <= most / 2 &&
           (walks <= FIRST_COMPARED || walks % COMPARED_PERIOD == 0);
}

bool StackWalk::isEqual(const CallFrame* own, const CallFrame* theirs, int theirCount) const {
    bool isSame = isMounted ? theirCount >= count : theirCount == count;
    for (int i = 0; isSame && i < count; i++) {
        isSame = own[i].method == theirs[i].method &&
                 (own[i].position == theirs[i].position || own[i].position < 0);
    }
    const long compared = ourCompared.fetch_add(1) + 1;
    if (!isSame && ourUnequal.fetch_add(1) + 1 >= LEAST_UNEQUAL &&
        ourUnequal * EQUAL_PER_UNEQUAL > compared) {
        ourIsRefused = true;
    }
    return isSame;
}

StackWalk::Counts StackWalk::getCounts() {
    return {ourWalks, ourCompared, ourUnequal, ourIsRefused};
}
