#include "core/jvm/CommonUtils.h"

#include "core/ground/Globals.h"
#include "core/ground/Logger.h"
#include "core/jvm/JvmGlobals.h"

#include <cstdio>

void deallocateQuietly(void* memory) noexcept {
    if (memory != nullptr && ourJVMTI != nullptr) {
        ourJVMTI->Deallocate(static_cast<unsigned char*>(memory));
    }
}

void deallocate(void* memory) {
    if (memory == nullptr) {
        return;
    }
    Logger::assertNotNULL(ourJVMTI, VDK_HERE);
    CHECK_JVMTI(ourJVMTI->Deallocate(static_cast<unsigned char*>(memory)));
}

void check_JVMTI_error_impl(jvmtiError error, const char* file, int line) {
    if (error == JVMTI_ERROR_NONE) {
        return;
    }
    ZString text("ERROR: JVMTI error ");
    text.appendLong(error);
    text.append(":");
    char* name = nullptr;
    if (ourJVMTI != nullptr && ourJVMTI->GetErrorName(error, &name) == JVMTI_ERROR_NONE &&
        name != nullptr) {
        text.append(name);
        // Checked by nobody: a failure here would end in this function again.
        deallocateQuietly(name);
    }
    text.append(" at ");
    text.append(Logger::place(file, line));
    Logger::error(text, VDK_HERE);
}

ZString getSystemProperty(const char* key) {
    JvmtiMemory<char> value;
    if (ourJVMTI == nullptr ||
        ourJVMTI->GetSystemProperty(key, value.receive()) != JVMTI_ERROR_NONE ||
        value.get() == nullptr) {
        return ZString();
    }
    return ZString(value.get());
}

int getJVMTIPhase() {
    jvmtiPhase phase;
    if (ourJVMTI == nullptr || ourJVMTI->GetPhase(&phase) != JVMTI_ERROR_NONE) {
        return -1;
    }
    return phase;
}

void iterateOverHeapEither(jvmtiEnv* jvmti, jvmtiHeapObjectCallback callback, void* data) {
    if (ourIsJRockit) {
        CHECK_JVMTI(jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_TAGGED, callback, data));
        CHECK_JVMTI(jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_UNTAGGED, callback, data));
        return;
    }
    CHECK_JVMTI(jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_EITHER, callback, data));
}

ZString toHexadecimal(unsigned long value, int digits) {
    char text[32];
    snprintf(text, sizeof text, "%0*lX", digits, value);
    return ZString(text);
}

void clearAllTags(jvmtiEnv* jvmti) {
    const auto clearTag = [](jlong, jlong, jlong* tag, void*) {
        *tag = 0;
        return JVMTI_ITERATION_CONTINUE;
    };
    CHECK_JVMTI(jvmti->IterateOverHeap(JVMTI_HEAP_OBJECT_TAGGED, clearTag, nullptr));
}
