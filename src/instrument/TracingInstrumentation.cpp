#include "instrument/TracingInstrumentation.h"

#include "classfile/OpCodes.h"
#include "core/ground/JavaNames.h"
#include "instrument/BranchWidening.h"
#include "instrument/MethodLimits.h"
#include "instrument/StackDepths.h"

namespace {

int findOrCreateCall(ClassFile* classFile, int classIndex, const char* name,
                     const char* descriptor) {
    const int nameIndex = classFile->findOrCreateUtf8(name);
    return classFile->findOrCreateMethodRef(classIndex, nameIndex,
                                            classFile->findOrCreateUtf8(descriptor));
}

// The next shorter form of a method that is too long: what was added last goes first, so that the
// rest is what was there before. Exceptions are all or nothing, then go allocation calls, then
// those at handlers; entry and exit stay. False if there is none.
bool dropACall(CallSet* calls) {
    const CallSet order[] = {EXCEPTION_CALLS, CallSet(CALLS_ALLOCATIONS), CallSet(CALLS_HANDLERS)};
    for (const CallSet& some : order) {
        if (calls->has(some)) {
            *calls = calls->without(some);
            return calls->has(TRACING_CALLS) || calls->has(CALLS_ALLOCATIONS);
        }
    }
    return false;
}

// The object of a constructor is whole here.
void placeReturnCalls(int position, CallSet calls, CodeRewrite& rewrite) {
    if (calls.has(CALLS_CREATED)) {
        rewrite.addInsertion(INSERT_CREATED, position, 1);
    }
    if (calls.has(CALLS_TRACING)) {
        rewrite.addInsertion(INSERT_EXIT, position, 1);
    }
}

// Ranges that begin with their own handler begin behind its calls now: an error in a call must not
// lead back to it.
void cutOwnRanges(CodeAttribute* attribute, const HandlerHeads& handlers, CallSet calls,
                  bool hasSwitch) {
    for (int i = 0; i < handlers.ownRanges().getSize(); i++) {
        const HandlerHeads::OwnRange& own = handlers.ownRanges()[i];
        int& start = attribute->getExceptionTable()[own.row].startPc;
        if (calls.has(CALLS_HANDLERS)) {
            start += insertionLength(INSERT_CATCH, hasSwitch);
        }
        if (calls.has(CALLS_CAUGHT) && own.catches) {
            start += insertionLength(INSERT_CAUGHT, hasSwitch);
        }
    }
}

bool isRootClassException(const Utf8View& className, const MethodInfo* method) {
    return className == "java/lang/Object" &&
           (method->getName() == "<clinit>" || method->getName() == "finalize");
}

} // namespace

bool shouldSkipInstrumentation(MethodInfo* method) {
    const CodeAttribute* const attribute = method->getCodeAttribute();
    const unsigned char* const code = attribute->getCode();
    switch (attribute->getCodeLength()) {
    case 1:
    case 2:
        return true;
    case 4:
        return code[0] == OPC_GETSTATIC && isReturnOpcode(code[3]);
    case 5:
        return (code[0] == OPC_ALOAD_0 && code[1] == OPC_GETFIELD && isReturnOpcode(code[4])) ||
               (isLoad0Opcode(code[0]) && code[1] == OPC_PUTSTATIC && code[4] == OPC_RETURN);
    case 6:
        return code[0] == OPC_ALOAD_0 && isLoad1Opcode(code[1]) && code[5] == OPC_RETURN;
    default:
        return false;
    }
}

TracingInstrumentation::TracingInstrumentation(ClassFile* owner, MethodIds* methodIds,
                                               bool flagVariants,
                                               InstrumentationCounts* outcomeCounts)
    : classFile(owner), ids(methodIds), counts(outcomeCounts), flagged(flagVariants),
      anyCatches(false), anyChange(false), callbackClass(0), references(),
      effects(owner->getConstantPool()), annotated(owner), longJumps(1) {}

// What a method may carry; its code has not been looked at.
CallSet TracingInstrumentation::callsOfMethod(MethodInfo* method, const ClassCalls& wanted) const {
    if (annotated.reasonToLeave(method) == nullptr) {
        return wanted.calls.only(BODY_CALLS).without(CALLS_BOXING);
    }
    const bool boxes =
        wanted.calls.has(CALLS_BOXING) && isBoxing(classFile->getSignature(), method->getName());
    return boxes ? CallSet(CALLS_ALLOCATIONS) : CallSet();
}

bool TracingInstrumentation::run(const ClassCalls& wanted) {
    const Utf8View className = classFile->getSignature();
    const bool nothingWanted = !wanted.calls.has(BODY_CALLS) && wanted.leftOut == nullptr;
    const int methodCount = classFile->getMethods().getSize();
    for (int i = 0; i < methodCount; i++) {
        MethodInfo* const method = classFile->getMethods()[i];
        MethodOutcome outcome = METHOD_OUTCOME_NO_CODE;
        if (method->getCodeAttribute() != nullptr && !isRootClassException(className, method)) {
            const int id = ids->getMethodId(className, method->getName(), method->getDescriptor());
            if (nothingWanted) {
                continue;
            }
            const CallSet calls = callsOfMethod(method, wanted);
            outcome = shouldSkipInstrumentation(method) ? METHOD_OUTCOME_TRIVIAL
                      : wanted.leftOut != nullptr       ? METHOD_OUTCOME_CLASS_LEFT_OUT
                      : calls.isEmpty()                 ? METHOD_OUTCOME_ANNOTATED
                                                        : instrumentMethod(id, method, calls);
            // A method with nothing but the allocation of a box is none of the traced ones.
            if (outcome <= METHOD_OUTCOME_WITHOUT_HANDLERS &&
                wanted.calls.has(TRACING_CALLS.with(ALLOCATION_CALLS)) &&
                annotated.reasonToLeave(method) == nullptr) {
                ids->methodInstrumented(id);
            }
        }
        if (counts != nullptr) {
            counts->methods[outcome]++;
        }
    }
    return anyChange;
}

// Of what the method may carry, what its code has a place for.
CallSet TracingInstrumentation::callsThatApply(MethodInfo* method, CallSet wanted,
                                               const Scan& scan) const {
    CallSet calls = wanted;
    if (!scan.traits.createsObjects) {
        calls = calls.without(CALLS_ALLOCATIONS);
    }
    if (scan.handlers.getHeads().isEmpty()) {
        calls = calls.without(CALLS_HANDLERS);
    }
    if (!scan.handlers.anyCatches()) {
        calls = calls.without(CALLS_CAUGHT);
    }
    if (!(method->getName() == "<init>")) {
        calls = calls.without(CALLS_CREATED);
    }
    return calls;
}

MethodOutcome TracingInstrumentation::instrumentMethod(int methodId, MethodInfo* method,
                                                       CallSet wanted) {
    CodeAttribute* const attribute = method->getCodeAttribute();
    if (attribute->findOpaqueAttribute() != nullptr) {
        return methodNotInstrumented(method, METHOD_OUTCOME_OPAQUE_ATTRIBUTE);
    }
    scratch.reset();
    Scan scan = scanMethod(attribute);
    anyCatches = anyCatches || scan.handlers.anyCatches();
    const CallSet applicable = callsThatApply(method, wanted, scan);
    CallSet calls = applicable;
    if (!framesFitMemory(attribute) || attribute->getMaxLocals() >= CodeAttribute::MAX_LIMIT) {
        calls = calls.without(CALLS_ALLOCATIONS);
    }
    if (calls.has(CALLS_ALLOCATIONS) && attribute->getMaxLocals() < argumentSlots(method)) {
        // The JVM refuses it, and would no longer with a local more.
        return methodNotInstrumented(method, METHOD_OUTCOME_LIMITS);
    }
    if (calls.isEmpty() && !wanted.has(TRACING_CALLS.with(ALLOCATION_CALLS))) {
        return METHOD_OUTCOME_INSTRUMENTED;
    }
    findReferences(calls);
    MethodOutcome outcome = METHOD_OUTCOME_TOO_LONG;
    do {
        longJumps.clear();
        outcome = instrumentForTracingAndAllocationImpl(methodId, method, scan, calls, &longJumps);
        if (outcome == METHOD_OUTCOME_BRANCH_OVERFLOW && canWidenBranches(attribute) &&
            modifyJumps(method, &longJumps)) {
            scan = scanMethod(attribute);
            outcome = instrumentForTracingAndAllocationImpl(methodId, method, scan, calls, nullptr);
        }
        if (outcome == METHOD_OUTCOME_INSTRUMENTED) {
            anyChange = true;
            const CallSet dropped = applicable.without(calls);
            if (dropped.has(EXCEPTION_CALLS)) {
                logMethod("warning: exceptions are not counted because the code is too long: ",
                          method);
            }
            return dropped.has(CALLS_HANDLERS)      ? METHOD_OUTCOME_WITHOUT_HANDLERS
                   : dropped.has(CALLS_ALLOCATIONS) ? METHOD_OUTCOME_WITHOUT_ALLOCATIONS
                                                    : METHOD_OUTCOME_INSTRUMENTED;
        }
    } while (dropACall(&calls));
    return methodNotInstrumented(method, outcome);
}

// A class without calls has none of these, and few need the later ones.
void TracingInstrumentation::findReferences(CallSet calls) {
    if (callbackClass == 0) {
        callbackClass =
            classFile->findOrCreateConstantClass(classFile->findOrCreateUtf8(CALLBACK_CLASS));
        references.entry = findOrCreateCall(
            classFile, callbackClass, flagged ? "vdkMethodEntryF" : "vdkMethodEntry", "(SS)V");
        references.exit = findOrCreateCall(classFile, callbackClass,
                                           flagged ? "vdkMethodExitF" : "vdkMethodExit", "(SS)V");
        references.alloc = findOrCreateCall(
            classFile, callbackClass, flagged ? "vdkInitF" : "vdkInit", "(Ljava/lang/Object;I)I");
    }
    if (calls.has(CALLS_HANDLERS) && references.handler == 0) {
        references.handler = findOrCreateCall(
            classFile, callbackClass, flagged ? "vdkMethodCatchF" : "vdkMethodCatch", "(SS)V");
    }
    if (calls.has(CALLS_CREATED) && references.created == 0) {
        references.created = findOrCreateCall(classFile, callbackClass, "vdkExceptionCreated0",
                                              "(Ljava/lang/Object;)V");
    }
    if (calls.has(CALLS_CAUGHT) && references.caught == 0) {
        references.caught = findOrCreateCall(classFile, callbackClass, "vdkExceptionCaught0",
                                             "(Ljava/lang/Object;)V");
    }
}

TracingInstrumentation::Scan TracingInstrumentation::scanMethod(CodeAttribute* attribute) {
    const int length = attribute->getCodeLength();
    unsigned short* const marks = scratch.allocateArray<unsigned short>(length);
    int markCount = 0;
    const CodeTraits traits = scanCode(attribute->getCode(), length, marks, &markCount);
    scratch.trim(marks + markCount);
    return {traits, marks, markCount, HandlerHeads(attribute, scratch)};
}

// Those of tracing come first: an error in the other call leaves the traced stack right.
void TracingInstrumentation::placeHandlerCalls(const HandlerHeads::Head& head, CallSet calls,
                                               CodeRewrite& rewrite) {
    if (calls.has(CALLS_HANDLERS)) {
        rewrite.addInsertion(INSERT_CATCH, head.position, 1);
    }
    if (calls.has(CALLS_CAUGHT) && head.catches) {
        rewrite.addInsertion(INSERT_CAUGHT, head.position, 1);
    }
}

// Tells the rewrite every branch and every insertion, in the order of the code.
void TracingInstrumentation::placeCalls(const Scan& scan, CallSet calls, CodeRewrite& rewrite,
                                        AllocationSites& sites) {
    const unsigned char* const code = rewrite.getCode();
    const int length = rewrite.getLength();
    const ArenaVector<HandlerHeads::Head>& heads = scan.handlers.getHeads();
    const int headCount =
        calls.has(CallSet(CALLS_HANDLERS).with(CALLS_CAUGHT)) ? heads.getSize() : 0;
    int mark = 0;
    int head = 0;
    int visited = 0;
    for (;;) {
        const int nextMark = mark < scan.markCount ? scan.marks[mark] : length;
        const bool atHead = head < headCount && heads[head].position <= nextMark;
        const int position = atHead ? heads[head].position : nextMark;
        // Only allocations need every instruction, this one behind the call in front of it.
        while (calls.has(CALLS_ALLOCATIONS) && visited < length &&
               visited + (atHead ? 1 : 0) <= position) {
            const int next = nextInstruction(code, length, visited);
            sites.visit(visited, next);
            visited = next;
        }
        if (atHead) {
            placeHandlerCalls(heads[head], calls, rewrite);
            head++;
        } else if (position == length) {
            return;
        } else {
            if (!isReturnOpcode(code[position])) {
                rewrite.addBranchOperands(position);
            } else {
                placeReturnCalls(position, calls, rewrite);
            }
            mark++;
        }
    }
}

// One attempt; only one that ends well changes the method. Overflows is null once the branches were
// widened, or gets those that would not reach.
MethodOutcome TracingInstrumentation::instrumentForTracingAndAllocationImpl(
    int methodId, MethodInfo* method, const Scan& scan, CallSet calls, ZSet<int>* overflows) {
    CodeAttribute* const attribute = method->getCodeAttribute();
    const bool hasSwitch = scan.traits.hasSwitch;
    const bool traces = calls.has(CALLS_TRACING);
    const bool records = calls.has(CALLS_ALLOCATIONS);
    CodeRewrite rewrite(attribute, scratch, hasSwitch);
    AllocationSites sites(classFile, attribute, rewrite, effects, records);
    placeCalls(scan, calls, rewrite, sites);
    if (records) {
        sites.finish();
    }
    const int variable = records ? attribute->getMaxLocals() : -1;
    const int prefix = traces ? ENTRY_CODE_LENGTH(hasSwitch, variable >= 0)
                              : ALLOC_ONLY_ENTRY_CODE_LENGTH(variable >= 0);
    const bool branchesReach = rewrite.updateOffsets(prefix, overflows);
    const int newLength = prefix + rewrite.getNewLength();
    if (newLength > 0xffff) {
        return METHOD_OUTCOME_TOO_LONG;
    }
    if (!branchesReach) {
        return METHOD_OUTCOME_BRANCH_OVERFLOW;
    }
    if (newLength > HUGE_METHOD_LIMIT && rewrite.getLength() <= HUGE_METHOD_LIMIT) {
        return METHOD_OUTCOME_NEVER_COMPILED;
    }
    StackDepths depths(classFile, attribute, effects);
    const int stack = stackNeeded(rewrite, attribute->getMaxStack(), sites.getExtraStack(), depths);
    if (stack > CodeAttribute::MAX_LIMIT && stack > attribute->getMaxStack()) {
        return METHOD_OUTCOME_LIMITS;
    }
    unsigned char* const newCode =
        rewrite.assemble(classFile->getArena(), references, methodId, variable);
    if (traces) {
        insertEntryCode(references.entry, methodId, newCode, 0, variable, hasSwitch);
    } else {
        insertAllocOnlyEntryCode(newCode, 0, variable);
    }
    attribute->ensureStackCapacity(stack);
    commit(rewrite, attribute, &sites, newCode, newLength, prefix, variable);
    cutOwnRanges(attribute, scan.handlers, calls, hasSwitch);
    reportSkipped(method, sites.getSkipped());
    return METHOD_OUTCOME_INSTRUMENTED;
}

// Enters a finished rewrite in the method: code, limits and all tables.
void TracingInstrumentation::commit(CodeRewrite& rewrite, CodeAttribute* attribute,
                                    AllocationSites* sites, unsigned char* newCode, int newLength,
                                    int prefix, int variable) {
    sites->patchFrames();
    attribute->adoptCode(newCode, newLength);
    attribute->shiftTables(rewrite.getOffsets(), prefix > 0);
    if (variable >= 0) {
        const int slot =
            attribute->addLocalVariableToTable(VerificationType(VERIFICATION_INT, -1), true);
        Logger::assertEquals(slot, variable, VDK_HERE);
    }
    attribute->applyAddedVariables(0);
}

// Logs why a method carries no calls, and gives the reason back.
MethodOutcome TracingInstrumentation::methodNotInstrumented(MethodInfo* method,
                                                            MethodOutcome outcome) const {
    ZString text("warning: cannot instrument method because ");
    text.append(outcome == METHOD_OUTCOME_OPAQUE_ATTRIBUTE ? "its code has an unknown attribute: "
                : outcome == METHOD_OUTCOME_LIMITS ? "its stack or locals are at their limit: "
                : outcome == METHOD_OUTCOME_NEVER_COMPILED ? "the JVM would no longer compile it: "
                                                           : "resulting bytecode is too long: ");
    logMethod(text, method);
    return outcome;
}

void TracingInstrumentation::logMethod(ZString text, const MethodInfo* method) const {
    text.append(classFile->getSignature().toString());
    text.append(".");
    text.append(method->getName().toString());
    text.append(method->getDescriptor().toString());
    Logger::detail(text);
}

void TracingInstrumentation::reportSkipped(MethodInfo* method, int skipped) {
    if (skipped == 0) {
        return;
    }
    if (counts != nullptr) {
        counts->skippedAllocations += skipped;
    }
    ZString text("warning: cannot inject object allocation callback due to a bad bytecode pattern "
                 "(scala?): ");
    text.append(classFile->getSignature().toString());
    text.append(".");
    text.append(method->getName().toString());
    Logger::detail(text);
}

bool instrumentForTracingAndAllocation(ClassFile* classFile, const ClassCalls& wanted,
                                       MethodIds* ids, bool flagVariants,
                                       InstrumentationCounts* counts, bool* hasCatches) {
    Logger::assertNotNULL(classFile, VDK_HERE);
    TracingInstrumentation pass(classFile, ids, flagVariants, counts);
    const bool changed = pass.run(wanted);
    if (hasCatches != nullptr) {
        *hasCatches = pass.hasCatches();
    }
    return changed;
}
