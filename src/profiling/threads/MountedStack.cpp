#include "profiling/threads/MountedStack.h"

#include "core/jvm/CommonUtils.h"
#include "core/jvm/JvmGlobals.h"

#include <cstring>

namespace {

const int TRIES = 3;
// can_support_virtual_threads, which headers before 21 do not name: bit 44 of the structure.
const size_t CAPABILITY_BYTE = 5;
const unsigned char CAPABILITY_BIT = 1 << 4;

// The function asks for the right to be told of virtual threads. It is taken no sooner than it is
// needed, and brings no event that is not asked for.
bool takeCapability() {
    jvmtiCapabilities potential = {};
    jvmtiCapabilities wanted = {};
    unsigned char bytes[sizeof(jvmtiCapabilities)];
    if (ourJVMTI->GetPotentialCapabilities(&potential) != JVMTI_ERROR_NONE) {
        return false;
    }
    memcpy(bytes, &potential, sizeof(bytes));
    if ((bytes[CAPABILITY_BYTE] & CAPABILITY_BIT) == 0) {
        return false;
    }
    memset(bytes, 0, sizeof(bytes));
    bytes[CAPABILITY_BYTE] = CAPABILITY_BIT;
    memcpy(&wanted, bytes, sizeof(bytes));
    return ourJVMTI->AddCapabilities(&wanted) == JVMTI_ERROR_NONE;
}

void freeDescription(const jvmtiExtensionFunctionInfo& function) {
    for (jint i = 0; i < function.param_count; i++) {
        deallocateQuietly(function.params[i].name);
    }
    deallocateQuietly(function.params);
    deallocateQuietly(function.errors);
    deallocateQuietly(function.short_description);
    deallocateQuietly(function.id);
}

} // namespace

jvmtiExtensionFunction findVirtualThreadFunction(const char* id) {
    jint count = 0;
    JvmtiMemory<jvmtiExtensionFunctionInfo> functions;
    if (ourJVMTI->GetExtensionFunctions(&count, functions.receive()) != JVMTI_ERROR_NONE) {
        return nullptr;
    }
    jvmtiExtensionFunction found = nullptr;
    for (jint i = 0; i < count; i++) {
        const jvmtiExtensionFunctionInfo& function = functions.get()[i];
        if (strcmp(function.id, id) == 0) {
            found = function.func;
        }
        freeDescription(function);
    }
    return found != nullptr && takeCapability() ? found : nullptr;
}

namespace {

jvmtiExtensionFunction getFunction() {
    static const jvmtiExtensionFunction function =
        findVirtualThreadFunction("com.sun.hotspot.functions.GetVirtualThread");
    return function;
}

// The virtual thread that the carrier runs, as a local reference; null for none.
jthread getMounted(jthread carrier) {
    jthread mounted = nullptr;
    const jvmtiError error = getFunction()(ourJVMTI, carrier, &mounted);
    return error == JVMTI_ERROR_NONE ? mounted : nullptr;
}

// Null without frames, which an unmounted thread that has ended has none of.
jvmtiStackInfo* takeStack(jthread thread, jint maxFrames) {
    jvmtiStackInfo* stack = nullptr;
    if (ourJVMTI->GetThreadListStackTraces(1, &thread, maxFrames, &stack) != JVMTI_ERROR_NONE) {
        return nullptr;
    }
    if (stack->frame_count == 0) {
        deallocateQuietly(stack);
        return nullptr;
    }
    return stack;
}

} // namespace

bool canSeeMountedThreads() {
    return getFunction() != nullptr;
}

jvmtiStackInfo* takeMountedStack(JNIEnv* env, jthread carrier, jint maxFrames) {
    jthread mounted = getMounted(carrier);
    jvmtiStackInfo* stack = nullptr;
    for (int i = 0; i < TRIES && mounted != nullptr && stack == nullptr; i++) {
        stack = takeStack(mounted, maxFrames);
        jthread afterwards = getMounted(carrier);
        if (!env->IsSameObject(mounted, afterwards)) {
            // The stack is one of a thread that waits by now, or runs elsewhere.
            deallocateQuietly(stack);
            stack = nullptr;
        }
        env->DeleteLocalRef(mounted);
        mounted = afterwards;
    }
    env->DeleteLocalRef(mounted);
    return stack;
}
