#include "instrument/CallbackSwitch.h"

#include "core/ground/Globals.h"
#include "core/jvm/CommonUtils.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/JvmGlobals.h"
#include "core/jvm/KeptCalls.h"
#include "instrument/Patchers.h"

#include <string.h>

namespace {

const unsigned char* ourCallbackClass = nullptr;
int ourCallbackClassSize = 0;
// Serialises redefinitions of Callback, so that the last one matches ourStatus. The hook does not
// take it.
ZLock& ourRedefinitionLock = *new ZLock("CallbackRedefinitionLock");

void redefineImpl() {
    ZVector<unsigned char> bytes(ourCallbackClassSize);
    memcpy(bytes.extend(ourCallbackClassSize), ourCallbackClass,
           static_cast<size_t>(ourCallbackClassSize));
    ZVector<unsigned char> traced(4096);
    ZVector<unsigned char> recording(4096);
    ZVector<unsigned char>* result = &bytes;
    const long status = ourStatus;
    if ((status & CPU_COUNTS_BIT) != 0) {
        patchCallbackToEnableTracing(*result, traced, KeptCalls::isReady());
        result = &traced;
    }
    if ((status & ALLOCATION_RECORDING_BIT) != 0) {
        patchCallbackToEnableAllocations(*result, recording);
        result = &recording;
    }
    jvmtiClassDefinition definition;
    definition.klass = ourClassCallbackGlobalRef;
    definition.class_byte_count = result->getSize();
    definition.class_bytes = result->data();
    CHECK_JVMTI(ourJVMTI->RedefineClasses(1, &definition));
}

// JVMs of IBM can't redefine the class; there the inserted calls test two fields.
void setCallFlags(JNIEnv* env) {
    const long status = ourStatus;
    jfieldID calls = env->GetStaticFieldID(ourClassCallbackGlobalRef, "ourVDKMethodEntryExit", "Z");
    ASSERT_JNI(env);
    jfieldID allocations = env->GetStaticFieldID(ourClassCallbackGlobalRef, "ourVDKAlloc", "Z");
    ASSERT_JNI(env);
    env->SetStaticBooleanField(ourClassCallbackGlobalRef, calls, (status & CPU_COUNTS_BIT) != 0);
    env->SetStaticBooleanField(ourClassCallbackGlobalRef, allocations,
                               (status & ALLOCATION_RECORDING_BIT) != 0);
}

} // namespace

void keepCallbackClass(const unsigned char* bytes, int size) {
    ourCallbackClass = bytes;
    ourCallbackClassSize = size;
}

void redefineCallback(JNIEnv* env) {
    LockHolder lock(ourRedefinitionLock, "Instrumentation:803");
    if (ourIsIBM) {
        setCallFlags(env);
        return;
    }
    redefineImpl();
}
