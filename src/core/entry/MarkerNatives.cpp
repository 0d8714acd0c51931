// Natives around processes: the markers of profiled JVMs, command lines, host id, ends of children.
#include "core/entry/ProcessExitWatch.h"
#include "core/ground/Guard.h"
#include "core/ground/SessionName.h"
#include "core/jvm/JNIUtils.h"
#include "core/jvm/NativeEntry.h"
#include "db/DB.h"
#include "machine/MarkersOnSharedMemory.h"
#include "machine/ProcessList.h"
#include "platform/Platform.h"

namespace {

const size_t HOST_ID_BYTES = 32;

jintArray toJavaArray(JNIEnv* env, const ZVector<int>& values) {
    static_assert(sizeof(jint) == sizeof(int), "handed over as they are");
    jintArray array = env->NewIntArray(values.getSize());
    if (array != nullptr) {
        env->SetIntArrayRegion(array, 0, values.getSize(), values.data());
    }
    return array;
}

struct HostID {
    HostID() { Platform::hostID(text, sizeof text); }
    char text[HOST_ID_BYTES];
};

// Made once and kept: without a file that has it the system asks the resolver for it, and every
// client asks for it.
const char* getHostID() {
    static const HostID id;
    return id.text;
}

ZString processPath(int pid) {
    ZVectorSafe<ZString> arguments;
    getCommandLineParameters(&arguments, pid);
    return arguments.isEmpty() ? ZString() : arguments[0];
}

// The arguments separated by blanks; one that holds a blank, or is empty, stands in quotes.
ZString joinCommandLine(int pid) {
    ZVectorSafe<ZString> arguments;
    getCommandLineParameters(&arguments, pid);
    ZString text;
    for (int i = 0; i < arguments.getSize(); i++) {
        const ZString& argument = arguments[i];
        const bool isQuoted = argument.isEmpty() || argument.indexOf(' ') >= 0;
        text.append(i == 0 ? "" : " ");
        text.append(isQuoted ? ZString("\"") + argument + "\"" : argument);
    }
    return text;
}

ZString sessionNameOf(int pid) {
    ZVectorSafe<ZString> arguments;
    getCommandLineParameters(&arguments, pid);
    return getSessionNameByCommandLine(arguments);
}

jintArray fillMarkedArray(JNIEnv* env, int stateMask) {
    ZVector<Marker> found;
    if (!MarkersOnSharedMemory::ofThisMachine().fillMarked(stateMask, &found)) {
        return nullptr;
    }
    ZVector<int> values;
    for (int i = 0; i < found.getSize(); i++) {
        values.push(found[i].pid);
        values.push(found[i].port);
        values.push(found[i].state);
    }
    return toJavaArray(env, values);
}

} // namespace

void JNICALL VDK_CALLBACK_NATIVE(createMarker)(JNIEnv*, jclass, jint port, jint state) {
    // A JVM without a marker can still be reached by its port: no failure here may stop the start.
    runGuarded(VDK_HERE, [&] { createMarker(port, state, ourDB->sessionName); });
}

jstring JNICALL VDK_CALLBACK_NATIVE(getHostID)(JNIEnv* env, jclass) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr,
                                 [&] { return toJavaString(env, getHostID()); });
}

jboolean JNICALL VDK_CALLBACK_NATIVE(registerProcessExitListener)(JNIEnv* env, jclass,
                                                                  jlong process, jint row) {
    return nativeResult<jboolean>(env, VDK_HERE, JNI_FALSE, [&]() -> jboolean {
        return ProcessExitWatch::add(static_cast<int>(process), row);
    });
}

jintArray JNICALL VDK_CALLBACK_NATIVE(getExitedProcesses)(JNIEnv* env, jclass) {
    return nativeResult<jintArray>(env, VDK_HERE, nullptr, [&] {
        ZVector<int> rows;
        ProcessExitWatch::takeExited(&rows);
        return toJavaArray(env, rows);
    });
}

VDK_CLIENT_NATIVE(jintArray, fillMarked)(JNIEnv* env, jclass, jint stateMask) {
    return nativeResult<jintArray>(env, VDK_HERE, nullptr,
                                   [&] { return fillMarkedArray(env, stateMask); });
}

VDK_CLIENT_NATIVE(jintArray, fillMarked8)(JNIEnv* env, jclass) {
    return nativeResult<jintArray>(env, VDK_HERE, nullptr, [&]() -> jintArray {
        ZVector<int> pids;
        return fillMarked8(&pids) ? toJavaArray(env, pids) : nullptr;
    });
}

// The area of that version no longer exists.
VDK_CLIENT_NATIVE(jintArray, fillMarked75)(JNIEnv*, jclass) {
    return nullptr;
}

VDK_CLIENT_NATIVE(jstring, getSessionNameFromMarker)(JNIEnv* env, jclass, jint pid) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr, [&] {
        return toJavaString(env, MarkersOnSharedMemory::ofThisMachine().getSessionName(pid));
    });
}

VDK_CLIENT_NATIVE(jboolean, isLivePID)(JNIEnv* env, jclass, jint pid) {
    return nativeResult<jboolean>(env, VDK_HERE, JNI_TRUE,
                                  [&]() -> jboolean { return ProcessList().isAlive(pid); });
}

VDK_CLIENT_NATIVE(jstring, getCommandLineByPID)(JNIEnv* env, jclass, jint pid) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr,
                                 [&] { return toJavaString(env, joinCommandLine(pid)); });
}

VDK_CLIENT_NATIVE(jstring, getProcessPathByPID)(JNIEnv* env, jclass, jint pid) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr,
                                 [&] { return toJavaString(env, processPath(pid)); });
}

VDK_CLIENT_NATIVE(jstring, getSessionNameByCommandLine)(JNIEnv* env, jclass, jint pid) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr,
                                 [&] { return toJavaString(env, sessionNameOf(pid)); });
}

VDK_CLIENT_NATIVE(jint, getPID)(JNIEnv*, jclass) {
    return Platform::vdk_getpid();
}

VDK_CLIENT_NATIVE(jstring, getHostID)(JNIEnv* env, jclass) {
    return nativeResult<jstring>(env, VDK_HERE, nullptr,
                                 [&] { return toJavaString(env, getHostID()); });
}

VDK_CLIENT_NATIVE(jstring, getHostID2)(JNIEnv* env, jclass) {
    return toJavaString(env, "0");
}
