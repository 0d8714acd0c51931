#include "instrument/StackDepths.h"

#include "classfile/OpCodes.h"

namespace {

// Older classes may have frames that the JVM does not hold them to.
constexpr int FIRST_VERSION_OF_BINDING_FRAMES = 51;
// A byte array that reads as no frames.
const unsigned char NO_FRAMES[2] = {0, 0};

bool endsFlow(const unsigned char* code, int position) {
    switch (ourOpCodes[code[position]].kind) {
    case OPK_GOTO:
    case OPK_GOTO_W:
    case OPK_JSR:
    case OPK_JSR_W:
    case OPK_RET:
    case OPK_TABLESWITCH:
    case OPK_LOOKUPSWITCH:
    case OPK_RETURN:
    case OPK_ATHROW:
        return true;
    default:
        return code[position] == OPC_WIDE && code[position + 1] == OPC_RET;
    }
}

} // namespace

StackDepths::StackDepths(ClassFile* owner, CodeAttribute* body, StackEffects& stackEffects)
    : effects(stackEffects), code(body->getCode()), length(body->getCodeLength()), position(0),
      depth(0), raw(NO_FRAMES, sizeof(NO_FRAMES)), rawCount(0), frames(nullptr), nextIndex(1),
      frameOffset(-1), frameDepth(0) {
    if (owner->getMajorVersion() < FIRST_VERSION_OF_BINDING_FRAMES || !body->hasStackMaps()) {
        depth = UNKNOWN;
        frameOffset = length;
        return;
    }
    const StackMapTableAttribute* const table = body->getRawFrames();
    if (table != nullptr) {
        raw = table->openBody();
        rawCount = raw.readUnsignedShort();
    } else {
        frames = &body->getFrames();
    }
    nextFrame();
}

// Steps over verification types, adding up their slots.
void StackDepths::skipTypes(int count, int* slots) {
    for (int i = 0; i < count; i++) {
        const int tag = raw.readUnsignedByte();
        Logger::assertTrue(tag <= VERIFICATION_UNINITIALIZED, VDK_HERE);
        *slots += tag == VERIFICATION_LONG || tag == VERIFICATION_DOUBLE ? 2 : 1;
        if (tag == VERIFICATION_OBJECT || tag == VERIFICATION_UNINITIALIZED) {
            raw.readUnsignedShort();
        }
    }
}

// Reads the next frame's place and depth; behind the last it stands at the code's end.
void StackDepths::nextFrame() {
    frameDepth = 0;
    if (frames != nullptr) {
        if (nextIndex >= frames->getSize()) {
            frameOffset = length;
            return;
        }
        const StackMapFrame& frame = *(*frames)[nextIndex++];
        frameOffset = frame.getOffset();
        for (int i = 0; i < frame.getStack().getSize(); i++) {
            frameDepth += frame.getStack()[i].getSlots();
        }
        return;
    }
    if (rawCount == 0) {
        frameOffset = length;
        return;
    }
    rawCount--;
    const int type = raw.readUnsignedByte();
    Logger::assertTrue(type < 128 || type > 246, VDK_HERE);
    frameOffset += 1 + (type < 64 ? type : type < 128 ? type - 64 : raw.readUnsignedShort());
    int locals = 0;
    if ((type >= 64 && type < 128) || type == 247) {
        skipTypes(1, &frameDepth);
    } else if (type == 255) {
        skipTypes(raw.readUnsignedShort(), &locals);
        skipTypes(raw.readUnsignedShort(), &frameDepth);
    } else if (type > 251) {
        skipTypes(type - 251, &locals);
    }
}

void StackDepths::step() {
    const int next = nextInstruction(code, length, position);
    if (endsFlow(code, position) || !effects.canTell(code, position)) {
        depth = UNKNOWN;
    } else if (depth != UNKNOWN) {
        int pops = 0;
        int pushes = 0;
        effects.get(code, position, &pops, &pushes);
        depth = depth < pops ? UNKNOWN : depth - pops + pushes;
    }
    position = next;
}

int StackDepths::at(int wanted) {
    if (depth == UNKNOWN && frameOffset >= length) {
        return UNKNOWN;
    }
    // What lies ahead of a frame does not matter for what follows it.
    while (frameOffset <= wanted && frameOffset < length) {
        if (frameOffset >= position) {
            position = frameOffset;
            depth = frameDepth;
        }
        nextFrame();
    }
    while (position < wanted && position < length) {
        step();
    }
    return position == wanted && position < length ? depth : UNKNOWN;
}

int stackNeeded(const CodeRewrite& rewrite, int maxStack, int dups, StackDepths& depths) {
    // The entry call stands on an empty stack.
    int need = ENTRY_CODE_STACK;
    for (int i = 0; i < rewrite.getInsertionCount(); i++) {
        const CodeRewrite::Insertion& insertion = rewrite.getInsertion(i);
        const int slots = insertionStack(insertion.kind);
        if (slots == 0) {
            continue;
        }
        const int place =
            insertion.position + (isInsertedBefore(insertion.kind) ? 0 : insertion.length);
        const int depth = depths.at(place);
        const int here = (depth == StackDepths::UNKNOWN ? maxStack : depth) + slots;
        need = here > need ? here : need;
    }
    need += dups;
    return need > maxStack + dups ? need : maxStack + dups;
}
