// The natives through which the Java side reaches the database, telemetry, clocks and generations.
#include "core/ground/Globals.h"
#include "core/ground/Options.h"
#include "core/ground/UptimeProvider.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/NativeEntry.h"
#include "db/DB.h"
#include "db/PieceWriter.h"
#include "db/Progress.h"
#include "db/SocketWriter.h"
#include "platform/Platform.h"
#include "profiling/ClassLoadingProbe.h"
#include "profiling/FrequentSampling.h"
#include "profiling/LiveTables.h"
#include "profiling/PooledStrings.h"
#include "profiling/TelemetryHelper.h"
#include "profiling/UserMessage.h"
#include "profiling/memory/Generations.h"
#include "profiling/memory/InstanceCounting.h"
#include "profiling/memory/ObjectEnumerator.h"
#include "profiling/threads/FinishedThreads.h"
#include "profiling/threads/ThreadInfo.h"
#include "profiling/threads/UnloadedClasses.h"

namespace {

void readInts(JNIEnv* env, jintArray array, ZVector<int>* out) {
    const jsize count = array == nullptr ? 0 : env->GetArrayLength(array);
    for (jsize i = 0; i < count; i++) {
        out->push(0);
    }
    if (count > 0) {
        env->GetIntArrayRegion(array, 0, count, out->data());
    }
}

// A client's stamps by slot; what it does not name it has never read.
void readStamps(JNIEnv* env, jintArray array, int (&stamps)[MAX_TABLE_COUNT]) {
    const jsize given = array == nullptr ? 0 : env->GetArrayLength(array);
    const jsize count = given < MAX_TABLE_COUNT ? given : static_cast<jsize>(MAX_TABLE_COUNT);
    for (int& stamp : stamps) {
        stamp = 0;
    }
    if (count > 0) {
        env->GetIntArrayRegion(array, 0, count, stamps);
    }
}

// Threads of the application wait for the lock, so nothing is sent while it is held: the client may
// be slow, or stopped.
void writeTablesImpl(JNIEnv* env, int socket, const TableSet& set, jintArray stampArray) {
    int stamps[MAX_TABLE_COUNT];
    readStamps(env, stampArray, stamps);
    PieceWriter encoded;
    {
        InstanceCounting counting(env, ourDB, set.mask);
        LiveTables tables(env, &counting);
        LockHolder lock(ourLock, "CoreNatives:822");
        Progress progress;
        writeTables(ourDB, encoded, set, 0, 0, &progress, stamps, false, &tables);
        encoded.writeInt(TABLE_STREAM_END);
        ourDB->currentStamp++;
    }
    SocketWriter writer(socket);
    encoded.moveTo(writer);
    writer.flush();
}

int setProperty(JNIEnv* env, jstring name, jstring value) {
    JavaChars nameChars(env, name);
    Logger::assertNotNULL(nameChars.get(), VDK_HERE);
    LockHolder lock(ourLock);
    const int valueStrID = value == nullptr ? 0 : getPooledStrID(env, value);
    return ourDB->setProperty(nameChars.get(), valueStrID);
}

void storeTelemetry(JNIEnv* env, jintArray telec, jintArray tele, jintArray extNames,
                    jintArray extValues) {
    ZVector<int> properties;
    ZVector<int> values;
    ZVector<int> names;
    ZVector<int> extra;
    readInts(env, telec, &properties);
    readInts(env, tele, &values);
    readInts(env, extNames, &names);
    readInts(env, extValues, &extra);
    storeTelemetryRecord(env, properties, values, names, extra);
}

void setStackTelemetry(JNIEnv* env, bool isOn, const char* file, int line) {
    runNative(env, file, line, [&] {
        LockHolder lock(ourLock);
        if (isOn) {
            ourStatus |= STACK_TELEMETRY;
        } else {
            ourStatus &= ~STACK_TELEMETRY;
        }
    });
}

void advanceGeneration(JNIEnv* env, jstring description) {
    const ZString text = toZString(env, description);
    {
        LockHolder lock(ourLock);
        Generations::advanceGeneration(env, text);
    }
    userMessage(env, "Object generation advanced", text);
}

// Each step frees what the next one needs no longer name.
void freeUnusedRows(JNIEnv* env) {
    LockHolder lock(ourLock);
    ClassLoadingProbe::flushUnloadedClassesToDB();
    ourDB->threadFrameIndex->freeUnused();
    FinishedThreads::freeUnnamedRows();
    UnloadedClasses::freeMethods(env);
    ourDB->stringPool->collectGarbageStrings();
}

} // namespace

void JNICALL VDK_CALLBACK_NATIVE(writeTables)(JNIEnv* env, jclass, jint socket, jint mask,
                                              jint limit, jintArray stamps) {
    runNative(env, VDK_HERE, [&] { writeTablesImpl(env, socket, TableSet{mask, limit}, stamps); });
}

jint JNICALL VDK_CALLBACK_NATIVE(setProperty)(JNIEnv* env, jclass, jstring name, jstring value) {
    jint result = 0;
    runNative(env, VDK_HERE, [&] { result = setProperty(env, name, value); });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(setPropertyByRecordIndex)(JNIEnv* env, jclass, jint row,
                                                           jint value) {
    runNative(env, VDK_HERE, [&] {
        LockHolder lock(ourLock);
        Logger::assertTrue(row >= 0 && row < ourDB->propertyTable->getCapacity(), VDK_HERE);
        ourDB->setPropertyByRecordIndex(row, value);
    });
}

jint JNICALL VDK_CALLBACK_NATIVE(findPropertyRecordIndex)(JNIEnv* env, jclass, jint nameStrID) {
    jint result = -1;
    runNative(env, VDK_HERE, [&] {
        LockHolder lock(ourLock);
        result = ourDB->findPropertyRecordIndex(nameStrID);
    });
    return result;
}

jstring JNICALL VDK_CALLBACK_NATIVE(getDatabaseStatistics)(JNIEnv* env, jclass) {
    jstring result = nullptr;
    runNative(env, VDK_HERE, [&] {
        ZString text;
        {
            LockHolder lock(ourLock);
            // Objects that end change the table allocator under its own lock alone.
            LockHolder objects(ourObjectEnumerator);
            text = ourDB->getStatistics();
        }
        result = toJavaString(env, text);
    });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(storeTelemetryRecord)(JNIEnv* env, jclass, jintArray telec,
                                                       jintArray tele, jintArray extNames,
                                                       jintArray extValues) {
    runNative(env, VDK_HERE, [&] { storeTelemetry(env, telec, tele, extNames, extValues); });
}

// A program that ends sooner is spared the classes that a record takes, unless what is recorded of
// it goes into a snapshot, which shall have one.
jboolean JNICALL VDK_CALLBACK_NATIVE(isFirstRecordPutOff)(JNIEnv*, jclass) {
    const long recordings = ALLOCATION_RECORDING_BIT | CPU_TIMES_BIT | MONITORS_BIT;
    const bool isRecording = (ourStatus & recordings) != 0 || !ourOptions->exitSnapshot.isEmpty();
    return ourOptions->lateTelemetry && !isRecording ? JNI_TRUE : JNI_FALSE;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(isFrequentSampling)(JNIEnv* env, jclass) {
    jboolean result = JNI_FALSE;
    runNative(env, VDK_HERE, [&] { result = isFrequentSampling() ? JNI_TRUE : JNI_FALSE; });
    return result;
}

jlong JNICALL VDK_CALLBACK_NATIVE(getUptimeMs)(JNIEnv*, jclass) {
    return ourUptimeProvider.getUptimeMs();
}

void JNICALL VDK_CALLBACK_NATIVE(correctUptimeMs)(JNIEnv* env, jclass, jlong etalonMs) {
    runNative(env, VDK_HERE, [&] {
        LockHolder lock(ourLock);
        ourUptimeProvider.correctUptimeMs(etalonMs);
    });
}

jlong JNICALL VDK_CALLBACK_NATIVE(getCurrentThreadCPUTimeNs)(JNIEnv*, jclass) {
    return getCurrentThreadCPUTimeNs();
}

jlong JNICALL VDK_CALLBACK_NATIVE(getProcessCPUTimeNs)(JNIEnv*, jclass) {
    return getProcessCPUTimeNs();
}

jlong JNICALL VDK_CALLBACK_NATIVE(getProcessMemory)(JNIEnv*, jclass) {
    return Platform::processMemory();
}

void JNICALL VDK_CALLBACK_NATIVE(enableStackTelemetry)(JNIEnv* env, jclass) {
    setStackTelemetry(env, true, VDK_HERE);
}

void JNICALL VDK_CALLBACK_NATIVE(disableStackTelemetry)(JNIEnv* env, jclass) {
    setStackTelemetry(env, false, VDK_HERE);
}

void JNICALL VDK_CALLBACK_NATIVE(setThreadTemporaryEnabled)(JNIEnv* env, jclass, jboolean enabled) {
    runNative(env, VDK_HERE, [&] { setThreadTemporaryEnabled(enabled == JNI_TRUE); });
}

void JNICALL VDK_CALLBACK_NATIVE(advanceGeneration)(JNIEnv* env, jclass, jstring description) {
    runNative(env, VDK_HERE, [&] { advanceGeneration(env, description); });
}

void JNICALL VDK_CALLBACK_NATIVE(freeUnusedRows)(JNIEnv* env, jclass) {
    runNative(env, VDK_HERE, [&] { freeUnusedRows(env); });
}

void JNICALL VDK_CALLBACK_NATIVE(addSnapshotInfo)(JNIEnv* env, jclass, jstring path, jlong flags) {
    runNative(env, VDK_HERE, [&] { addSnapshotInfo(toZString(env, path), flags); });
}

jboolean JNICALL VDK_CALLBACK_NATIVE(findSnapshot)(JNIEnv* env, jclass, jstring path) {
    jboolean result = JNI_FALSE;
    runNative(env, VDK_HERE,
              [&] { result = findSnapshot(toZString(env, path)) ? JNI_TRUE : JNI_FALSE; });
    return result;
}
