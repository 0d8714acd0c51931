#include "profiling/cpu/FrameAnchor.h"

#include "core/jvm/JvmGlobals.h"
#include "profiling/cpu/JvmLayout.h"
#include "profiling/cpu/RawMemory.h"

namespace {

// The JVM's structure of a thread is smaller.
const uintptr_t MOST_OFFSET = 1 << 16;

// From the JNI environment of a thread to the stack pointer in its note; 0 if unknown.
ptrdiff_t ourFromEnvironment = 0;
// From the begin of a note to its fields.
ptrdiff_t ourStackAt = 0;
ptrdiff_t ourPcAt = 0;
ptrdiff_t ourFrameAt = 0;

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
    const ptrdiff_t anchor = JvmLayout::offsetOf("JavaThread", "_anchor");
    const ptrdiff_t stackPointer = JvmLayout::offsetOf("JavaFrameAnchor", "_last_Java_sp");
    const ptrdiff_t pc = JvmLayout::offsetOf("JavaFrameAnchor", "_last_Java_pc");
    const ptrdiff_t frame = JvmLayout::offsetOf("JavaFrameAnchor", "_last_Java_fp");
    const uintptr_t thread = currentJvmThread(env);
    const uintptr_t environment = reinterpret_cast<uintptr_t>(env);
    if (anchor == JvmLayout::UNKNOWN || stackPointer == JvmLayout::UNKNOWN ||
        pc == JvmLayout::UNKNOWN || frame == JvmLayout::UNKNOWN || thread == 0 ||
        environment < thread || environment - thread >= MOST_OFFSET) {
        return false;
    }
    const ptrdiff_t found = anchor + stackPointer - static_cast<ptrdiff_t>(environment - thread);
    uintptr_t* const place = reinterpret_cast<uintptr_t*>(reinterpret_cast<char*>(env) + found);
    if (found == 0 || !isPlausible(place)) {
        return false;
    }
    ourStackAt = stackPointer;
    ourPcAt = pc;
    ourFrameAt = frame;
    ourFromEnvironment = found;
    return true;
}

ThreadTimers::Registers FrameAnchor::read(JNIEnv* env) {
    return ourFromEnvironment == 0 ? ThreadTimers::Registers{0, 0, 0}
                                   : readAt(reinterpret_cast<uintptr_t>(placeOf(env)) -
                                            static_cast<uintptr_t>(ourStackAt));
}

ThreadTimers::Registers FrameAnchor::readAt(uintptr_t anchor) {
    const auto field = [anchor](ptrdiff_t at) {
        return RawMemory::wordAt(anchor + static_cast<uintptr_t>(at));
    };
    return {field(ourPcAt), field(ourStackAt), field(ourFrameAt)};
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
