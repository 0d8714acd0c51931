#include "instrument/ProbeCode.h"

#include "classfile/OpCodes.h"
#include "probes/SignatureUtil.h"

namespace {

// The five families of loads, stores, zeros and returns, in the order of their opcodes.
enum Family { INTS, LONGS, FLOATS, DOUBLES, REFERENCES };

Family familyOf(const ZString& type, const char* complaint) {
    switch (type.charAt(0)) {
    case 'B':
    case 'C':
    case 'I':
    case 'S':
    case 'Z':
        return INTS;
    case 'J':
        return LONGS;
    case 'F':
        return FLOATS;
    case 'D':
        return DOUBLES;
    case 'L':
    case '[':
        return REFERENCES;
    default:
        Logger::error(ZString(complaint) + type, VDK_HERE);
    }
}

Family familyOf(const ZString& type) {
    return familyOf(type, "unexpected java type: ");
}

int slotsOf(const ZString& type) {
    return DescriptorTypes::slotsOf(type.charAt(0));
}

const int ZEROS[] = {OPC_ICONST_0, OPC_LCONST_0, OPC_FCONST_0, OPC_DCONST_0, OPC_ACONST_NULL};

struct Box {
    char type;
    const char* className;
    const char* descriptor; // of its valueOf
};
const Box BOXES[] = {
    {'Z', "java/lang/Boolean", "(Z)Ljava/lang/Boolean;"},
    {'B', "java/lang/Byte", "(B)Ljava/lang/Byte;"},
    {'C', "java/lang/Character", "(C)Ljava/lang/Character;"},
    {'D', "java/lang/Double", "(D)Ljava/lang/Double;"},
    {'F', "java/lang/Float", "(F)Ljava/lang/Float;"},
    {'I', "java/lang/Integer", "(I)Ljava/lang/Integer;"},
    {'J', "java/lang/Long", "(J)Ljava/lang/Long;"},
    {'S', "java/lang/Short", "(S)Ljava/lang/Short;"},
};

// ldc of a class.
constexpr int FIRST_VERSION_WITH_CLASS_CONSTANTS = 49;

} // namespace

bool isLongOrDouble(const ZString& type) {
    return slotsOf(type) == 2;
}

bool isReferenceType(const ZString& type) {
    return type.charAt(0) == 'L' || type.charAt(0) == '[';
}

bool isJavaLangObject(const ZString& type) {
    return type == "Ljava/lang/Object;";
}

void ProbeCode::grow(int slots) {
    depth += slots;
    maxDepth = depth > maxDepth ? depth : maxDepth;
}

void ProbeCode::instruction(int opcode, int operand) {
    generator.push(opcode);
    generator.pushShortValue(operand);
}

void ProbeCode::generateVariableLoad(const ZString& type, int slot) {
    const Family family = familyOf(type);
    generator.load(OPC_ILOAD_0 + 4 * family, OPC_ILOAD + family, slot);
    grow(slotsOf(type));
}

void ProbeCode::generateVariableStore(const ZString& type, int slot) {
    const Family family = familyOf(type);
    generator.load(OPC_ISTORE_0 + 4 * family, OPC_ISTORE + family, slot);
    grow(-slotsOf(type));
}

void ProbeCode::generateZeroLoad(const ZString& type) {
    generator.push(ZEROS[familyOf(type)]);
    grow(slotsOf(type));
}

int ProbeCode::getValueOfIndex(const ZString& type) {
    for (const Box& box : BOXES) {
        if (box.type == type.charAt(0)) {
            const int owner =
                classFile->findOrCreateConstantClass(classFile->findOrCreateUtf8(box.className));
            const int name = classFile->findOrCreateUtf8("valueOf");
            return classFile->findOrCreateMethodRef(owner, name,
                                                    classFile->findOrCreateUtf8(box.descriptor));
        }
    }
    Logger::error(ZString("unexpected java type: ") + type, VDK_HERE);
}

void ProbeCode::box(const ZString& type) {
    instruction(OPC_INVOKESTATIC, getValueOfIndex(type));
    grow(1 - slotsOf(type));
}

void ProbeCode::generateConvertedLoad(const ZString& type, int slot, const ZString& calleeType) {
    if (isJavaLangObject(calleeType)) {
        generateVariableLoad(type, slot);
        if (!isReferenceType(type)) {
            box(type);
        }
    } else if (calleeType == type) {
        generateVariableLoad(type, slot);
    } else {
        generateZeroLoad(calleeType);
    }
}

void ProbeCode::generateLoadParamCode(int index, const ZString& calleeType,
                                      const ZVectorSafe<ZString>& types,
                                      const ZVector<int>& locals) {
    if (index < 0 || index >= types.getSize()) {
        generateZeroLoad(calleeType);
        return;
    }
    generateConvertedLoad(types[index], locals[index], calleeType);
}

void ProbeCode::pushInt(int value) {
    if (value <= 5) {
        generator.push(OPC_ICONST_0 + value);
    } else if (value <= 127) {
        generator.push(OPC_BIPUSH);
        generator.push(value);
    } else {
        instruction(OPC_SIPUSH, value);
    }
    grow(1);
}

void ProbeCode::generateLoadAllParamsCode(const ZVectorSafe<ZString>& types,
                                          const ZVector<int>& locals) {
    const ZString object("Ljava/lang/Object;");
    pushInt(types.getSize());
    instruction(OPC_ANEWARRAY, classFile->findOrCreateConstantClass(
                                   classFile->findOrCreateUtf8("java/lang/Object")));
    for (int i = 0; i < types.getSize(); i++) {
        duplicate(object);
        pushInt(i);
        generateConvertedLoad(types[i], locals[i], object);
        generator.push(OPC_AASTORE);
        grow(-3);
    }
}

void ProbeCode::loadConstant(int index) {
    if (index > 255) {
        instruction(OPC_LDC_W, index);
    } else {
        generator.push(OPC_LDC);
        generator.push(index);
    }
    grow(1);
}

bool ProbeCode::handleMethodNamesCPK(CallbackParameterKind kind, const MethodInfo* method) {
    switch (kind) {
    case CALLBACK_METHOD_NAME:
        loadConstant(classFile->findOrCreateStringInfo(method->getName()));
        return true;
    case CALLBACK_METHOD_SIGNATURE:
        loadConstant(classFile->findOrCreateStringInfo(method->getDescriptor()));
        return true;
    case CALLBACK_METHOD_PARAMETER_TYPES: {
        const ZString text =
            SignatureUtil::convertMethodSignatureToParameters(method->getDescriptor());
        loadConstant(classFile->findOrCreateStringInfo(Utf8View(text.c_str(), text.getLength())));
        return true;
    }
    case CALLBACK_CLASS_REF:
        classFile->ensureMajorVersion(FIRST_VERSION_WITH_CLASS_CONSTANTS);
        loadConstant(classFile->getThisClass());
        return true;
    default:
        return false;
    }
}

void ProbeCode::loadThis(bool isStatic, int checkedClass, int slot) {
    if (isStatic) {
        generator.push(OPC_ACONST_NULL);
    } else {
        generator.aload(slot);
        if (checkedClass >= 0) {
            instruction(OPC_CHECKCAST, checkedClass);
        }
    }
    grow(1);
}

void ProbeCode::duplicate(const ZString& type) {
    generator.push(isLongOrDouble(type) ? OPC_DUP2 : OPC_DUP);
    grow(slotsOf(type));
}

void ProbeCode::drop(const ZString& type) {
    if (slotsOf(type) > 0) {
        generator.push(isLongOrDouble(type) ? OPC_POP2 : OPC_POP);
        grow(-slotsOf(type));
    }
}

void ProbeCode::invokeStatic(int reference, const ZString& descriptor) {
    const Utf8View text(descriptor.c_str(), descriptor.getLength());
    instruction(OPC_INVOKESTATIC, reference);
    grow(-DescriptorTypes::parameterSlots(text));
    grow(DescriptorTypes::returnSlots(text));
}

void ProbeCode::generateReturn(const ZString& type) {
    if (type == "V") {
        generator.push(OPC_RETURN);
        return;
    }
    generator.push(OPC_IRETURN + familyOf(type, "unexpected java return type: "));
    grow(-slotsOf(type));
}

void ProbeCode::generateThrow() {
    generator.push(OPC_ATHROW);
}

void ProbeCode::testReceiver(int classIndex, int slot) {
    loadThis(false, -1, slot);
    instruction(OPC_INSTANCEOF, classIndex);
    generator.openJump(OPC_IFEQ);
    grow(-1);
}

void ProbeCode::testReceiverByName(int nameIndex, int testReference, int slot) {
    loadThis(false, -1, slot);
    loadConstant(nameIndex);
    invokeStatic(testReference, TYPE_TEST_DESCRIPTOR);
    testNested();
}

void ProbeCode::testNested() {
    generator.openJump(OPC_IFEQ);
    grow(-1);
}

void ProbeCode::pad(int more) {
    while ((generator.getSize() + more) % 4 != 0) {
        generator.push(OPC_NOP);
    }
}
