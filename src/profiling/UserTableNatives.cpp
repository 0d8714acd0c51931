// The natives of user tables. Each takes ourLock; a slot without a table and a row that does not
// exist are ignored, and read as a neutral value.
#include "core/ground/CallbackNatives.h"
#include "core/ground/Globals.h"
#include "db/DB.h"
#include "profiling/NativeEntry.h"
#include "profiling/PooledStrings.h"
#include "profiling/UserTableRows.h"

#define VDK_NATIVE(name) Java_com_vandrik_runtime_Callback_##name

namespace {

const char SOURCE[] = "UserTableNatives";
const char PLACE[] = "UserTableNatives";

// Calls body(table, row) under the lock, if both exist.
template <typename Body>
void withRow(JNIEnv* env, int line, int slot, int index, Body&& body) {
    runNative(env, SOURCE, line, [&] {
        LockHolder lock(ourLock, PLACE);
        UserTable* table = ourDB->getUserTable(slot);
        if (table == nullptr || index < 0 || index == NO_USER_TABLE_ROW) {
            return;
        }
        int* row = table->getRecord(index, false);
        if (row != nullptr) {
            body(table, row);
        }
    });
}

// Calls body(table, row) as withRow, and tells readers that the row has changed. A row that is not
// visible yet stays so.
template <typename Body>
void changeRow(JNIEnv* env, int line, int slot, int index, Body&& body) {
    withRow(env, line, slot, index, [&](UserTable* table, int* row) {
        body(table, row);
        row[0] = row[0] < 0 ? -ourDB->currentStamp : ourDB->currentStamp;
    });
}

jstring textOf(JNIEnv* env, int stringIndex) {
    const char* text = ourDB->stringPool->getText(stringIndex);
    return text == nullptr ? nullptr : env->NewStringUTF(text);
}

} // namespace

jint JNICALL VDK_NATIVE(createUserTable)(JNIEnv* env, jclass, jstring description) {
    jint result = -2;
    runNative(env, SOURCE, __LINE__, [&] {
        const ZString text = toZString(env, description);
        LockHolder lock(ourLock, PLACE);
        result = ourDB->createUserTableByDescription(text);
    });
    return result;
}

jstring JNICALL VDK_NATIVE(getUserTableDescription)(JNIEnv* env, jclass, jint table) {
    jstring result = nullptr;
    runNative(env, SOURCE, __LINE__, [&] {
        LockHolder lock(ourLock, PLACE);
        const UserTable* userTable = ourDB->getUserTable(table);
        if (userTable != nullptr) {
            result = toJavaString(env, userTable->getDescription());
        }
    });
    return result;
}

jint JNICALL VDK_NATIVE(createUserTableRow)(JNIEnv* env, jclass, jint table,
                                            jint frequentThresholdMs, jint minimumMs) {
    jint result = NO_USER_TABLE_ROW;
    runNative(env, SOURCE, __LINE__, [&] {
        LockHolder lock(ourLock, PLACE);
        result = createUserTableRow(env, table, frequentThresholdMs, minimumMs);
    });
    return result;
}

jboolean JNICALL VDK_NATIVE(closeUserTableRow)(JNIEnv* env, jclass, jint table, jint row,
                                               jint minimumMs) {
    jboolean result = JNI_FALSE;
    runNative(env, SOURCE, __LINE__, [&] {
        LockHolder lock(ourLock, PLACE);
        result = closeUserTableRow(env, table, row, minimumMs) ? JNI_TRUE : JNI_FALSE;
    });
    return result;
}

jboolean JNICALL VDK_NATIVE(isUserTableRowClosed)(JNIEnv* env, jclass, jint table, jint row) {
    jboolean result = JNI_FALSE;
    runNative(env, SOURCE, __LINE__, [&] {
        LockHolder lock(ourLock, PLACE);
        result = isUserTableRowClosed(table, row) ? JNI_TRUE : JNI_FALSE;
    });
    return result;
}

void JNICALL VDK_NATIVE(setUserTableIntColumn)(JNIEnv* env, jclass, jint table, jint row,
                                               jint column, jint value) {
    changeRow(env, __LINE__, table, row,
              [&](UserTable* t, int* r) { t->setIntColumn(r, column, value); });
}

jint JNICALL VDK_NATIVE(getUserTableIntColumn)(JNIEnv* env, jclass, jint table, jint row,
                                               jint column) {
    jint result = 0;
    withRow(env, __LINE__, table, row,
            [&](UserTable* t, int* r) { result = t->getIntColumn(r, column); });
    return result;
}

void JNICALL VDK_NATIVE(setUserTableLongColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                jint column, jlong value) {
    changeRow(env, __LINE__, table, row,
              [&](UserTable* t, int* r) { t->setLongColumn(r, column, value); });
}

jlong JNICALL VDK_NATIVE(getUserTableLongColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                 jint column) {
    jlong result = 0;
    withRow(env, __LINE__, table, row,
            [&](UserTable* t, int* r) { result = t->getLongColumn(r, column); });
    return result;
}

void JNICALL VDK_NATIVE(setUserTableStringColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                  jint column, jstring value) {
    changeRow(env, __LINE__, table, row, [&](UserTable* t, int* r) {
        t->setStringColumn(r, column, getPooledStrID(env, value));
    });
}

jstring JNICALL VDK_NATIVE(getUserTableStringColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                     jint column) {
    jstring result = nullptr;
    withRow(env, __LINE__, table, row,
            [&](UserTable* t, int* r) { result = textOf(env, t->getStringColumn(r, column)); });
    return result;
}

void JNICALL VDK_NATIVE(setUserTableClassNameColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                     jint column, jstring value) {
    changeRow(env, __LINE__, table, row, [&](UserTable* t, int* r) {
        t->setClassNameColumn(r, column, getPooledStrID(env, value));
    });
}

jstring JNICALL VDK_NATIVE(getUserTableClassNameColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                        jint column) {
    jstring result = nullptr;
    withRow(env, __LINE__, table, row,
            [&](UserTable* t, int* r) { result = textOf(env, t->getClassNameColumn(r, column)); });
    return result;
}

void JNICALL VDK_NATIVE(setUserTableForeignKeyColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                      jint column, jint value) {
    changeRow(env, __LINE__, table, row,
              [&](UserTable* t, int* r) { t->setForeignKeyColumn(r, column, value); });
}

jint JNICALL VDK_NATIVE(getUserTableForeignKeyColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                      jint column) {
    jint result = 0;
    withRow(env, __LINE__, table, row,
            [&](UserTable* t, int* r) { result = t->getForeignKeyColumn(r, column); });
    return result;
}
