#include "profiling/threads/OldActivations.h"

#include "core/ground/Options.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"

#include <string.h>

namespace {

// What inserted calls begin with: both halves of the number of the method.
constexpr int CALL_LENGTH = 7;
constexpr unsigned char OPCODE_SIPUSH = 0x11;
constexpr unsigned char OPCODE_INVOKESTATIC = 0xb8;

bool holdsCallOf(const unsigned char* code, int length, int method) {
    const auto byteOf = [method](int shift) { return static_cast<unsigned char>(method >> shift); };
    const unsigned char call[CALL_LENGTH] = {OPCODE_SIPUSH,      byteOf(8),  byteOf(0),
                                             OPCODE_SIPUSH,      byteOf(24), byteOf(16),
                                             OPCODE_INVOKESTATIC};
    return memmem(code, static_cast<size_t>(length), call, CALL_LENGTH) != nullptr;
}

} // namespace

void prepareOldActivations() {
    jvmtiCapabilities wanted = {};
    wanted.can_get_bytecodes = 1;
    // Without them old activations count as without calls.
    static_cast<void>(ourJVMTI->AddCapabilities(&wanted));
}

bool carriesCalls(jmethodID activation, int method) {
    jboolean isObsolete = JNI_FALSE;
    if (!ourOptions->onDemand ||
        ourJVMTI->IsMethodObsolete(activation, &isObsolete) != JVMTI_ERROR_NONE ||
        isObsolete == JNI_FALSE) {
        return true;
    }
    jint length = 0;
    JvmtiMemory<unsigned char> code;
    return ourJVMTI->GetBytecodes(activation, &length, code.receive()) == JVMTI_ERROR_NONE &&
           holdsCallOf(code.get(), length, method);
}
