#include "instrument/ProbeBlocks.h"

#include "probes/SignatureUtil.h"

namespace {

// Its position, or -1.
int findKind(const ZVector<CallbackParameter>* parameters, CallbackParameterKind kind) {
    for (int i = 0; parameters != nullptr && i < parameters->getSize(); i++) {
        if ((*parameters)[i].kind == kind) {
            return i;
        }
    }
    return -1;
}

bool containsKind(const ZVector<CallbackParameter>* parameters, CallbackParameterKind kind) {
    return findKind(parameters, kind) >= 0;
}

Utf8View viewOf(const ZString& text) {
    return Utf8View(text.c_str(), text.getLength());
}

} // namespace

ProbeBlocks::ProbeBlocks(ClassFile* owner, const MethodInfo* target, const ProbeDescriptor& probe,
                         const ProbeReferences& poolReferences)
    : entry(owner), exit(owner), handler(owner), classFile(owner), method(target),
      descriptor(probe), references(poolReferences), isTested(references.areTested()),
      hasSwitch(false), touched(nullptr), nextSlot(0), resultSlot(-1), exitThis(0),
      entryCodeSize(0) {}

int ProbeBlocks::newLocal(const ZString& type, bool inFrames) {
    const NewLocal local = {VerificationType(viewOf(type), classFile), inFrames, nextSlot};
    newLocals.push(local);
    nextSlot += local.type.getSlots();
    return local.slot;
}

// The parameters' slots, and for the callbacks at the exits -1 for what has to be saved.
void ProbeBlocks::fillParamIndices() {
    int slot = method->isStatic() ? 0 : 1;
    for (int i = 0; i < types.getSize(); i++) {
        paramLocals.push(slot);
        exitLocals.push(slot);
        slot += isLongOrDouble(types[i]) ? 2 : 1;
    }
    if (references.onReturn < 0 && references.onException < 0) {
        return;
    }
    noteSaved(descriptor.onReturnParameters);
    noteSaved(descriptor.onExceptionParameters);
}

void ProbeBlocks::noteSaved(const ZVector<CallbackParameter>* parameters) {
    for (int i = 0; parameters != nullptr && i < parameters->getSize(); i++) {
        const CallbackParameter& parameter = (*parameters)[i];
        if (parameter.kind != CALLBACK_PARAM && parameter.kind != CALLBACK_PARAMS) {
            continue;
        }
        const bool isOne = parameter.kind == CALLBACK_PARAM;
        for (int k = 0; k < types.getSize(); k++) {
            const int slot = paramLocals[k];
            if ((!isOne || parameter.index == k + 1) &&
                (touched[slot] || (isLongOrDouble(types[k]) && touched[slot + 1]))) {
                exitLocals.set(k, -1);
            }
        }
    }
}

void ProbeBlocks::generate(bool methodHasSwitch, const bool* touchedLocals, int firstSlot) {
    hasSwitch = methodHasSwitch;
    touched = touchedLocals;
    nextSlot = firstSlot;
    getSignatureTypes(method->getDescriptor(), types, returnType);
    if (references.isGuard()) {
        fillParamIndices();
        insertGuard();
        return;
    }
    const ZString enterType =
        descriptor.onEnterDescriptor.isEmpty()
            ? ZString("V")
            : MethodInfo::getReturnTypeBySignature(viewOf(descriptor.onEnterDescriptor));
    if (descriptor.usesOnEnterResult && enterType != "V") {
        resultSlot = newLocal(enterType, true);
    }
    fillParamIndices();
    if (references.onEnter >= 0) {
        insertEntryCode(enterType);
    }
    insertSaveOnExitParamsCode();
    entryCodeSize = entry.getSize();
    if (hasSwitch) {
        entry.pad();
    }
    if (references.onException >= 0) {
        insertOnExceptionCode();
    }
    if (references.onReturn >= 0) {
        insertOnReturnCode();
    }
}

void ProbeBlocks::insertGuardCall(ProbeCode& block, int reference,
                                  const char* guardDescriptor) const {
    block.invokeStatic(references.currentThread, "()Ljava/lang/Thread;");
    block.invokeStatic(reference, guardDescriptor);
}

void ProbeBlocks::insertGuard() {
    insertGuardCall(entry, references.guardEnter, "(Ljava/lang/Thread;)Z");
    entry.testNested();
    answerWithoutCallback();
    entry.endOfTest();
    entryCodeSize = entry.getSize();
    exit.beginWith(DescriptorTypes::slotsOf(returnType.charAt(0)));
    insertGuardCall(exit, references.guardExit, "(Ljava/lang/Thread;)V");
    if (hasSwitch) {
        entry.pad();
        exit.pad();
    }
    handler.beginWith(1);
    insertGuardCall(handler, references.guardExit, "(Ljava/lang/Thread;)V");
    handler.generateThrow();
}

// Leaves a nested callback so that the woven method goes on as without it.
void ProbeBlocks::answerWithoutCallback() {
    const Utf8View name = method->getName();
    if (name == "onUncaughtExceptionExt") {
        const int parameter = findKind(descriptor.onExceptionParameters, CALLBACK_THROWN_EXCEPTION);
        entry.generateVariableLoad("Ljava/lang/Throwable;", paramLocals[parameter]);
        entry.generateThrow();
        return;
    }
    if (returnType != "V" && name == "onReturn") {
        const int parameter = findKind(descriptor.onReturnParameters, CALLBACK_RETURN_VALUE);
        entry.generateVariableLoad(returnType, paramLocals[parameter]);
    } else if (returnType != "V") {
        entry.generateZeroLoad(returnType);
    }
    entry.generateReturn(returnType);
}

void ProbeBlocks::insertSaveOnExitParamsCode() {
    const bool isThisRead = isTested ||
                            containsKind(descriptor.onReturnParameters, CALLBACK_THIS) ||
                            containsKind(descriptor.onExceptionParameters, CALLBACK_THIS);
    // Some compilers clear the variable for the garbage collector.
    if (!method->isStatic() && touched[0] && isThisRead &&
        (references.onReturn >= 0 || references.onException >= 0)) {
        const ZString type = ZString("L") + classFile->getSignature().toString() + ";";
        exitThis = newLocal(type, true);
        entry.generateVariableLoad(type, 0);
        entry.generateVariableStore(type, exitThis);
    }
    for (int i = 0; i < exitLocals.getSize(); i++) {
        if (exitLocals[i] == -1) {
            exitLocals.set(i, newLocal(types[i], true));
            entry.generateVariableLoad(types[i], paramLocals[i]);
            entry.generateVariableStore(types[i], exitLocals[i]);
        }
    }
}

void ProbeBlocks::testReceiver(ProbeCode& block) const {
    if (references.typeTest >= 0) {
        block.testReceiverByName(references.typeName, references.typeTest, thisFor(block));
    } else {
        block.testReceiver(references.instanceOfClass, thisFor(block));
    }
}

void ProbeBlocks::insertEntryCode(const ZString& enterType) {
    if (isTested) {
        Logger::assertTrue(!method->isStatic(), VDK_HERE);
        if (resultSlot >= 0) {
            entry.generateZeroLoad(enterType);
            entry.generateVariableStore(enterType, resultSlot);
        }
        testReceiver(entry);
    }
    loadCallbackParameters(entry, descriptor.onEnterParameters, descriptor.onEnterDescriptor,
                           paramLocals, -1);
    entry.invokeStatic(references.onEnter, descriptor.onEnterDescriptor);
    if (resultSlot >= 0) {
        entry.generateVariableStore(enterType, resultSlot);
    } else {
        entry.drop(enterType);
    }
    if (isTested) {
        entry.endOfTest();
    }
}

void ProbeBlocks::insertOnReturnCode() {
    const ZVector<CallbackParameter>* const parameters = descriptor.onReturnParameters;
    const bool isVoid = returnType == "V";
    // The return value, which stands below all that the block pushes.
    exit.beginWith(DescriptorTypes::slotsOf(returnType.charAt(0)));
    if (isTested) {
        testReceiver(exit);
    }
    int valueSlot = -1;
    if (!isVoid && containsKind(parameters, CALLBACK_RETURN_VALUE)) {
        if (!descriptor.replacesValue) {
            exit.duplicate(returnType);
        }
        valueSlot = newLocal(returnType, false);
        exit.generateVariableStore(returnType, valueSlot);
    } else if (!isVoid && descriptor.replacesValue) {
        exit.drop(returnType);
    }
    loadCallbackParameters(exit, parameters, descriptor.onReturnDescriptor, exitLocals, valueSlot);
    exit.invokeStatic(references.onReturn, descriptor.onReturnDescriptor);
    if (isTested) {
        exit.endOfTest();
    }
    if (hasSwitch) {
        exit.pad();
    }
}

// The exception is on the stack. Where the test fails it is thrown on, whichever callback it
// is.
void ProbeBlocks::insertOnExceptionCode() {
    const ZVector<CallbackParameter>* const parameters = descriptor.onExceptionParameters;
    const ZString throwable("Ljava/lang/Throwable;");
    const bool isSwallowed = descriptor.isExceptionExt;
    const bool isThrown = !isSwallowed || isTested;
    handler.beginWith(1);
    if (isTested) {
        testReceiver(handler);
    }
    int exceptionSlot = -1;
    if (containsKind(parameters, CALLBACK_THROWN_EXCEPTION)) {
        if (!isSwallowed) {
            handler.duplicate(throwable);
        }
        exceptionSlot = newLocal(throwable, false);
        handler.generateVariableStore(throwable, exceptionSlot);
    } else if (isSwallowed) {
        handler.drop(throwable);
    }
    loadCallbackParameters(handler, parameters, descriptor.onExceptionDescriptor, exitLocals,
                           exceptionSlot);
    if (hasSwitch) {
        // The call and what ends the block.
        handler.pad(3 + (isSwallowed ? 1 : 0) + (isThrown ? 1 : 0));
    }
    handler.invokeStatic(references.onException, descriptor.onExceptionDescriptor);
    if (isSwallowed) {
        handler.generateReturn(
            MethodInfo::getReturnTypeBySignature(viewOf(descriptor.onExceptionDescriptor)));
    }
    if (isTested) {
        handler.endOfTest();
    }
    if (isThrown) {
        handler.generateThrow();
    }
}

// What a callback receives, in its order. valueSlot: of the return value or the exception.
void ProbeBlocks::loadCallbackParameters(ProbeCode& block,
                                         const ZVector<CallbackParameter>* parameters,
                                         const ZString& callbackDescriptor,
                                         const ZVector<int>& locals, int valueSlot) {
    ZVectorSafe<ZString> calleeTypes;
    ZString calleeReturn;
    getSignatureTypes(callbackDescriptor, calleeTypes, calleeReturn);
    const int count = parameters == nullptr ? 0 : parameters->getSize();
    Logger::assertEquals(count, calleeTypes.getSize(), VDK_HERE);
    for (int i = 0; i < count; i++) {
        loadCallbackParameter(block, (*parameters)[i], calleeTypes[i], locals, valueSlot);
    }
}

void ProbeBlocks::loadCallbackParameter(ProbeCode& block, const CallbackParameter& parameter,
                                        const ZString& calleeType, const ZVector<int>& locals,
                                        int valueSlot) {
    switch (parameter.kind) {
    case CALLBACK_THIS:
        block.loadThis(method->isStatic(), references.instanceOfClass, thisFor(block));
        return;
    case CALLBACK_PARAMS:
        block.generateLoadAllParamsCode(types, locals);
        return;
    case CALLBACK_PARAM:
        block.generateLoadParamCode(parameter.index - 1, calleeType, types, locals);
        return;
    case CALLBACK_RETURN_VALUE:
        if (&block != &exit) {
            break;
        }
        if (returnType == "V") {
            block.generateZeroLoad(calleeType);
        } else {
            block.generateConvertedLoad(returnType, valueSlot, calleeType);
        }
        return;
    case CALLBACK_THROWN_EXCEPTION:
        if (&block != &handler) {
            break;
        }
        block.generateVariableLoad("Ljava/lang/Throwable;", valueSlot);
        return;
    case CALLBACK_ON_ENTER_RESULT:
        if (&block == &entry) {
            break;
        }
        Logger::assertTrue(resultSlot >= 0, VDK_HERE);
        block.generateVariableLoad(calleeType, resultSlot);
        return;
    default:
        if (block.handleMethodNamesCPK(parameter.kind, method)) {
            return;
        }
        break;
    }
    Logger::error(ZString("unexpected callback parameter kind: ") + longToString(parameter.kind),
                  VDK_HERE);
}
