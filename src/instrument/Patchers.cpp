#include "instrument/Patchers.h"

#include "classfile/ByteCodeGenerator.h"
#include "classfile/ClassFile.h"
#include "classfile/OpCodes.h"
#include "core/ground/JavaNames.h"

namespace {

struct Patch {
    const char* method;
    const char* native;
    const char* descriptor;
    int firstLoad; // loads the first of the two arguments
    int returnOpcode;
};

const Patch TRACING_PATCHES[] = {
    {"vdkMethodEntry", "vdkMethodEntry0", "(SS)V", OPC_ILOAD_0, OPC_RETURN},
    {"vdkMethodExit", "vdkMethodExit0", "(SS)V", OPC_ILOAD_0, OPC_RETURN},
    {"vdkMethodCatch", "vdkMethodCatch0", "(SS)V", OPC_ILOAD_0, OPC_RETURN},
};
const Patch KEEPING_PATCHES[] = {
    {"vdkMethodEntry", "vdkMethodEntryK", "(SS)V", OPC_ILOAD_0, OPC_RETURN},
    {"vdkMethodExit", "vdkMethodExitK", "(SS)V", OPC_ILOAD_0, OPC_RETURN},
    {"vdkMethodCatch", "vdkMethodCatch0", "(SS)V", OPC_ILOAD_0, OPC_RETURN},
};
const Patch ALLOCATION_PATCHES[] = {
    {"vdkInit", "vdkInit0", "(Ljava/lang/Object;I)I", OPC_ALOAD_0, OPC_IRETURN},
};

void apply(ClassFile& classFile, const Patch& patch) {
    MethodInfo* const method = classFile.findMethod(patch.method, patch.descriptor);
    Logger::assertNotNULL(method, VDK_HERE);
    const int callback =
        classFile.findOrCreateConstantClass(classFile.findOrCreateUtf8(CALLBACK_CLASS));
    const int name = classFile.findOrCreateUtf8(patch.native);
    const int reference = classFile.findOrCreateMethodRef(
        callback, name, classFile.findOrCreateUtf8(patch.descriptor));
    ByteCodeGenerator generator;
    generator.push(patch.firstLoad);
    generator.push(OPC_ILOAD_1);
    generator.push(OPC_INVOKESTATIC);
    generator.pushShortValue(reference);
    generator.push(patch.returnOpcode);
    CodeAttribute* const attribute = method->getCodeAttribute();
    generator.installInto(attribute);
    attribute->incMaxStackCount(2);
}

template <int N>
void patchCallback(ZVector<unsigned char>& input, ZVector<unsigned char>& output,
                   const Patch (&patches)[N]) {
    Logger::assertTrue(!input.isEmpty() && output.isEmpty(), VDK_HERE);
    DataInput in(input);
    ClassFile classFile(in);
    Logger::assertTrue(!classFile.isInvalid(), VDK_HERE);
    for (const Patch& patch : patches) {
        apply(classFile, patch);
    }
    DataOutput out(output);
    classFile.writeClass(out);
}

} // namespace

void patchCallbackToEnableTracing(ZVector<unsigned char>& input, ZVector<unsigned char>& output,
                                  bool keepCalls) {
    patchCallback(input, output, keepCalls ? KEEPING_PATCHES : TRACING_PATCHES);
}

void patchCallbackToEnableAllocations(ZVector<unsigned char>& input,
                                      ZVector<unsigned char>& output) {
    patchCallback(input, output, ALLOCATION_PATCHES);
}
