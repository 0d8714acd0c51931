#include "instrument/TracingInstrumentation.h"

#include "classfile/OpCodes.h"
#include "core/ground/JavaNames.h"
#include "instrument/BranchWidening.h"
#include "instrument/StackDepths.h"

namespace {

// Local variables of all frames of a method together, above which its frames stay as they are.
constexpr long MOST_FRAME_VARIABLES = 1 << 22;

int findOrCreateCall(ClassFile* classFile, int classIndex, const char* name,
                     const char* descriptor) {
    const int nameIndex = classFile->findOrCreateUtf8(name);
    return classFile->findOrCreateMethodRef(classIndex, nameIndex,
                                            classFile->findOrCreateUtf8(descriptor));
}

// Recording the allocations of generated XSLT translets breaks their frames.
bool isTranslet(const ClassFile* classFile) {
    const Utf8View super = classFile->getSuperClassSignature();
    return super.contains("xalan") && super.contains("AbstractTranslet");
}

int argumentSlots(const MethodInfo* method) {
    return DescriptorTypes::parameterSlots(method->getDescriptor()) + (method->isStatic() ? 0 : 1);
}

// Allocation calls add a local variable to every frame, which is decoded and filled up to there.
bool framesFitMemory(const CodeAttribute* attribute) {
    const StackMapTableAttribute* const raw = attribute->getRawFrames();
    return raw == nullptr ||
           static_cast<long>(raw->getCount()) * attribute->getMaxLocals() <= MOST_FRAME_VARIABLES;
}

// Ranges that begin with their own handler begin behind its call now: an error in the call must not
// lead back to it.
void cutOwnRanges(CodeAttribute* attribute, const HandlerHeads& handlers, bool hasSwitch) {
    for (int i = 0; i < handlers.ownRanges().getSize(); i++) {
        attribute->getExceptionTable()[handlers.ownRanges()[i]].startPc +=
            insertionLength(INSERT_CATCH, hasSwitch);
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
      callbackClass(owner->findOrCreateConstantClass(owner->findOrCreateUtf8(CALLBACK_CLASS))),
      references(), effects(owner->getConstantPool()), annotated(owner), longJumps(1) {
    references.entry = findOrCreateCall(classFile, callbackClass,
                                        flagged ? "vdkMethodEntryF" : "vdkMethodEntry", "(SS)V");
    references.exit = findOrCreateCall(classFile, callbackClass,
                                       flagged ? "vdkMethodExitF" : "vdkMethodExit", "(SS)V");
    references.alloc = findOrCreateCall(classFile, callbackClass, flagged ? "vdkInitF" : "vdkInit",
                                        "(Ljava/lang/Object;I)I");
}

bool TracingInstrumentation::run(bool allocations, bool tracing) {
    const Utf8View className = classFile->getSignature();
    const bool classLeftOut =
        reasonToLeaveClass(className, classFile->getSuperClassSignature()) != nullptr;
    const Calls wanted = {tracing, tracing, allocations && !isTranslet(classFile)};
    const Calls onlyAllocations = {false, false, true};
    bool any = false;
    const int methodCount = classFile->getMethods().getSize();
    for (int i = 0; i < methodCount; i++) {
        MethodInfo* const method = classFile->getMethods()[i];
        MethodOutcome outcome = METHOD_OUTCOME_NO_CODE;
        if (method->getCodeAttribute() != nullptr && !isRootClassException(className, method)) {
            const int id = ids->getMethodId(className, method->getName(), method->getDescriptor());
            if (!wanted.allocations && !tracing) {
                continue;
            }
            const bool isAnnotated = annotated.reasonToLeave(method) != nullptr;
            const bool isOnlyAllocating =
                isAnnotated && wanted.allocations && isBoxing(className, method->getName());
            outcome = shouldSkipInstrumentation(method) ? METHOD_OUTCOME_TRIVIAL
                      : classLeftOut                    ? METHOD_OUTCOME_CLASS_LEFT_OUT
                      : isAnnotated && !isOnlyAllocating
                          ? METHOD_OUTCOME_ANNOTATED
                          : instrumentMethod(id, method, isAnnotated ? onlyAllocations : wanted);
            if (outcome <= METHOD_OUTCOME_WITHOUT_HANDLERS) {
                if (!isAnnotated) {
                    ids->methodInstrumented(id);
                }
                any = true;
            }
        }
        if (counts != nullptr) {
            counts->methods[outcome]++;
        }
    }
    return any;
}

MethodOutcome TracingInstrumentation::instrumentMethod(int methodId, MethodInfo* method,
                                                       const Calls& wanted) {
    CodeAttribute* const attribute = method->getCodeAttribute();
    if (attribute->findOpaqueAttribute() != nullptr) {
        return methodNotInstrumented(method, METHOD_OUTCOME_OPAQUE_ATTRIBUTE);
    }
    scratch.reset();
    Scan scan = scanMethod(attribute);
    const bool hasAllocations = wanted.allocations && scan.traits.createsObjects;
    const bool mayRecord = hasAllocations && framesFitMemory(attribute) &&
                           attribute->getMaxLocals() < CodeAttribute::MAX_LIMIT;
    if (mayRecord && attribute->getMaxLocals() < argumentSlots(method)) {
        // The JVM refuses it, and would no longer with a local more.
        return methodNotInstrumented(method, METHOD_OUTCOME_LIMITS);
    }
    const bool hasHandlers = wanted.handlers && !scan.handlers.positions().isEmpty();
    if (hasHandlers) {
        references.caught = catchReference();
    }
    MethodOutcome outcome = METHOD_OUTCOME_TOO_LONG;
    Calls calls = {wanted.tracing, hasHandlers, mayRecord};
    do {
        longJumps.clear();
        outcome = instrumentForTracingAndAllocationImpl(methodId, method, scan, calls, &longJumps);
        if (outcome == METHOD_OUTCOME_BRANCH_OVERFLOW && canWidenBranches(attribute) &&
            modifyJumps(method, &longJumps)) {
            scan = scanMethod(attribute);
            outcome = instrumentForTracingAndAllocationImpl(methodId, method, scan, calls, nullptr);
        }
        if (outcome == METHOD_OUTCOME_INSTRUMENTED) {
            return calls.handlers != hasHandlers         ? METHOD_OUTCOME_WITHOUT_HANDLERS
                   : calls.allocations != hasAllocations ? METHOD_OUTCOME_WITHOUT_ALLOCATIONS
                                                         : METHOD_OUTCOME_INSTRUMENTED;
        }
    } while (dropACall(&calls));
    return methodNotInstrumented(method, outcome);
}

// The next shorter form of a method that is too long: allocation calls go first, those at handlers
// next; entry and exit are all or nothing. False if there is none.
bool TracingInstrumentation::dropACall(Calls* calls) {
    bool& dropped = calls->allocations ? calls->allocations : calls->handlers;
    if (!calls->tracing || !dropped) {
        return false;
    }
    dropped = false;
    return true;
}

// Few classes need it, so the others don't carry it.
int TracingInstrumentation::catchReference() {
    if (references.caught == 0) {
        references.caught = findOrCreateCall(
            classFile, callbackClass, flagged ? "vdkMethodCatchF" : "vdkMethodCatch", "(SS)V");
    }
    return references.caught;
}

TracingInstrumentation::Scan TracingInstrumentation::scanMethod(CodeAttribute* attribute) {
    const int length = attribute->getCodeLength();
    unsigned short* const marks = scratch.allocateArray<unsigned short>(length);
    int markCount = 0;
    const CodeTraits traits = scanCode(attribute->getCode(), length, marks, &markCount);
    scratch.trim(marks + markCount);
    return {traits, marks, markCount, HandlerHeads(attribute, scratch)};
}

// Tells the rewrite every branch and every insertion, in the order of the code.
void TracingInstrumentation::placeCalls(const Scan& scan, const Calls& calls, CodeRewrite& rewrite,
                                        AllocationSites& sites) {
    const unsigned char* const code = rewrite.getCode();
    const int length = rewrite.getLength();
    const ArenaVector<int>& heads = scan.handlers.positions();
    const int headCount = calls.handlers ? heads.getSize() : 0;
    int mark = 0;
    int head = 0;
    int visited = 0;
    for (;;) {
        const int nextMark = mark < scan.markCount ? scan.marks[mark] : length;
        const bool atHead = head < headCount && heads[head] <= nextMark;
        const int position = atHead ? heads[head] : nextMark;
        // Only allocations need every instruction, this one behind the call in front of it.
        while (calls.allocations && visited < length && visited + (atHead ? 1 : 0) <= position) {
            const int next = nextInstruction(code, length, visited);
            sites.visit(visited, next);
            visited = next;
        }
        if (atHead) {
            rewrite.addInsertion(INSERT_CATCH, position, 1);
            head++;
        } else if (position == length) {
            return;
        } else {
            if (!isReturnOpcode(code[position])) {
                rewrite.addBranchOperands(position);
            } else if (calls.tracing) {
                rewrite.addInsertion(INSERT_EXIT, position, 1);
            }
            mark++;
        }
    }
}

// One attempt; only one that ends well changes the method. Overflows is null once the branches were
// widened, or gets those that would not reach.
MethodOutcome TracingInstrumentation::instrumentForTracingAndAllocationImpl(
    int methodId, MethodInfo* method, const Scan& scan, const Calls& calls, ZSet<int>* overflows) {
    CodeAttribute* const attribute = method->getCodeAttribute();
    const bool hasSwitch = scan.traits.hasSwitch;
    CodeRewrite rewrite(attribute, scratch, hasSwitch);
    AllocationSites sites(classFile, attribute, rewrite, effects, calls.allocations);
    placeCalls(scan, calls, rewrite, sites);
    if (calls.allocations) {
        sites.finish();
    }
    const int variable = calls.allocations ? attribute->getMaxLocals() : -1;
    const int prefix = calls.tracing ? ENTRY_CODE_LENGTH(hasSwitch, variable >= 0)
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
    if (calls.tracing) {
        insertEntryCode(references.entry, methodId, newCode, 0, variable, hasSwitch);
    } else {
        insertAllocOnlyEntryCode(newCode, 0, variable);
    }
    attribute->ensureStackCapacity(stack);
    commit(rewrite, attribute, &sites, newCode, newLength, prefix, variable);
    if (calls.handlers) {
        cutOwnRanges(attribute, scan.handlers, hasSwitch);
    }
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
    text.append(classFile->getSignature().toString());
    text.append(".");
    text.append(method->getName().toString());
    text.append(method->getDescriptor().toString());
    Logger::detail(text);
    return outcome;
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

bool instrumentForTracingAndAllocation(ClassFile* classFile, bool allocations, bool tracing,
                                       MethodIds* ids, bool flagVariants,
                                       InstrumentationCounts* counts) {
    Logger::assertNotNULL(classFile, VDK_HERE);
    TracingInstrumentation pass(classFile, ids, flagVariants, counts);
    return pass.run(allocations, tracing);
}
