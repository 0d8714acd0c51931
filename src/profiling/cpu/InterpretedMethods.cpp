// Up to Java 25 a handle is the address of a word with the address of the JVM's structure; the word
// stays as long as the JVM runs, and becomes another when the class is redefined or unloaded. An
// entry whose handle leads elsewhere by now is void.
//
// One writer at a time; readers look at the key again after they have read the rest.
#include "profiling/cpu/InterpretedMethods.h"

#include "core/ground/ZLock.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "profiling/cpu/JvmLayout.h"
#include "profiling/cpu/RawMemory.h"

#include <atomic>

namespace {

const uint64_t ENTRIES = 1 << 13;
// More would make searches long; then all begins anew.
const int MOST_METHODS = ENTRIES / 2;
const uint64_t LONGEST_SEARCH = 16;
const uint64_t SPREAD = 0x9e3779b97f4a7c15u; // 2^64 divided by the golden ratio
const int ENTRY_BITS = 13;

struct Entry {
    std::atomic<uintptr_t> jvmMethod; // 0: none
    std::atomic<uintptr_t> code;      // its bytecode
    std::atomic<uintptr_t> codeBytes; // 0 for native methods
    std::atomic<jmethodID> method;
};

Entry ourEntries[ENTRIES];
int ourCount = 0;
ZLock& ourMethodsLock = *new ZLock("InterpretedMethodsLock");

ptrdiff_t ourConstMethodAt = JvmLayout::UNKNOWN;
ptrdiff_t ourCodeSizeAt = JvmLayout::UNKNOWN;
ptrdiff_t ourConstMethodBytes = JvmLayout::UNKNOWN; // the bytecode comes behind it

Entry& entryAt(uint64_t hash, uint64_t i) {
    return ourEntries[(hash + i) % ENTRIES];
}

uint64_t hashOf(uintptr_t jvmMethod) {
    return (jvmMethod * SPREAD) >> (64 - ENTRY_BITS);
}

uintptr_t jvmMethodOf(jmethodID method) {
    return RawMemory::wordAt(reinterpret_cast<uintptr_t>(method));
}

// Caller holds the lock.
void forgetAll() {
    for (Entry& entry : ourEntries) {
        entry.jvmMethod = 0;
    }
    ourCount = 0;
}

// Caller holds the lock, and a reference to the class.
void add(jmethodID method, bool isNative) {
    const uintptr_t jvmMethod = jvmMethodOf(method);
    if (jvmMethod == 0) {
        return;
    }
    if (ourCount >= MOST_METHODS) {
        forgetAll();
    }
    const uintptr_t constMethod =
        RawMemory::wordAt(jvmMethod + static_cast<uintptr_t>(ourConstMethodAt));
    const uintptr_t codeBytes =
        RawMemory::read<uint16_t>(constMethod + static_cast<uintptr_t>(ourCodeSizeAt));
    for (uint64_t i = 0; i < LONGEST_SEARCH; i++) {
        Entry& entry = entryAt(hashOf(jvmMethod), i);
        const uintptr_t found = entry.jvmMethod;
        if (found != 0 && found != jvmMethod) {
            continue;
        }
        ourCount += found == 0 ? 1 : 0;
        entry.jvmMethod = 0;
        entry.code = constMethod + static_cast<uintptr_t>(ourConstMethodBytes);
        entry.codeBytes = isNative ? 0 : codeBytes;
        entry.method = method;
        entry.jvmMethod = jvmMethod;
        break;
    }
}

} // namespace

bool InterpretedMethods::prepare() {
    ourConstMethodAt = JvmLayout::offsetOf("Method", "_constMethod");
    ourCodeSizeAt = JvmLayout::offsetOf("ConstMethod", "_code_size");
    ourConstMethodBytes = JvmLayout::sizeOf("ConstMethod");
    return ourConstMethodAt != JvmLayout::UNKNOWN && ourCodeSizeAt != JvmLayout::UNKNOWN &&
           ourConstMethodBytes != JvmLayout::UNKNOWN;
}

void InterpretedMethods::learn(JNIEnv* env, jmethodID method) {
    // The class stays while there is a reference to it, and with it the structures.
    jclass type = nullptr;
    jboolean isNative = JNI_FALSE;
    if (ourJVMTI->GetMethodDeclaringClass(method, &type) != JVMTI_ERROR_NONE) {
        return;
    }
    if (ourJVMTI->IsMethodNative(method, &isNative) == JVMTI_ERROR_NONE) {
        LockHolder lock(ourMethodsLock);
        add(method, isNative == JNI_TRUE);
    }
    env->DeleteLocalRef(type);
}

void InterpretedMethods::clear() {
    LockHolder lock(ourMethodsLock);
    forgetAll();
}

jmethodID InterpretedMethods::find(uintptr_t jvmMethod, uintptr_t instruction, jint* position) {
    if (jvmMethod == 0) {
        return nullptr;
    }
    for (uint64_t i = 0; i < LONGEST_SEARCH; i++) {
        const Entry& entry = entryAt(hashOf(jvmMethod), i);
        const uintptr_t found = entry.jvmMethod;
        if (found == 0) {
            break;
        }
        if (found != jvmMethod) {
            continue;
        }
        const uintptr_t code = entry.code;
        const uintptr_t codeBytes = entry.codeBytes;
        const jmethodID method = entry.method;
        if (entry.jvmMethod != jvmMethod || jvmMethodOf(method) != jvmMethod) {
            break;
        }
        if (codeBytes == 0) {
            *position = -1;
            return method;
        }
        const bool isInCode = instruction >= code && instruction - code < codeBytes;
        *position = isInCode ? static_cast<jint>(instruction - code) : -1;
        return isInCode ? method : nullptr;
    }
    return nullptr;
}
