// The natives of user tables. Each takes ourLock; a slot without a table and a row that does not
// exist are ignored, and read as a neutral value.
#include "core/ground/Globals.h"
#include "core/jvm/CallbackNatives.h"
#include "core/jvm/NativeEntry.h"
#include "db/DB.h"
#include "profiling/PooledStrings.h"
#include "profiling/UserTableRows.h"

namespace {

// Calls body(table, row) under the lock, if both exist.
template <typename Body>
void withRow(JNIEnv* env, const char* file, int line, int slot, int index, Body&& body) {
    runNative(env, file, line, [&] {
        LockHolder lock(ourLock);
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
void changeRow(JNIEnv* env, const char* file, int line, int slot, int index, Body&& body) {
    withRow(env, file, line, slot, index, [&](UserTable* table, int* row) {
        body(table, row);
        row[0] = row[0] < 0 ? -ourDB->currentStamp : ourDB->currentStamp;
    });
}

jstring textOf(JNIEnv* env, int stringIndex) {
    const char* text = ourDB->stringPool->getText(stringIndex);
    return text == nullptr ? nullptr : env->NewStringUTF(text);
}

} // namespace

jint JNICALL VDK_CALLBACK_NATIVE(createUserTable)(JNIEnv* env, jclass, jstring description) {
    jint result = -2;
    runNative(env, VDK_HERE, [&] {
        const ZString text = toZString(env, description);
        LockHolder lock(ourLock);
        result = ourDB->createUserTableByDescription(text);
    });
    return result;
}

jstring JNICALL VDK_CALLBACK_NATIVE(getUserTableDescription)(JNIEnv* env, jclass, jint table) {
    jstring result = nullptr;
    runNative(env, VDK_HERE, [&] {
        LockHolder lock(ourLock);
        const UserTable* userTable = ourDB->getUserTable(table);
        if (userTable != nullptr) {
            result = toJavaString(env, userTable->getDescription());
        }
    });
    return result;
}

jint JNICALL VDK_CALLBACK_NATIVE(createUserTableRow)(JNIEnv* env, jclass, jint table,
                                                     jint frequentThresholdMs, jint minimumMs) {
    jint result = NO_USER_TABLE_ROW;
    runNative(env, VDK_HERE, [&] {
        LockHolder lock(ourLock);
        // Here no text has been looked up for the row yet.
        ourDB->stringPool->collectIfGrown();
        result = createUserTableRow(env, table, frequentThresholdMs, minimumMs);
    });
    return result;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(closeUserTableRow)(JNIEnv* env, jclass, jint table, jint row,
                                                        jint minimumMs) {
    jboolean result = JNI_FALSE;
    runNative(env, VDK_HERE, [&] {
        LockHolder lock(ourLock);
        result = closeUserTableRow(env, table, row, minimumMs) ? JNI_TRUE : JNI_FALSE;
    });
    return result;
}

jboolean JNICALL VDK_CALLBACK_NATIVE(isUserTableRowClosed)(JNIEnv* env, jclass, jint table,
                                                           jint row) {
    jboolean result = JNI_FALSE;
    runNative(env, VDK_HERE, [&] {
        LockHolder lock(ourLock);
        result = isUserTableRowClosed(table, row) ? JNI_TRUE : JNI_FALSE;
    });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(setUserTableIntColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                        jint column, jint value) {
    changeRow(env, VDK_HERE, table, row,
              [&](UserTable* t, int* r) { t->setIntColumn(r, column, value); });
}

jint JNICALL VDK_CALLBACK_NATIVE(getUserTableIntColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                        jint column) {
    jint result = 0;
    withRow(env, VDK_HERE, table, row,
            [&](UserTable* t, int* r) { result = t->getIntColumn(r, column); });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(setUserTableLongColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                         jint column, jlong value) {
    changeRow(env, VDK_HERE, table, row,
              [&](UserTable* t, int* r) { t->setLongColumn(r, column, value); });
}

jlong JNICALL VDK_CALLBACK_NATIVE(getUserTableLongColumn)(JNIEnv* env, jclass, jint table, jint row,
                                                          jint column) {
    jlong result = 0;
    withRow(env, VDK_HERE, table, row,
            [&](UserTable* t, int* r) { result = t->getLongColumn(r, column); });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(setUserTableStringColumn)(JNIEnv* env, jclass, jint table,
                                                           jint row, jint column, jstring value) {
    changeRow(env, VDK_HERE, table, row, [&](UserTable* t, int* r) {
        t->setStringColumn(r, column, getPooledStrID(env, value));
    });
}

jstring JNICALL VDK_CALLBACK_NATIVE(getUserTableStringColumn)(JNIEnv* env, jclass, jint table,
                                                              jint row, jint column) {
    jstring result = nullptr;
    withRow(env, VDK_HERE, table, row,
            [&](UserTable* t, int* r) { result = textOf(env, t->getStringColumn(r, column)); });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(setUserTableClassNameColumn)(JNIEnv* env, jclass, jint table,
                                                              jint row, jint column,
                                                              jstring value) {
    changeRow(env, VDK_HERE, table, row, [&](UserTable* t, int* r) {
        t->setClassNameColumn(r, column, getPooledStrID(env, value));
    });
}

jstring JNICALL VDK_CALLBACK_NATIVE(getUserTableClassNameColumn)(JNIEnv* env, jclass, jint table,
                                                                 jint row, jint column) {
    jstring result = nullptr;
    withRow(env, VDK_HERE, table, row,
            [&](UserTable* t, int* r) { result = textOf(env, t->getClassNameColumn(r, column)); });
    return result;
}

void JNICALL VDK_CALLBACK_NATIVE(setUserTableForeignKeyColumn)(JNIEnv* env, jclass, jint table,
                                                               jint row, jint column, jint value) {
    changeRow(env, VDK_HERE, table, row,
              [&](UserTable* t, int* r) { t->setForeignKeyColumn(r, column, value); });
}

jint JNICALL VDK_CALLBACK_NATIVE(getUserTableForeignKeyColumn)(JNIEnv* env, jclass, jint table,
                                                               jint row, jint column) {
    jint result = 0;
    withRow(env, VDK_HERE, table, row,
            [&](UserTable* t, int* r) { result = t->getForeignKeyColumn(r, column); });
    return result;
}
