#include "classfile/OpCodes.h"
#include "core/ground/JavaNames.h"
#include "instrument/ProbeWeaving.h"

namespace {

// What compiled code does by itself, and nobody weaves.
bool readsTheClock(const ConstantPool& pool, int index) {
    const auto& method =
        static_cast<const ConstantMethodRefInfo&>(pool.getEntry(index, CONSTANT_METHOD_REF));
    return method.getClassSignature(pool) == "java/lang/System" &&
           method.getMethodName(pool) == "nanoTime";
}

bool callsAnything(const CodeAttribute* attribute, const ConstantPool& pool) {
    const unsigned char* const code = attribute->getCode();
    const int length = attribute->getCodeLength();
    for (int position = 0; position < length; position = nextInstruction(code, length, position)) {
        const unsigned char opcode = code[position];
        const int index = opcode >= OPC_INVOKEVIRTUAL && opcode <= OPC_INVOKEDYNAMIC
                              ? readCodeUnsignedShort(code, position + 1)
                              : 0;
        if (index > 0 &&
            (opcode != OPC_INVOKESTATIC || pool[index]->getTag() != CONSTANT_METHOD_REF ||
             !readsTheClock(pool, index))) {
            return true;
        }
    }
    return false;
}

// The type of the parameter of a kind, or an empty text.
ZString typeOf(CallbackParameterKind kind, const ZVector<CallbackParameter>* parameters,
               const MethodInfo* callback) {
    ZVectorSafe<ZString> types;
    callback->getParameterTypes(types);
    for (int i = 0; parameters != nullptr && i < parameters->getSize() && i < types.getSize();
         i++) {
        if ((*parameters)[i].kind == kind) {
            return types[i];
        }
    }
    return ZString();
}

int staticMethod(ClassFile* classFile, const char* owner, const char* name,
                 const char* descriptor) {
    return classFile->findOrCreateMethodRef(
        classFile->findOrCreateConstantClass(classFile->findOrCreateUtf8(owner)),
        classFile->findOrCreateUtf8(name), classFile->findOrCreateUtf8(descriptor));
}

class CallbackGuards {
public:
    CallbackGuards(const ProbeDescriptor& probe, ClassFile* owner)
        : descriptor(probe), classFile(owner), effects(owner->getConstantPool()) {}

    bool run() {
        guard("onEnter", descriptor.onEnterDescriptor);
        guard("onReturn", descriptor.onReturnDescriptor);
        guard(descriptor.isExceptionExt ? "onUncaughtExceptionExt" : "onUncaughtException",
              descriptor.onExceptionDescriptor);
        return anyChange;
    }

private:
    void guard(const char* name, const ZString& callbackDescriptor) {
        if (callbackDescriptor.isEmpty()) {
            return;
        }
        MethodInfo* const callback = classFile->findMethod(
            name, Utf8View(callbackDescriptor.c_str(), callbackDescriptor.getLength()));
        if (callback == nullptr || callback->getCodeAttribute() == nullptr ||
            !callsAnything(callback->getCodeAttribute(), classFile->getConstantPool()) ||
            !mayBeLeftOut(callback)) {
            return;
        }
        findReferences();
        scratch.reset();
        const MethodOutcome outcome = instrumentMethodByProbeDescriptor(
            classFile, callback, descriptor, references, effects, scratch);
        anyChange = anyChange || outcome == METHOD_OUTCOME_INSTRUMENTED;
        if (outcome != METHOD_OUTCOME_INSTRUMENTED) {
            Logger::message(ZString("callback without a guard against its own calls: ") +
                            classFile->getSignature().toString() + "." + name + ": " +
                            methodOutcomeText(outcome));
        }
    }

    // Whether it knows how the method would end without it.
    bool mayBeLeftOut(const MethodInfo* callback) const {
        if (callback->getName() == "onUncaughtExceptionExt") {
            return !typeOf(CALLBACK_THROWN_EXCEPTION, descriptor.onExceptionParameters, callback)
                        .isEmpty();
        }
        return callback->isVoid() || callback->getName() == "onEnter" ||
               typeOf(CALLBACK_RETURN_VALUE, descriptor.onReturnParameters, callback) ==
                   callback->getReturnType();
    }

    void findReferences() {
        if (references.isGuard()) {
            return;
        }
        references.currentThread =
            staticMethod(classFile, "java/lang/Thread", "currentThread", "()Ljava/lang/Thread;");
        references.guardEnter =
            staticMethod(classFile, CALLBACK_CLASS, "vdkProbeEnter0", "(Ljava/lang/Thread;)Z");
        references.guardExit =
            staticMethod(classFile, CALLBACK_CLASS, "vdkProbeExit0", "(Ljava/lang/Thread;)V");
    }

    const ProbeDescriptor& descriptor;
    ClassFile* classFile;
    ProbeReferences references;
    StackEffects effects;
    ClassArena scratch;
    bool anyChange = false;
};

} // namespace

bool guardCallbacks(const ProbeDescriptor& descriptor, ClassFile* classFile) {
    Logger::assertNotNULL(classFile, VDK_HERE);
    return CallbackGuards(descriptor, classFile).run();
}
