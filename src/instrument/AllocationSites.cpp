#include "instrument/AllocationSites.h"

#include "classfile/OpCodes.h"

namespace {
bool isMember(int tag) {
    return (tag >= CONSTANT_FIELD_REF && tag <= CONSTANT_INTERFACE_METHOD_REF) ||
           tag == CONSTANT_INVOKE_DYNAMIC;
}
} // namespace

StackEffects::StackEffects(ConstantPool& constantPool)
    : pool(constantPool), effects(nullptr), count(0) {}

const StackEffects::Effect& StackEffects::effectOf(int index) {
    if (effects == nullptr) {
        count = pool.getSize();
        effects = pool.getArena().allocateArray<Effect>(count);
        memset(static_cast<void*>(effects), 0xff, sizeof(Effect) * static_cast<size_t>(count));
    }
    // The pool may have grown since; the class's own code names nothing of that.
    Logger::assertTrue(index < count, VDK_HERE);
    Effect& effect = effects[index];
    if (effect.parameters >= 0) {
        return effect;
    }
    const ConstantPool::Content entry = pool.getContent(index);
    const int tag = entry.tag;
    Logger::assertTrue(isMember(tag), VDK_HERE);
    const ConstantPool::Content nameAndType = pool.getContent(entry.second);
    Logger::assertEquals(nameAndType.tag, CONSTANT_NAME_AND_TYPE, VDK_HERE);
    const Utf8View descriptor = pool.getUtf8(nameAndType.second);
    if (tag == CONSTANT_FIELD_REF) {
        effect.parameters = 0;
        effect.result = static_cast<short>(DescriptorTypes::slotsOf(descriptor.charAt(0)));
    } else {
        effect.result = static_cast<short>(DescriptorTypes::returnSlots(descriptor));
        effect.parameters = static_cast<short>(DescriptorTypes::parameterSlots(descriptor));
    }
    return effect;
}

bool StackEffects::canTell(const unsigned char* code, int position) const {
    const OpCodeKind kind = ourOpCodes[code[position]].kind;
    if (kind != OPK_FIELD && kind != OPK_INVOKE) {
        return true;
    }
    const int index = readCodeUnsignedShort(code, position + 1);
    const bool asked = effects != nullptr && index < count && effects[index].parameters >= 0;
    return asked || isMember(pool.getContent(index).tag);
}

void StackEffects::get(const unsigned char* code, int position, int* pops, int* pushes) {
    const int opcode = code[position];
    const OpCodeInfo& info = ourOpCodes[opcode];
    *pops = info.pops;
    *pushes = info.pushes;
    switch (info.kind) {
    case OPK_FIELD: {
        const int slots = effectOf(readCodeUnsignedShort(code, position + 1)).result;
        const bool get = opcode == OPC_GETSTATIC || opcode == OPC_GETFIELD;
        *pops = (get ? 0 : slots) + (opcode >= OPC_GETFIELD ? 1 : 0);
        *pushes = get ? slots : 0;
        return;
    }
    case OPK_INVOKE: {
        const Effect& effect = effectOf(readCodeUnsignedShort(code, position + 1));
        const bool receiver = opcode != OPC_INVOKESTATIC && opcode != OPC_INVOKEDYNAMIC;
        *pops = effect.parameters + (receiver ? 1 : 0);
        *pushes = effect.result;
        return;
    }
    case OPK_MULTIANEWARRAY:
        *pops = code[position + 3];
        return;
    case OPK_WIDE: {
        const OpCodeInfo& widened = ourOpCodes[code[position + 1]];
        *pops = widened.pops;
        *pushes = widened.pushes;
        return;
    }
    default:
        return;
    }
}

AllocationSites::AllocationSites(ClassFile* owner, CodeAttribute* body, CodeRewrite& rewriting,
                                 StackEffects& stackEffects, bool recording)
    : classFile(owner), attribute(body), rewrite(rewriting), effects(stackEffects),
      code(body->getCode()), length(body->getCodeLength()), frames(nullptr), nextFrame(1),
      labels(nullptr), depth(0), epoch(1), lastEpoch(1), reachable(true),
      pending(owner->getArena()), ownDups(owner->getArena()), ownPending(0), extraStack(0),
      skipped(0) {
    if (!recording) {
        return;
    }
    if (attribute->hasStackMaps()) {
        frames = &attribute->getFrames();
    }
    if (frames == nullptr || frames->getSize() < 2) {
        labels = owner->getArena().allocateArray<Label>(length);
        memset(static_cast<void*>(labels), 0, sizeof(Label) * static_cast<size_t>(length));
        ArenaVector<CodeAttribute::ExceptionTableElement>& handlers =
            attribute->getExceptionTable();
        for (int i = 0; i < handlers.getSize(); i++) {
            Logger::assertTrue(handlers[i].handlerPc < length, VDK_HERE);
            labels[handlers[i].handlerPc].epoch = -1;
        }
    }
}

// Whether a dup of the `new` at `position` lies at the slot of the frame's stack.
bool AllocationSites::holdsNew(const StackMapFrame& frame, int slot, int position) {
    const ArenaVector<VerificationType>& stack = frame.getStack();
    int at = 0;
    for (int i = 0; i < stack.getSize() && at <= slot; i++) {
        if (at == slot) {
            return stack[i].getTag() == VERIFICATION_UNINITIALIZED &&
                   stack[i].getValue() == position;
        }
        at += stack[i].getSlots();
    }
    return false;
}

void AllocationSites::checkFrame(const StackMapFrame& frame) {
    depth = 0;
    for (int i = 0; i < frame.getStack().getSize(); i++) {
        depth += frame.getStack()[i].getSlots();
    }
    while (!pending.isEmpty()) {
        const Pending& top = pending.peek();
        bool intact = true;
        for (int slot = top.slot; slot < top.guard; slot++) {
            intact = intact && holdsNew(frame, slot, top.position);
        }
        if (intact) {
            return;
        }
        drop(top);
        pending.pop();
    }
}

// Finds out the depth at a position and which references are still where they were.
void AllocationSites::enterPosition(int position) {
    if (labels == nullptr) {
        while (nextFrame < frames->getSize() && (*frames)[nextFrame]->getOffset() < position) {
            nextFrame++;
        }
        if (nextFrame < frames->getSize() && (*frames)[nextFrame]->getOffset() == position) {
            checkFrame(*(*frames)[nextFrame]);
            reachable = true;
            return;
        }
    }
    if (!reachable) {
        enterLabel(position);
        reachable = true;
    }
}

// Behind an unconditional branch, without a frame.
void AllocationSites::enterLabel(int position) {
    const Label unknown = {0, 0, 0};
    const Label& label = labels == nullptr ? unknown : labels[position];
    if (label.epoch <= 0) {
        dropAll();
        depth = label.epoch == 0 ? 0 : 1;
        epoch = ++lastEpoch;
        return;
    }
    if (label.epoch != epoch) {
        dropAll();
    }
    depth = label.depth;
    epoch = label.epoch;
    while (!pending.isEmpty() &&
           (pending.peek().guard > depth || pending.peek().position > label.source)) {
        drop(pending.pop());
    }
}

void AllocationSites::drop(const Pending& dropped) {
    if (dropped.kind == NEW_WITHOUT_DUP) {
        rewrite.cancelDup(dropped.insertion);
        ownPending--;
    }
    skipped += dropped.kind == NEW_CANCELLED ? 0 : 1;
}

void AllocationSites::dropAll() {
    while (!pending.isEmpty()) {
        drop(pending.pop());
    }
}

// Drops what an instruction that reaches down to `low` may have moved, apart from an object whose
// own pattern this is.
void AllocationSites::dropPendingAbove(int low) {
    if (pending.isEmpty()) {
        return;
    }
    const Pending top = pending.peek();
    if (top.pattern > 0) {
        pending.pop();
    }
    while (!pending.isEmpty() && low < pending.peek().guard) {
        drop(pending.pop());
    }
    if (top.pattern > 0) {
        pending.push(top);
    }
}

// The byte at a position, nop behind the end.
int AllocationSites::byteAt(int position) const {
    return position < length ? code[position] : 0;
}

void AllocationSites::visitNew(int position) {
    const int following = byteAt(position + 3);
    const int second = byteAt(position + 4);
    const int third = byteAt(position + 5);
    if (following < OPC_DUP || following > OPC_DUP_X2) {
        const int insertion = rewrite.addInsertion(INSERT_NEW_DUP, position, 3);
        pending.push({position, NEW_WITHOUT_DUP, depth, depth + 1, insertion, 0, length, -1});
        ownPending++;
        extraStack = ownPending > extraStack ? ownPending : extraStack;
        return;
    }
    // The copies that the program makes must end up below the constructor's arguments, next to each
    // other: new dup; new dup_x1 swap; new dup_x2 dup_x2 pop.
    int slot = depth;
    int pattern = 1;
    if (following == OPC_DUP_X1 && second == OPC_SWAP) {
        slot = depth - 1;
        pattern = 2;
    } else if (following == OPC_DUP_X2 && second == OPC_DUP_X2 && third == OPC_POP) {
        slot = depth - 2;
        pattern = 3;
    } else if (following != OPC_DUP || second == OPC_POP) {
        skipped++;
        return;
    }
    pending.push({position, NEW_WITH_DUP, slot, slot + 2, -1, pattern, length, -1});
}

// Whether the constant of the call at `position` is a method; the log tells of one that is not and
// that an object waits for.
bool AllocationSites::namesMethod(int position) {
    const int tag =
        classFile->getConstantPool().getContent(readCodeUnsignedShort(code, position + 1)).tag;
    if (tag == CONSTANT_METHOD_REF || tag == CONSTANT_INTERFACE_METHOD_REF) {
        return true;
    }
    if (!pending.isEmpty()) {
        ZString text("warning: INVOKESPECIAL in ");
        text.append(classFile->getSignature().toString());
        text.append(": unexpected tag ");
        text.appendLong(tag);
        Logger::detail(text);
    }
    return false;
}

bool AllocationSites::callsConstructor(int position) const {
    const ConstantPool& pool = classFile->getConstantPool();
    const ConstantPool::Content entry = pool.getContent(readCodeUnsignedShort(code, position + 1));
    if (entry.tag != CONSTANT_METHOD_REF) {
        return false;
    }
    const ConstantPool::Content nameAndType = pool.getContent(entry.second);
    Logger::assertEquals(nameAndType.tag, CONSTANT_NAME_AND_TYPE, VDK_HERE);
    return pool.getUtf8(nameAndType.first) == "<init>";
}

// Notes the allocation call if the constructor is called on the innermost pending object.
bool AllocationSites::visitConstructorCall(int position, int low) {
    if (pending.isEmpty() || !callsConstructor(position)) {
        return false;
    }
    const Pending top = pending.peek();
    // The receiver is the upper reference, which the call may consume.
    if (low != top.guard - 1) {
        return false;
    }
    pending.pop();
    if (top.kind == NEW_CANCELLED) {
        return true;
    }
    if (top.kind == NEW_WITH_DUP) {
        rewrite.addInsertion(INSERT_OBJECT_CALL, position, 3);
        return true;
    }
    ownPending--;
    if (top.firstTarget <= top.position || top.lastTarget > position) {
        rewrite.cancelDup(top.insertion);
        skipped++;
        return true;
    }
    const int call = rewrite.addInsertion(INSERT_OBJECT_CALL_OWN, position, 3);
    ownDups.push({top.position, position, top.insertion, call, false});
    return true;
}

void AllocationSites::noteTarget(int position, int target, int targetDepth) {
    if (target < 0 || target >= length) {
        return;
    }
    if (labels != nullptr && target > position && labels[target].epoch == 0) {
        labels[target] = {targetDepth, position, epoch};
    }
    for (int i = 0; i < pending.getSize(); i++) {
        Pending& one = pending[i];
        one.firstTarget = target < one.firstTarget ? target : one.firstTarget;
        one.lastTarget = target > one.lastTarget ? target : one.lastTarget;
    }
}

// Notes where the instruction branches to; depth is that behind the instruction.
void AllocationSites::noteBranches(int position) {
    const OpCodeKind kind = ourOpCodes[code[position]].kind;
    if (labels == nullptr && ownPending == 0) {
        return;
    }
    if (kind == OPK_CONDITIONAL || kind == OPK_GOTO || kind == OPK_JSR) {
        noteTarget(position, position + readCodeShort(code, position + 1), depth);
        return;
    }
    if (kind == OPK_GOTO_W || kind == OPK_JSR_W) {
        noteTarget(position, position + readCodeInt(code, position + 1), depth);
        return;
    }
    const int operands = switchOperands(position);
    const int end = nextInstruction(code, length, position);
    noteTarget(position, position + readCodeInt(code, operands), depth);
    const int step = kind == OPK_TABLESWITCH ? 4 : 8;
    for (int at = operands + 12; at < end; at += step) {
        noteTarget(position, position + readCodeInt(code, at), depth);
    }
}

void AllocationSites::visit(int position, int next) {
    enterPosition(position);
    const int opcode = code[position];
    int pops = 0;
    int pushes = 0;
    if (opcode == OPC_INVOKESPECIAL && !namesMethod(position)) {
        // What it does to the stack can't be told.
        dropAll();
        epoch = ++lastEpoch;
    } else {
        effects.get(code, position, &pops, &pushes);
    }
    const int low = depth - pops;
    const bool matched = opcode == OPC_INVOKESPECIAL && visitConstructorCall(position, low);
    if (!matched) {
        dropPendingAbove(low);
    }
    if (!pending.isEmpty()) {
        Pending& top = pending.peek();
        top.pattern -= top.pattern > 0 ? 1 : 0;
        if (top.kind == NEW_WITHOUT_DUP && opcode >= OPC_DUP_X1 && opcode <= OPC_DUP2_X2 &&
            opcode != OPC_DUP2) {
            rewrite.cancelDup(top.insertion);
            top.kind = NEW_CANCELLED;
            ownPending--;
            skipped++;
        }
    }
    switch (ourOpCodes[opcode].kind) {
    case OPK_NEW:
        visitNew(position);
        break;
    case OPK_NEWARRAY:
    case OPK_MULTIANEWARRAY:
        rewrite.addInsertion(INSERT_ARRAY_CALL, position, next - position);
        break;
    default:
        break;
    }
    depth = low + pushes;
    switch (ourOpCodes[opcode].kind) {
    case OPK_JSR:
    case OPK_JSR_W:
        noteBranches(position);
        // Control comes back without the return address.
        depth--;
        break;
    case OPK_CONDITIONAL:
        noteBranches(position);
        break;
    case OPK_GOTO:
    case OPK_GOTO_W:
    case OPK_TABLESWITCH:
    case OPK_LOOKUPSWITCH:
        noteBranches(position);
        reachable = false;
        break;
    case OPK_RETURN:
    case OPK_ATHROW:
    case OPK_RET:
        reachable = false;
        break;
    default:
        reachable = opcode != OPC_WIDE || code[position + 1] != OPC_RET;
        break;
    }
}

void AllocationSites::finish() {
    dropAll();
    if (ownDups.isEmpty() || frames == nullptr) {
        return;
    }
    // Which of our dups belongs to the `new` at a position.
    int* const dupAt = classFile->getArena().allocateArray<int>(length);
    memset(dupAt, 0xff, sizeof(int) * static_cast<size_t>(length));
    for (int i = 0; i < ownDups.getSize(); i++) {
        dupAt[ownDups[i].position] = i;
    }
    for (int i = 1; i < frames->getSize(); i++) {
        const StackMapFrame& frame = *(*frames)[i];
        for (int list = 0; list < 2; list++) {
            const ArenaVector<VerificationType>& types =
                list == 0 ? frame.getLocals() : frame.getStack();
            for (int k = 0; k < types.getSize(); k++) {
                if (types[k].getTag() != VERIFICATION_UNINITIALIZED) {
                    continue;
                }
                const int position = types[k].getValue();
                Logger::assertTrue(position < length, VDK_HERE);
                const int dup = dupAt[position];
                if (dup < 0) {
                    continue;
                }
                OwnDup& own = ownDups[dup];
                own.cancelled = own.cancelled || list == 0 || frame.getOffset() <= position ||
                                frame.getOffset() > own.constructor;
            }
        }
    }
    for (int i = 0; i < ownDups.getSize(); i++) {
        if (ownDups[i].cancelled) {
            rewrite.cancelDup(ownDups[i].insertion);
            rewrite.cancelCall(ownDups[i].call);
            skipped++;
        }
    }
}

void AllocationSites::patchFrames() {
    if (ownDups.isEmpty() || frames == nullptr) {
        return;
    }
    for (int i = 0; i < ownDups.getSize(); i++) {
        const OwnDup& own = ownDups[i];
        for (int f = 1; f < frames->getSize() && !own.cancelled; f++) {
            StackMapFrame& frame = *(*frames)[f];
            if (frame.getOffset() <= own.position || frame.getOffset() > own.constructor) {
                continue;
            }
            ArenaVector<VerificationType>& stack = frame.getStack();
            for (int k = 0; k < stack.getSize(); k++) {
                if (stack[k].getTag() == VERIFICATION_UNINITIALIZED &&
                    stack[k].getValue() == own.position) {
                    stack.insert(k, stack[k]);
                    break;
                }
            }
        }
    }
}
