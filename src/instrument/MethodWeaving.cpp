#include "classfile/OpCodes.h"
#include "instrument/CodeRewrite.h"
#include "instrument/LocalTypes.h"
#include "instrument/MethodLimits.h"
#include "instrument/ProbeBlocks.h"
#include "instrument/StackDepths.h"

namespace {

constexpr long MOST_CODE = 0xffff;
const VerificationType NO_ITEM(VERIFICATION_TOP, -1);

bool containsThisCallbackParameter(const ZVector<CallbackParameter>* parameters) {
    for (int i = 0; parameters != nullptr && i < parameters->getSize(); i++) {
        if ((*parameters)[i].kind == CALLBACK_THIS) {
            return true;
        }
    }
    return false;
}

Utf8View viewOf(const ZString& text) {
    return Utf8View(text.c_str(), text.getLength());
}

// One probe and one method.
class MethodWeaving {
public:
    MethodWeaving(ClassFile* owner, MethodInfo* target, const ProbeDescriptor& probe,
                  const ProbeReferences& poolReferences, StackEffects& stackEffects,
                  ClassArena& arena)
        : classFile(owner), method(target), code(target->getCodeAttribute()), descriptor(probe),
          effects(stackEffects), scratch(arena), hasSwitch(false),
          isTested(poolReferences.areTested() || poolReferences.isGuard()), superCall(-1),
          marks(nullptr), markCount(0), touched(nullptr), needed(0),
          blocks(owner, target, probe, poolReferences), entry(blocks.entry), exit(blocks.exit),
          handler(blocks.handler) {}

    MethodOutcome run() {
        MethodOutcome outcome = checkMethod();
        if (outcome != METHOD_OUTCOME_INSTRUMENTED) {
            return outcome;
        }
        scan();
        if (isThisLost()) {
            return METHOD_OUTCOME_UNKNOWN_TYPES;
        }
        blocks.generate(hasSwitch, touched, code->getMaxLocals());
        if (static_cast<long>(entry.getSize()) + handler.getSize() + code->getCodeLength() >
            MOST_CODE) {
            return METHOD_OUTCOME_TOO_LONG;
        }
        if (blocks.getNextSlot() > CodeAttribute::MAX_LIMIT) {
            return METHOD_OUTCOME_LIMITS;
        }
        if (superCall >= 0 && !isSuperCallPlain()) {
            return METHOD_OUTCOME_UNKNOWN_TYPES;
        }
        return place();
    }

private:
    // Types in front of an instruction that a block with a branch is inserted at.
    struct Known {
        int position;
        ArenaVector<VerificationType>* locals;
    };

    MethodOutcome checkMethod() const {
        if (code->findOpaqueAttribute() != nullptr) {
            return METHOD_OUTCOME_OPAQUE_ATTRIBUTE;
        }
        // The JVM refuses such a method, and would no longer with a local more.
        return code->getMaxLocals() < argumentSlots(method) || !framesFitMemory(code)
                   ? METHOD_OUTCOME_LIMITS
                   : METHOD_OUTCOME_INSTRUMENTED;
    }

    void scan() {
        const int length = code->getCodeLength();
        unsigned short* const found = scratch.allocateArray<unsigned short>(length);
        hasSwitch = scanCode(code->getCode(), length, found, &markCount).hasSwitch;
        scratch.trim(found + markCount);
        marks = found;
        if (method->getName() == "<init>") {
            superCall = getConstructorSuperOrThisCallOffset(classFile, code);
            if (superCall < 0) {
                Logger::error(ZString("constructorSuperOrThisCallOffset assertion failed: ") +
                                  classFile->getSignature().toString() + " " +
                                  method->getName().toString() + " " +
                                  method->getDescriptor().toString(),
                              VDK_HERE);
            }
        }
        fillModifiedVariableIndices();
    }

    // Notes every variable that the method writes, or that a frame does not hold as it was on
    // entry: a handler of the whole method can't rely on it.
    void fillModifiedVariableIndices() {
        const int count = code->getMaxLocals() + 2;
        touched = scratch.allocateArray<bool>(count);
        memset(touched, 0, static_cast<size_t>(count));
        const int length = code->getCodeLength();
        for (int position = 0; position < length;) {
            const StoredLocal stored = storedLocal(code->getCode(), position);
            for (int i = 0; stored.slot >= 0 && i < stored.getSlots(); i++) {
                Logger::assertTrue(stored.slot + i < count, VDK_HERE);
                touched[stored.slot + i] = true;
            }
            position = nextInstruction(code->getCode(), length, position);
        }
        if (code->hasStackMaps()) {
            const ArenaVector<StackMapFrame*>& frames = code->getFrames();
            for (int i = 1; i < frames.getSize(); i++) {
                compareToEntry(frames[i]);
            }
        }
    }

    void compareToEntry(const StackMapFrame* frame) {
        const ArenaVector<VerificationType>& initial = code->getFrames()[0]->getLocals();
        const ArenaVector<VerificationType>& locals = frame->getLocals();
        int slot = 0;
        int slotThere = 0;
        int there = 0;
        for (int i = 0; i < initial.getSize(); i++) {
            while (there < locals.getSize() && slotThere < slot) {
                slotThere += locals[there++].getSlots();
            }
            VerificationType expected = initial[i];
            if (expected.getTag() == VERIFICATION_UNINITIALIZED_THIS &&
                frame->getOffset() >= superCall) {
                expected = VerificationType(VERIFICATION_OBJECT, expected.getValue());
            }
            const bool isThere = there < locals.getSize() && slotThere == slot &&
                                 VerificationType::isSameType(locals[there], expected);
            touched[slot] = touched[slot] || !isThere;
            slot += initial[i].getSlots();
        }
    }

    // A constructor can't keep a copy of its object from the start.
    bool isThisLost() const {
        return superCall >= 0 && touched[0] &&
               (isTested || containsThisCallbackParameter(descriptor.onEnterParameters) ||
                containsThisCallbackParameter(descriptor.onReturnParameters) ||
                containsThisCallbackParameter(descriptor.onExceptionParameters));
    }

    // Whether the entry block has to wait until `this` is an object.
    bool isEntryBehindSuperCall() const {
        return superCall >= 0 && (!descriptor.instanceOfClass.isEmpty() ||
                                  containsThisCallbackParameter(descriptor.onEnterParameters) ||
                                  containsThisCallbackParameter(descriptor.onExceptionParameters));
    }

    // Whether what comes ahead of the super call stands ahead of it in the code, and leaves alone
    // what our code loads behind it. Compilers do it so.
    bool isSuperCallPlain() {
        if (superCall >= code->getCodeLength()) {
            return false;
        }
        const bool isEntryBehind = isEntryBehindSuperCall() && entry.getSize() > 0;
        const int parameterEnd = argumentSlots(method);
        for (int position = 0; position < superCall && isEntryBehind;) {
            const StoredLocal stored = storedLocal(code->getCode(), position);
            if (stored.slot >= 0 && stored.slot < parameterEnd &&
                stored.tag == VERIFICATION_OBJECT) {
                return false;
            }
            position = nextInstruction(code->getCode(), code->getCodeLength(), position);
        }
        if (!code->hasStackMaps()) {
            return true;
        }
        for (int i = 0; i < code->getExceptionTable().getSize(); i++) {
            const CodeAttribute::ExceptionTableElement& row = code->getExceptionTable()[i];
            if (isEntryBehind && row.startPc < superCall && row.endPc > superCall) {
                return false;
            }
        }
        const ArenaVector<StackMapFrame*>& frames = code->getFrames();
        for (int i = 1; i < frames.getSize(); i++) {
            if (holdsRawThis(frames[i]) != (frames[i]->getOffset() < superCall)) {
                return false;
            }
        }
        return true;
    }

    static bool holdsRawThis(const StackMapFrame* frame) {
        for (int i = 0; i < frame->getLocals().getSize(); i++) {
            if (frame->getLocals()[i].getTag() == VERIFICATION_UNINITIALIZED_THIS) {
                return true;
            }
        }
        return false;
    }

    // Notes the stack that a block needs where it stands; with a branch in it also the types there.
    // False if these are not known.
    bool reach(int position, const ProbeCode& block, StackDepths& depths, LocalTypes* locals) {
        const int own =
            &block == &exit ? DescriptorTypes::slotsOf(blocks.getReturnType().charAt(0)) : 0;
        const int depth = position == 0 && &block == &entry ? 0 : depths.at(position);
        const int below = depth < own ? code->getMaxStack() : depth - own;
        const int slots = below + block.getMaxStack();
        needed = slots > needed ? slots : needed;
        if (locals == nullptr || block.getGenerator().getJumpTargets().isEmpty()) {
            return true;
        }
        if (depth != StackDepths::UNKNOWN && depth != own) {
            return false;
        }
        locals->moveTo(position);
        if (!locals->isKnown() &&
            (&block == &entry || !locals->takeFromHandlers(code->getExceptionTable()))) {
            return false;
        }
        auto* const list = scratch.make<ArenaVector<VerificationType>>(scratch);
        locals->fill(*list);
        known.push({position, list});
        return true;
    }

    // Tells the rewrite every branch and every insertion, in the order of the code.
    bool placeBlocks(CodeRewrite& rewrite, int entryPosition) {
        StackDepths depths(classFile, code, effects);
        LocalTypes* const locals = isTested && code->hasStackMaps()
                                       ? scratch.make<LocalTypes>(code, scratch, superCall)
                                       : nullptr;
        bool isEntryPlaced = entryPosition == 0;
        if (isEntryPlaced && entry.getSize() > 0 && !reach(0, entry, depths, locals)) {
            return false;
        }
        for (int i = 0; i <= markCount; i++) {
            const int position = i < markCount ? marks[i] : code->getCodeLength();
            if (!isEntryPlaced && position >= entryPosition) {
                isEntryPlaced = true;
                if (!reach(entryPosition, entry, depths, locals)) {
                    return false;
                }
                // The call takes three bytes.
                rewrite.addInsertion(INSERT_BLOCK_BEHIND, entryPosition - 3, 3);
            }
            if (i == markCount) {
                break;
            }
            if (!isReturnOpcode(code->getCode()[position])) {
                rewrite.addBranchOperands(position);
            } else if (exit.getSize() > 0) {
                if (!reach(position, exit, depths, locals)) {
                    return false;
                }
                rewrite.addInsertion(INSERT_BLOCK, position, 1);
            }
        }
        return true;
    }

    MethodOutcome place() {
        const int entryPosition = isEntryBehindSuperCall() && entry.getSize() > 0 ? superCall : 0;
        const int prefix = entryPosition == 0 ? entry.getSize() : 0;
        CodeRewrite rewrite(code, scratch, hasSwitch);
        rewrite.setBlock(INSERT_BLOCK, exit.getGenerator().getCode(), exit.getSize());
        rewrite.setBlock(INSERT_BLOCK_BEHIND, entry.getGenerator().getCode(), entry.getSize());
        // A test needs a frame at each return, which are among the marks.
        if (isTested && !framesFitMemory(code, markCount)) {
            return METHOD_OUTCOME_LIMITS;
        }
        if (!placeBlocks(rewrite, entryPosition)) {
            return METHOD_OUTCOME_UNKNOWN_TYPES;
        }
        const long newLength =
            static_cast<long>(prefix) + rewrite.getNewLength() + handler.getSize();
        if (newLength > MOST_CODE) {
            return METHOD_OUTCOME_TOO_LONG;
        }
        if (!rewrite.updateOffsets(prefix, nullptr)) {
            return METHOD_OUTCOME_BRANCH_OVERFLOW;
        }
        if (handler.getSize() > 0 && handler.getMaxStack() > needed) {
            needed = handler.getMaxStack();
        }
        if (needed > CodeAttribute::MAX_LIMIT && needed > code->getMaxStack()) {
            return METHOD_OUTCOME_LIMITS;
        }
        commit(rewrite, entryPosition, prefix, static_cast<int>(newLength));
        return METHOD_OUTCOME_INSTRUMENTED;
    }

    // Enters the finished rewrite in the method: code, limits and all tables.
    void commit(CodeRewrite& rewrite, int entryPosition, int prefix, int newLength) {
        const int start = classFile->isStrippingStackMaps() ? entryPosition
                          : superCall >= 0                  ? superCall
                                                            : 0;
        const int end =
            start > 0 ? code->getCorrectExceptionHandlerIndex(start) : code->getCodeLength();
        const int handlerPosition = newLength - handler.getSize();
        unsigned char* const newCode = rewrite.assemble(
            classFile->getArena(), CodeRewrite::References(), 0, -1, handler.getSize());
        if (prefix > 0) {
            entry.getGenerator().copyTo(newCode, 0);
        }
        if (handler.getSize() > 0) {
            handler.getGenerator().copyTo(newCode, handlerPosition);
        }
        const CodeOffsets offsets = rewrite.getOffsets();
        const int entryAt = entryPosition == 0 ? 0 : offsets.at(entryPosition) - entry.getSize();
        code->adoptCode(newCode, newLength);
        code->shiftTables(offsets, prefix > 0);
        code->ensureStackCapacity(needed);
        const ZVector<ProbeBlocks::NewLocal>& newLocals = blocks.getNewLocals();
        for (int i = 0; i < newLocals.getSize(); i++) {
            const int slot =
                code->addLocalVariableToTable(newLocals[i].type, newLocals[i].inFrames);
            Logger::assertEquals(slot, newLocals[i].slot, VDK_HERE);
        }
        addFrames(offsets, entryPosition, entryAt);
        if (handler.getSize() > 0) {
            addHandler(start, offsets, offsets.end(end), handlerPosition);
        }
        code->applyAddedVariables(entryAt + blocks.getEntryCodeSize());
    }

    // Frames where the blocks at the entry and the returns go on after a test that failed.
    void addFrames(const CodeOffsets& offsets, int entryPosition, int entryAt) {
        for (int i = 0; i < known.getSize(); i++) {
            const bool isEntry = i == 0 && !entry.getGenerator().getJumpTargets().isEmpty();
            const ProbeCode& block = isEntry ? entry : exit;
            Logger::assertTrue(!isEntry || known[i].position == entryPosition, VDK_HERE);
            const int target = (isEntry ? entryAt : offsets.at(known[i].position)) +
                               block.getGenerator().getJumpTargets()[0];
            const VerificationType item =
                isEntry || blocks.getReturnType() == "V"
                    ? NO_ITEM
                    : VerificationType(viewOf(blocks.getReturnType()), classFile);
            StackMapFrame* const frame = addFrame(target, *known[i].locals, item);
            // Code that saves parameters still follows there: those don't count yet.
            const ProbeBlocks::NewLocal* const result = blocks.getResult();
            if (isEntry && frame != nullptr && result != nullptr &&
                target < entryAt + blocks.getEntryCodeSize()) {
                ArenaVector<VerificationType> list(classFile->getArena());
                list.push(result->type);
                frame->addLocalVariables(list, result->slot + result->type.getSlots());
            }
        }
    }

    // Null where there is a frame already.
    StackMapFrame* addFrame(int offset, const ArenaVector<VerificationType>& locals,
                            VerificationType item) {
        ArenaVector<StackMapFrame*>& frames = code->getFrames();
        int at = frames.getSize();
        while (at > 0 && frames[at - 1]->getOffset() >= offset) {
            at--;
        }
        if (at < frames.getSize() && frames[at]->getOffset() == offset) {
            return nullptr;
        }
        StackMapFrame* const frame =
            classFile->getArena().make<StackMapFrame>(frames[0], offset, item, -1);
        frame->getLocals().clear();
        frame->getLocals().append(locals.data(), locals.getSize());
        frames.insert(at, frame);
        return frame;
    }

    void addHandler(int start, const CodeOffsets& offsets, int end, int position) {
        const VerificationType throwable("Ljava/lang/Throwable;", classFile);
        // One of the whole method comes behind all others, wherever the entry block ends.
        code->addExceptionHandler(start == 0 ? 0 : offsets.at(start), end, position, throwable);
        if (start == 0) {
            code->getExceptionTable().peek().startPc = offsets.at(0);
        }
        if (!code->hasStackMaps()) {
            return;
        }
        dropTouched(code->getFrames().peek());
        code->addStackMapFrames(handler.getGenerator().getJumpTargets(), position, throwable, -1);
    }

    // Takes the variables that the method writes out of the handler's frame.
    void dropTouched(StackMapFrame* frame) {
        ArenaVector<VerificationType> locals(classFile->getArena());
        int slot = 0;
        for (int i = 0; i < frame->getLocals().getSize(); i++) {
            const VerificationType type = frame->getLocals()[i];
            const bool isLost = touched[slot] || (type.isWide() && touched[slot + 1]);
            if (isLost && type.isWide()) {
                locals.push(NO_ITEM);
            }
            locals.push(isLost ? NO_ITEM : type);
            slot += type.getSlots();
        }
        while (!locals.isEmpty() && locals.peek().getTag() == VERIFICATION_TOP) {
            locals.pop();
        }
        frame->getLocals().clear();
        frame->getLocals().append(locals.data(), locals.getSize());
    }

    ClassFile* classFile;
    MethodInfo* method;
    CodeAttribute* code;
    const ProbeDescriptor& descriptor;
    StackEffects& effects;
    ClassArena& scratch;
    bool hasSwitch;
    const bool isTested; // blocks have a branch
    int superCall;       // behind it; -1 outside constructors
    const unsigned short* marks;
    int markCount;
    bool* touched;
    int needed; // operand stack
    ZVector<Known> known;
    ProbeBlocks blocks;
    const ProbeCode& entry;
    const ProbeCode& exit;
    const ProbeCode& handler;
};

} // namespace

MethodOutcome instrumentMethodByProbeDescriptor(ClassFile* classFile, MethodInfo* method,
                                                const ProbeDescriptor& descriptor,
                                                const ProbeReferences& references,
                                                StackEffects& effects, ClassArena& scratch) {
    return MethodWeaving(classFile, method, descriptor, references, effects, scratch).run();
}
