// The natives of com/vandrik/runtime/Callback: the one table from which prototypes, the rows given
// to RegisterNatives and the bodies of abilities that this build lacks all follow.
//
// Kinds of rows:
//
//   BUILT(name, signature, return type, parameters): defined by the owner of the logic.
//
//   MISSING(name, signature, return type, types, ability): throws a Java exception naming it.
//
// The order is alphabetical, the instrumentation's own entry points last. Keep the Java
// declarations in Callback.java in step; RegisterNatives fails at start-up when they differ.
#pragma once

#include <jni.h>

// The C name of a native of Callback.
#define VDK_CALLBACK_NATIVE(name) Java_com_vandrik_runtime_Callback_##name

// Text for a user who asks for an ability that this build lacks.
#define VDK_MISSING_TEXT(ability) ability " is not available in this version of the agent"

// clang-format off
#define VDK_CALLBACK_NATIVES(BUILT, MISSING) \
    BUILT(addProbePaths, "([Ljava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jobjectArray paths)) \
    BUILT(addSnapshotInfo, "(Ljava/lang/String;J)V", void, (JNIEnv* env, jclass clazz, jstring path, jlong flags)) \
    BUILT(advanceGeneration, "(Ljava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jstring description)) \
    BUILT(awaitAgentThreads, "(J)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jlong limitMs)) \
    BUILT(beginDetach, "()Z", jboolean, (JNIEnv* env, jclass clazz)) \
    BUILT(bindPark, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(captureSnapshot, "(Ljava/lang/String;IJ)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jstring path, jint progressSocket, jlong flags)) \
    BUILT(clearAllocationData, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(clearCPUData, "(Z)V", void, (JNIEnv* env, jclass clazz, jboolean log)) \
    BUILT(clearExceptions, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(clearMonitorData, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(closeUserTableRow, "(III)Z", jboolean, (JNIEnv* env, jclass clazz, jint table, jint row, jint minimumMs)) \
    BUILT(correctUptimeMs, "(J)V", void, (JNIEnv* env, jclass clazz, jlong etalonMs)) \
    BUILT(countExceptions, "(Z)V", void, (JNIEnv* env, jclass clazz, jboolean on)) \
    BUILT(createMarker, "(II)V", void, (JNIEnv* env, jclass clazz, jint port, jint state)) \
    BUILT(createObjectMap, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(createUserTable, "(Ljava/lang/String;)I", jint, (JNIEnv* env, jclass clazz, jstring description)) \
    BUILT(createUserTableRow, "(III)I", jint, (JNIEnv* env, jclass clazz, jint table, jint frequentThresholdMs, jint minimumMs)) \
    BUILT(deleteObjectMap, "(J)V", void, (JNIEnv* env, jclass clazz, jlong map)) \
    BUILT(disableExceptionTelemetry, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(disableStackTelemetry, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(enableExceptionTelemetry, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(enableStackTelemetry, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(endDetach, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(findField, "(Ljava/lang/Class;Ljava/lang/String;)[J", jlongArray, (JNIEnv* env, jclass clazz, jclass type, jstring name)) \
    BUILT(findPropertyRecordIndex, "(I)I", jint, (JNIEnv* env, jclass clazz, jint nameStrID)) \
    BUILT(findSnapshot, "(Ljava/lang/String;)Z", jboolean, (JNIEnv* env, jclass clazz, jstring path)) \
    BUILT(freeUnusedRows, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(getAllocationRecordingSettingsPerClassGarbage, "()Z", jboolean, (JNIEnv* env, jclass clazz)) \
    BUILT(getAllocationRecordingSettingsRecordEach, "()I", jint, (JNIEnv* env, jclass clazz)) \
    BUILT(getAllocationRecordingSettingsRecordEachEnabled, "()Z", jboolean, (JNIEnv* env, jclass clazz)) \
    BUILT(getAllocationRecordingSettingsSizeLimit, "()I", jint, (JNIEnv* env, jclass clazz)) \
    BUILT(getAllocationRecordingSettingsSizeLimitEnabled, "()Z", jboolean, (JNIEnv* env, jclass clazz)) \
    BUILT(getCalibrationResult, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(getCapabilities, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(getCurrentThreadCPUTimeNs, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(getDatabaseStatistics, "()Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz)) \
    BUILT(getExitedProcesses, "()[I", jintArray, (JNIEnv* env, jclass clazz)) \
    BUILT(getHostID, "()Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz)) \
    BUILT(getManagementBeans, "()[Ljava/lang/Object;", jobjectArray, (JNIEnv* env, jclass clazz)) \
    BUILT(getPhase, "()I", jint, (JNIEnv* env, jclass clazz)) \
    BUILT(getPID, "()I", jint, (JNIEnv* env, jclass clazz)) \
    BUILT(getProbes, "(I)[Ljava/lang/String;", jobjectArray, (JNIEnv* env, jclass clazz, jint status)) \
    BUILT(getProcessCPUTimeNs, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(getProcessMemory, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(getStatus, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(getTelemetryPeriodMs, "()I", jint, (JNIEnv* env, jclass clazz)) \
    BUILT(getUptimeMs, "()J", jlong, (JNIEnv* env, jclass clazz)) \
    BUILT(getUserTableClassNameColumn, "(III)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jint table, jint row, jint column)) \
    BUILT(getUserTableDescription, "(I)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jint table)) \
    BUILT(getUserTableForeignKeyColumn, "(III)I", jint, (JNIEnv* env, jclass clazz, jint table, jint row, jint column)) \
    BUILT(getUserTableIntColumn, "(III)I", jint, (JNIEnv* env, jclass clazz, jint table, jint row, jint column)) \
    BUILT(getUserTableLongColumn, "(III)J", jlong, (JNIEnv* env, jclass clazz, jint table, jint row, jint column)) \
    BUILT(getUserTableStringColumn, "(III)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jint table, jint row, jint column)) \
    BUILT(getWovenClassCount, "(Ljava/lang/String;)I", jint, (JNIEnv* env, jclass clazz, jstring probeClass)) \
    BUILT(giveClassesBack, "(I)[J", jlongArray, (JNIEnv* env, jclass clazz, jint socket)) \
    BUILT(isFirstRecordPutOff, "()Z", jboolean, (JNIEnv* env, jclass clazz)) \
    BUILT(isFrequentSampling, "()Z", jboolean, (JNIEnv* env, jclass clazz)) \
    BUILT(isIBM, "()Z", jboolean, (JNIEnv* env, jclass clazz)) \
    BUILT(isUserTableRowClosed, "(II)Z", jboolean, (JNIEnv* env, jclass clazz, jint table, jint row)) \
    BUILT(message, "(Ljava/lang/String;Ljava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jstring text, jstring detail)) \
    BUILT(messageToLogFile, "(Ljava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jstring text)) \
    BUILT(messageToStderr, "(Ljava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jstring text)) \
    BUILT(messageToStdout, "(Ljava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jstring text)) \
    BUILT(objectMapContains, "(JLjava/lang/Object;)Z", jboolean, (JNIEnv* env, jclass clazz, jlong map, jobject object)) \
    BUILT(objectMapGet, "(JLjava/lang/Object;I)I", jint, (JNIEnv* env, jclass clazz, jlong map, jobject object, jint fallback)) \
    BUILT(objectMapPut, "(JLjava/lang/Object;I)V", void, (JNIEnv* env, jclass clazz, jlong map, jobject object, jint value)) \
    BUILT(objectMapRemove, "(JLjava/lang/Object;I)I", jint, (JNIEnv* env, jclass clazz, jlong map, jobject object, jint fallback)) \
    BUILT(patchTemplateClass, "([Ljava/lang/String;)[B", jbyteArray, (JNIEnv* env, jclass clazz, jobjectArray pairs)) \
    BUILT(prepareRecording, "(ILjava/lang/String;Ljava/lang/String;I)[J", jlongArray, (JNIEnv* env, jclass clazz, jint recording, jstring patterns, jstring filters, jint socket)) \
    BUILT(readField, "(Ljava/lang/Object;JI[J)Ljava/lang/Object;", jobject, (JNIEnv* env, jclass clazz, jobject object, jlong field, jint kind, jlongArray bits)) \
    BUILT(registerProbesByBytecode, "([[BZZ)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jobjectArray classes, jboolean dynamic, jboolean flag)) \
    BUILT(registerProbesByName, "([Ljava/lang/String;)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jobjectArray classNames)) \
    BUILT(registerProcessExitListener, "(JI)Z", jboolean, (JNIEnv* env, jclass clazz, jlong process, jint row)) \
    BUILT(retransformClassesLoadedBeforeAgentWasAttached0, "(ZLjava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jboolean useFilter, jstring filterFile)) \
    BUILT(setCalibrationResult, "(J)V", void, (JNIEnv* env, jclass clazz, jlong costNs)) \
    BUILT(setProperty, "(Ljava/lang/String;Ljava/lang/String;)I", jint, (JNIEnv* env, jclass clazz, jstring name, jstring value)) \
    BUILT(setPropertyByRecordIndex, "(II)V", void, (JNIEnv* env, jclass clazz, jint row, jint value)) \
    BUILT(setThreadTemporaryEnabled, "(Z)V", void, (JNIEnv* env, jclass clazz, jboolean enabled)) \
    BUILT(setUserTableClassNameColumn, "(IIILjava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jint table, jint row, jint column, jstring value)) \
    BUILT(setUserTableForeignKeyColumn, "(IIII)V", void, (JNIEnv* env, jclass clazz, jint table, jint row, jint column, jint value)) \
    BUILT(setUserTableIntColumn, "(IIII)V", void, (JNIEnv* env, jclass clazz, jint table, jint row, jint column, jint value)) \
    BUILT(setUserTableLongColumn, "(IIIJ)V", void, (JNIEnv* env, jclass clazz, jint table, jint row, jint column, jlong value)) \
    BUILT(setUserTableStringColumn, "(IIILjava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jint table, jint row, jint column, jstring value)) \
    BUILT(startAllocationRecording, "(ZIZIZ)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jboolean recordEachEnabled, jint recordEach, jboolean sizeLimitEnabled, jint sizeLimit, jboolean perClassGarbage)) \
    BUILT(startCalibrating, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(startCPUProfiling, "(JLjava/lang/String;Ljava/lang/String;)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jlong mode, jstring filters, jstring wallTimeSpec)) \
    BUILT(startMonitorProfiling, "()Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz)) \
    BUILT(startSampledAllocationRecording, "(IZ)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jint intervalBytes, jboolean perClassGarbage)) \
    BUILT(startSampling, "(Ljava/lang/String;JLjava/lang/String;Ljava/lang/String;Ljava/lang/String;)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jstring sampler, jlong mode, jstring filters, jstring wallTimeSpec, jstring threadPattern)) \
    BUILT(stopAllocationRecording, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(stopCPUProfiling, "(Z)V", void, (JNIEnv* env, jclass clazz, jboolean log)) \
    BUILT(stopMonitorProfiling, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(stopRecordings, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(storeTelemetryRecord, "([I[I[I[I)V", void, (JNIEnv* env, jclass clazz, jintArray telec, jintArray tele, jintArray extNames, jintArray extValues)) \
    BUILT(takeExceptionCounts, "()Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz)) \
    BUILT(unregisterProbes, "([Ljava/lang/String;)V", void, (JNIEnv* env, jclass clazz, jobjectArray classNames)) \
    BUILT(validateMethodPattern, "(Ljava/lang/String;)Ljava/lang/String;", jstring, (JNIEnv* env, jclass clazz, jstring pattern)) \
    BUILT(writeTables, "(III[I)V", void, (JNIEnv* env, jclass clazz, jint socket, jint mask, jint limit, jintArray stamps)) \
    BUILT(vdkExceptionCaught0, "(Ljava/lang/Object;)V", void, (JNIEnv* env, jclass clazz, jobject exception)) \
    BUILT(vdkExceptionCreated0, "(Ljava/lang/Object;)V", void, (JNIEnv* env, jclass clazz, jobject exception)) \
    BUILT(vdkInit0, "(Ljava/lang/Object;I)I", jint, (JNIEnv* env, jclass clazz, jobject object, jint frameHint)) \
    BUILT(vdkJ2eeEntry1, "(Ljava/lang/Object;I)V", void, (JNIEnv* env, jclass clazz, jobject text, jint type)) \
    BUILT(vdkJ2eeEntry2, "(Ljava/lang/Object;I)V", void, (JNIEnv* env, jclass clazz, jobject key, jint type)) \
    BUILT(vdkJ2eeEntry3, "(Ljava/lang/Object;I)V", void, (JNIEnv* env, jclass clazz, jobject request, jint type)) \
    BUILT(vdkJ2eeExit, "(Ljava/lang/Object;Ljava/lang/Object;)V", void, (JNIEnv* env, jclass clazz, jobject key, jobject text)) \
    BUILT(vdkJ2eeLeave, "()V", void, (JNIEnv* env, jclass clazz)) \
    BUILT(vdkMethodCatch0, "(SS)V", void, (JNIEnv* env, jclass clazz, jshort low, jshort high)) \
    BUILT(vdkMethodEntry0, "(SS)V", void, (JNIEnv* env, jclass clazz, jshort low, jshort high)) \
    BUILT(vdkMethodExit0, "(SS)V", void, (JNIEnv* env, jclass clazz, jshort low, jshort high)) \
    BUILT(vdkProbeEnter0, "(Ljava/lang/Thread;)Z", jboolean, (JNIEnv* env, jclass clazz, jobject thread)) \
    BUILT(vdkProbeExit0, "(Ljava/lang/Thread;)V", void, (JNIEnv* env, jclass clazz, jobject thread))
// clang-format on

extern "C" {
#define VDK_DECLARE_BUILT(name, signature, type, parameters)                                       \
    type JNICALL VDK_CALLBACK_NATIVE(name) parameters;
#define VDK_DECLARE_MISSING(name, signature, type, parameters, ability)                            \
    type JNICALL VDK_CALLBACK_NATIVE(name) parameters;

VDK_CALLBACK_NATIVES(VDK_DECLARE_BUILT, VDK_DECLARE_MISSING)

#undef VDK_DECLARE_BUILT
#undef VDK_DECLARE_MISSING
}
