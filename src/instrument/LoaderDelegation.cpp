#include "instrument/LoaderDelegation.h"

#include "classfile/ByteCodeGenerator.h"
#include "classfile/OpCodes.h"

namespace {

const char AGENT_PACKAGE[] = "com.vandrik.";
// A multiple of 4, so that switches keep their padding.
constexpr int PREFIX = 20;

bool isLoadClass(const MethodInfo* method) {
    return (method->getAccessFlags() & (ACC_STATIC | ACC_ABSTRACT)) == 0 &&
           method->getName() == "loadClass" &&
           (method->getDescriptor() == "(Ljava/lang/String;Z)Ljava/lang/Class;" ||
            method->getDescriptor() == "(Ljava/lang/String;)Ljava/lang/Class;");
}

int methodRef(ClassFile* classFile, const char* owner, const char* name, const char* descriptor) {
    const int ownerIndex = classFile->findOrCreateConstantClass(classFile->findOrCreateUtf8(owner));
    const int nameIndex = classFile->findOrCreateUtf8(name);
    return classFile->findOrCreateMethodRef(ownerIndex, nameIndex,
                                            classFile->findOrCreateUtf8(descriptor));
}

// if (name != null && name.startsWith(AGENT_PACKAGE)) return Class.forName(name);
void generateDelegation(ClassFile* classFile, ByteCodeGenerator& generator) {
    generator.push(OPC_NOP);
    generator.aload(1);
    generator.openJump(OPC_IFNULL);
    generator.aload(1);
    generator.push(OPC_LDC_W);
    generator.pushShortValue(classFile->findOrCreateStringInfo(AGENT_PACKAGE));
    generator.push(OPC_INVOKEVIRTUAL);
    generator.pushShortValue(
        methodRef(classFile, "java/lang/String", "startsWith", "(Ljava/lang/String;)Z"));
    generator.openJump(OPC_IFEQ);
    generator.aload(1);
    generator.push(OPC_INVOKESTATIC);
    generator.pushShortValue(methodRef(classFile, "java/lang/Class", "forName",
                                       "(Ljava/lang/String;)Ljava/lang/Class;"));
    generator.push(OPC_ARETURN);
    generator.closeJump();
    generator.closeJump();
    Logger::assertEquals(generator.getSize(), PREFIX, VDK_HERE);
}

bool prependDelegation(ClassFile* classFile, MethodInfo* method) {
    CodeAttribute* const attribute = method->getCodeAttribute();
    const int length = attribute == nullptr ? 0 : attribute->getCodeLength();
    if (attribute == nullptr || attribute->findOpaqueAttribute() != nullptr ||
        length + PREFIX > 0xffff) {
        return false;
    }
    ByteCodeGenerator generator;
    generateDelegation(classFile, generator);
    ClassArena& arena = classFile->getArena();
    unsigned char* const code = arena.allocateArray<unsigned char>(length + PREFIX);
    generator.copyTo(code, 0);
    memcpy(code + PREFIX, attribute->getCode(), static_cast<size_t>(length));
    int* const map = arena.allocateArray<int>(length + 1);
    for (int i = 0; i <= length; i++) {
        map[i] = i + PREFIX;
    }
    attribute->adoptCode(code, length + PREFIX);
    attribute->ensureStackCapacity(2);
    attribute->shiftTables(CodeOffsets(map, length), true);
    attribute->addStackMapFrames(generator.getJumpTargets(), 0,
                                 VerificationType(VERIFICATION_TOP, -1), -1);
    return true;
}

} // namespace

bool mayDefineLoader(const Utf8View& className) {
    return !className.startsWith("java/") && !className.startsWith("jdk/") &&
           !className.startsWith("sun/");
}

bool declaresLoadClass(ClassFile* classFile) {
    for (int i = 0; i < classFile->getMethods().getSize(); i++) {
        if (isLoadClass(classFile->getMethods()[i])) {
            return true;
        }
    }
    return false;
}

Delegation patchLoaderDelegation(ClassFile* classFile) {
    // An interface's method never is the one that runs in a loader: ClassLoader has its own.
    if (!mayDefineLoader(classFile->getSignature()) ||
        (classFile->getAccessFlags() & ACC_INTERFACE) != 0) {
        return Delegation::NONE;
    }
    Delegation result = Delegation::NONE;
    const int count = classFile->getMethods().getSize();
    for (int i = 0; i < count; i++) {
        MethodInfo* const method = classFile->getMethods()[i];
        if (!isLoadClass(method)) {
            continue;
        }
        if (!prependDelegation(classFile, method)) {
            Logger::message(ZString("warning: cannot make class loader find the agent: ") +
                            classFile->getSignature().toString());
            return Delegation::IMPOSSIBLE;
        }
        result = Delegation::PATCHED;
    }
    return result;
}
