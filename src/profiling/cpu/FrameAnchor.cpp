#include "profiling/cpu/FrameAnchor.h"

#include "core/jvm/JvmGlobals.h"
#include "platform/ThreadTimers.h"
#include "profiling/cpu/InterruptedStack.h"

#include <cstring>

namespace {

const ptrdiff_t UNKNOWN = -1;
// The JVM's structure of a thread is smaller.
const ptrdiff_t MOST_OFFSET = 1 << 16;

// From the JNI environment of a thread to the stack pointer in its note; 0 if unknown.
ptrdiff_t ourFromEnvironment = 0;

// A number that the JVM exports; 0 without it.
uint64_t exportedNumber(const char* name) {
    const void* const place = InterruptedStacks::findInJvm(name);
    uint64_t number = 0;
    if (place != nullptr) {
        memcpy(&number, place, sizeof(number));
    }
    return number;
}

// The JVM's table of fields: an entry of texts and numbers a field, ended by one without a type.
class FieldTable {
public:
    FieldTable()
        : entry(reinterpret_cast<const char*>(exportedNumber("gHotSpotVMStructs"))),
          typeAt(exportedNumber("gHotSpotVMStructEntryTypeNameOffset")),
          fieldAt(exportedNumber("gHotSpotVMStructEntryFieldNameOffset")),
          offsetAt(exportedNumber("gHotSpotVMStructEntryOffsetOffset")),
          stride(exportedNumber("gHotSpotVMStructEntryArrayStride")) {}

    ptrdiff_t offsetOf(const char* type, const char* field) const {
        for (const char* at = entry; at != nullptr && stride != 0; at += stride) {
            const char* const typeName = textAt(at + typeAt);
            const char* const fieldName = textAt(at + fieldAt);
            if (typeName == nullptr || fieldName == nullptr) {
                return UNKNOWN;
            }
            if (strcmp(typeName, type) == 0 && strcmp(fieldName, field) == 0) {
                uint64_t offset = 0;
                memcpy(&offset, at + offsetAt, sizeof(offset));
                return offset < MOST_OFFSET ? static_cast<ptrdiff_t>(offset) : UNKNOWN;
            }
        }
        return UNKNOWN;
    }

private:
    static const char* textAt(const char* place) {
        const char* text = nullptr;
        memcpy(&text, place, sizeof(text));
        return text;
    }

    const char* entry;
    uint64_t typeAt;
    uint64_t fieldAt;
    uint64_t offsetAt;
    uint64_t stride;
};

// The JVM's structure of the current thread, of which the Java object keeps the address; 0 if
// unknown.
uintptr_t currentJvmThread(JNIEnv* env) {
    jthread thread = nullptr;
    if (ourJVMTI->GetCurrentThread(&thread) != JVMTI_ERROR_NONE) {
        return 0;
    }
    jclass type = env->FindClass("java/lang/Thread");
    jfieldID field = type == nullptr ? nullptr : env->GetFieldID(type, "eetop", "J");
    const jlong address = field == nullptr ? 0 : env->GetLongField(thread, field);
    env->ExceptionClear();
    env->DeleteLocalRef(type);
    env->DeleteLocalRef(thread);
    return static_cast<uintptr_t>(address);
}

// A note in native code that Java called is of a frame of this stack.
bool isPlausible(const uintptr_t* place) {
    uintptr_t low = 0;
    uintptr_t high = 0;
    return *place == 0 || (ThreadTimers::currentStack(&low, &high) && *place >= low &&
                           *place < high && *place % sizeof(uintptr_t) == 0);
}

uintptr_t* placeOf(JNIEnv* env) {
    return reinterpret_cast<uintptr_t*>(reinterpret_cast<char*>(env) + ourFromEnvironment);
}

} // namespace

bool FrameAnchor::prepare(JNIEnv* env) {
    if (ourFromEnvironment != 0) {
        return true;
    }
    const FieldTable fields;
    const ptrdiff_t anchor = fields.offsetOf("JavaThread", "_anchor");
    const ptrdiff_t stackPointer = fields.offsetOf("JavaFrameAnchor", "_last_Java_sp");
    const uintptr_t thread = currentJvmThread(env);
    const uintptr_t environment = reinterpret_cast<uintptr_t>(env);
    if (anchor == UNKNOWN || stackPointer == UNKNOWN || thread == 0 || environment < thread ||
        environment - thread >= static_cast<uintptr_t>(MOST_OFFSET)) {
        return false;
    }
    const ptrdiff_t found = anchor + stackPointer - static_cast<ptrdiff_t>(environment - thread);
    uintptr_t* const place = reinterpret_cast<uintptr_t*>(reinterpret_cast<char*>(env) + found);
    if (found == 0 || !isPlausible(place)) {
        return false;
    }
    ourFromEnvironment = found;
    return true;
}

FrameAnchor::FrameAnchor(JNIEnv* env)
    : place(ourFromEnvironment == 0 ? nullptr : placeOf(env)),
      stack(place == nullptr ? 0 : *place) {
    if (stack != 0) {
        *place = 0;
    }
}

FrameAnchor::~FrameAnchor() {
    if (stack != 0) {
        *place = stack;
    }
}
