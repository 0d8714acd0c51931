// Natives of com.vandrik.Natives over a DB: the tables of a snapshot, or those fetched from a live
// agent. No lock is taken: Java keeps a database to one thread at a time.

#include "db/DB.h"
#include "offline/NativesBoundary.h"

LiveHandles<DB> ourDatabases("Databases");

namespace {

// Limits of what may come from outside: tables grow to the row asked for, the index of threads and
// frames to the numbers asked for.
constexpr int MAX_ROW = 0x7fffff00 - 1;
constexpr int MAX_THREAD_INDEX = 1 << 24;
constexpr int MAX_FRAME = 0x2aaaaaaa;

// Runs body(db) and gives its result, 0 or null after a failure.
template <typename R, typename Body>
R runGuardedDB(JNIEnv* env, const char* file, int line, jlong handle, Body&& body) {
    return runGuardedNative<R>(env, file, line, R(),
                               [&](NativeErrors&) -> R { return body(ourDatabases.get(handle)); });
}

// The same with a row number, which must be one.
template <typename R, typename Body>
R runGuardedRow(JNIEnv* env, const char* file, int line, jlong handle, jint row, Body&& body) {
    return runGuardedDB<R>(env, file, line, handle, [&](DB& db) -> R {
        Logger::assertTrue(row >= 0 && row <= MAX_ROW, VDK_HERE);
        return body(db);
    });
}

template <typename Body>
void runGuardedSetter(JNIEnv* env, const char* file, int line, jlong handle, jint row,
                      Body&& body) {
    runGuardedRow<int>(env, file, line, handle, row, [&](DB& db) {
        body(db);
        return 1;
    });
}

AbstractTable& tableOf(DB& db, jint slot) {
    AbstractTable* table = db.getTable(slot);
    Logger::assertNotNULL(table, VDK_HERE);
    return *table;
}

void checkThreadFrame(int threadIndex, int frame) {
    Logger::assertTrue(threadIndex >= 0 && threadIndex <= MAX_THREAD_INDEX, VDK_HERE);
    Logger::assertTrue(frame >= 0 && frame <= MAX_FRAME, VDK_HERE);
}

// Runs body(table, row) for a user table, with the row made if it is absent.
template <typename R, typename Body>
R runGuardedColumn(JNIEnv* env, const char* file, int line, jlong handle, jint slot, jint row,
                   Body&& body) {
    return runGuardedNative<R>(env, file, line, 0, [&](NativeErrors& errors) -> R {
        UserTable* table = ourDatabases.get(handle).getUserTable(slot);
        if (table == nullptr) {
            errors.fail("Table is null: ", slot);
            return 0;
        }
        Logger::assertTrue(row >= 0 && row <= MAX_ROW, VDK_HERE);
        return body(*table, table->getRecord(row, true));
    });
}

} // namespace

VDK_CLIENT_NATIVE(jlong, dbNcreateNativeDatabaseImpl)
(JNIEnv* env, jclass, jint telemetryLimit, jint probeTableLengthLimit) {
    return runGuardedNative<jlong>(env, VDK_HERE, 0, [&](NativeErrors&) -> jlong {
        DB* db = new DB(telemetryLimit, probeTableLengthLimit);
        try {
            return ourDatabases.add(db);
        } catch (...) {
            delete db;
            throw;
        }
    });
}

VDK_CLIENT_NATIVE(void, dbNdeleteNativeDatabaseImpl)(JNIEnv* env, jclass, jlong handle) {
    runGuardedNative<int>(env, VDK_HERE, 0, [&](NativeErrors&) {
        ourDatabases.remove(handle);
        return 1;
    });
}

VDK_CLIENT_NATIVE(jint, dbNgetIntFieldImpl)
(JNIEnv* env, jclass, jlong handle, jint field, jint row) {
    return runGuardedRow<jint>(env, VDK_HERE, handle, row,
                               [&](DB& db) { return db.getIntField(field, row); });
}

VDK_CLIENT_NATIVE(jlong, dbNgetLongFieldImpl)
(JNIEnv* env, jclass, jlong handle, jint field, jint row) {
    return runGuardedRow<jlong>(env, VDK_HERE, handle, row,
                                [&](DB& db) { return db.getLongField(field, row); });
}

VDK_CLIENT_NATIVE(void, dbNsetIntFieldImpl)
(JNIEnv* env, jclass, jlong handle, jint field, jint row, jint value) {
    runGuardedSetter(env, VDK_HERE, handle, row,
                     [&](DB& db) { db.setIntField(field, row, value); });
}

VDK_CLIENT_NATIVE(void, dbNsetLongFieldImpl)
(JNIEnv* env, jclass, jlong handle, jint field, jint row, jlong value) {
    runGuardedSetter(env, VDK_HERE, handle, row,
                     [&](DB& db) { db.setLongField(field, row, value); });
}

VDK_CLIENT_NATIVE(jint, dbNgetTableMinIndexImpl)(JNIEnv* env, jclass, jlong handle, jint slot) {
    return runGuardedDB<jint>(env, VDK_HERE, handle,
                              [&](DB& db) { return tableOf(db, slot).getMinIndex(); });
}

VDK_CLIENT_NATIVE(jint, dbNgetTableCapacityImpl)(JNIEnv* env, jclass, jlong handle, jint slot) {
    return runGuardedDB<jint>(env, VDK_HERE, handle,
                              [&](DB& db) { return tableOf(db, slot).getCapacity(); });
}

VDK_CLIENT_NATIVE(void, dbNclearTableImpl)(JNIEnv* env, jclass, jlong handle, jint slot) {
    runGuardedDB<int>(env, VDK_HERE, handle, [&](DB& db) {
        tableOf(db, slot).clearTable();
        return 1;
    });
}

VDK_CLIENT_NATIVE(jint, dbNgetNextIndexFromPoolImpl)(JNIEnv* env, jclass, jlong handle, jint slot) {
    return runGuardedDB<jint>(env, VDK_HERE, handle,
                              [&](DB& db) { return tableOf(db, slot).nextIndex(); });
}

VDK_CLIENT_NATIVE(jint, dbNgetRecordModificationStampImpl)
(JNIEnv* env, jclass, jlong handle, jint slot, jint row) {
    return runGuardedRow<jint>(env, VDK_HERE, handle, row, [&](DB& db) {
        return tableOf(db, slot).getRecordModificationStamp(row);
    });
}

VDK_CLIENT_NATIVE(void, dbNsetRecordModificationStampImpl)
(JNIEnv* env, jclass, jlong handle, jint slot, jint row, jint stamp) {
    runGuardedSetter(env, VDK_HERE, handle, row,
                     [&](DB& db) { tableOf(db, slot).setRecordModificationStamp(row, stamp); });
}

VDK_CLIENT_NATIVE(jint, dbNgetStrIDImpl)
(JNIEnv* env, jclass, jlong handle, jstring text, jint create) {
    return runGuardedDB<jint>(env, VDK_HERE, handle, [&](DB& db) {
        const JavaChars chars(env, text);
        return db.stringPool->getDBIndex(chars.get(), create == 1);
    });
}

VDK_CLIENT_NATIVE(jstring, dbNgetStringImpl)(JNIEnv* env, jclass, jlong handle, jint row) {
    return runGuardedRow<jstring>(env, VDK_HERE, handle, row, [&](DB& db) -> jstring {
        const char* text = db.stringTable->getRecord(row, true)->text;
        return text == nullptr ? nullptr : toJavaString(env, ZString(text));
    });
}

VDK_CLIENT_NATIVE(void, dbNsetStringImpl)
(JNIEnv* env, jclass, jlong handle, jint row, jstring text) {
    runGuardedSetter(env, VDK_HERE, handle, row, [&](DB& db) {
        // Row 0 stands for "no string" everywhere.
        Logger::assertTrue(row > 0, VDK_HERE);
        const JavaChars chars(env, text);
        db.stringPool->setDBIndex(chars.get(), row);
    });
}

// Getter and setter of an int field of one table's records.
#define VDK_FIELD_NATIVES(getterName, setterName, table, field)                                    \
    VDK_CLIENT_NATIVE(jint, getterName)(JNIEnv * env, jclass, jlong handle, jint row) {            \
        return runGuardedRow<jint>(env, VDK_HERE, handle, row,                                     \
                                   [&](DB& db) { return db.table->getRecord(row, true)->field; }); \
    }                                                                                              \
    VDK_CLIENT_NATIVE(void, setterName)                                                            \
    (JNIEnv * env, jclass, jlong handle, jint row, jint value) {                                   \
        runGuardedSetter(env, VDK_HERE, handle, row,                                               \
                         [&](DB& db) { db.table->getRecord(row, true)->field = value; });          \
    }

VDK_FIELD_NATIVES(dbNgetPropertyNameImpl, dbNsetPropertyNameImpl, propertyTable, nameStrID)
VDK_FIELD_NATIVES(dbNgetPropertyValueImpl, dbNsetPropertyValueImpl, propertyTable, value)
VDK_FIELD_NATIVES(dbNgetTFIFrameIDImpl, dbNsetTFIFrameIDImpl, threadFrameTable, frame)
VDK_FIELD_NATIVES(dbNgetTFIThreadIndexForTFIImpl, dbNsetTFIThreadIndexForTFIImpl, threadFrameTable,
                  tfiThreadIndex)

VDK_CLIENT_NATIVE(jint, dbNgetTeleValueImpl)
(JNIEnv* env, jclass, jlong handle, jint row, jint field) {
    return runGuardedRow<jint>(env, VDK_HERE, handle, row, [&](DB& db) -> jint {
        Logger::assertTrue(field >= 0 && field < TELE_FIELD_COUNT, VDK_HERE);
        const TelemetryRecord* record = db.telemetryTable->getRecord(row, false);
        return record == nullptr ? 0 : record->values[field];
    });
}

VDK_CLIENT_NATIVE(void, dbNsetTeleValueImpl)
(JNIEnv* env, jclass, jlong handle, jint row, jint field, jint value) {
    runGuardedSetter(env, VDK_HERE, handle, row, [&](DB& db) {
        Logger::assertTrue(field >= 0 && field < TELE_FIELD_COUNT, VDK_HERE);
        db.telemetryTable->getRecord(row, true)->values[field] = value;
    });
}

VDK_CLIENT_NATIVE(jint, dbNgetTFIImpl)
(JNIEnv* env, jclass, jlong handle, jint threadIndex, jint frame, jint create) {
    return runGuardedDB<jint>(env, VDK_HERE, handle, [&](DB& db) {
        checkThreadFrame(threadIndex, frame);
        return db.threadFrameIndex->getTFI(threadIndex, frame, create == 1);
    });
}

VDK_CLIENT_NATIVE(void, dbNfillThreadFrameIndexImpl)(JNIEnv* env, jclass, jlong handle) {
    runGuardedDB<int>(env, VDK_HERE, handle, [&](DB& db) {
        db.threadFrameTable->eachRecord([](int, const ThreadFrameRecord& record) {
            checkThreadFrame(record.tfiThreadIndex, record.frame);
        });
        db.threadFrameIndex->fillIndexFromTable();
        return 1;
    });
}

VDK_CLIENT_NATIVE(void, dbNfillJ2EEIndexImpl)(JNIEnv* env, jclass, jlong handle) {
    runGuardedDB<int>(env, VDK_HERE, handle, [&](DB& db) {
        db.j2eeIndex->fillIndexFromTable();
        return 1;
    });
}

VDK_CLIENT_NATIVE(void, dbNfillFramesByMethodImpl)
(JNIEnv* env, jclass, jlong handle, jint method, jintArray bits, jint from, jint to) {
    runGuardedDB<int>(env, VDK_HERE, handle, [&](DB& db) {
        CriticalInts words(env, bits);
        Logger::assertTrue(from >= 0 && (from > to || to / 32 < words.length()), VDK_HERE);
        words.writeBack();
        jint* held = words.hold();
        const int last = to < db.frameTable->getCapacity() ? to : db.frameTable->getCapacity() - 1;
        for (int row = from; row <= last; row++) {
            const FrameRecord* frame = db.frameTable->getRecord(row, false);
            if (frame != nullptr && frame->method == method) {
                held[row / 32] =
                    static_cast<jint>(static_cast<unsigned>(held[row / 32]) | 1u << (row % 32));
            }
        }
        return 1;
    });
}

VDK_CLIENT_NATIVE(jint, dbNcreateUserTableImpl)
(JNIEnv* env, jclass, jlong handle, jstring description) {
    return runGuardedDB<jint>(env, VDK_HERE, handle, [&](DB& db) {
        Logger::assertNotNULL(description, VDK_HERE);
        return db.createUserTableByDescription(toZString(env, description));
    });
}

VDK_CLIENT_NATIVE(jint, dbNgetUserTableColumnImpl)
(JNIEnv* env, jclass, jlong handle, jint slot, jint row, jint column) {
    return runGuardedColumn<jint>(
        env, VDK_HERE, handle, slot, row,
        [&](UserTable& table, int* words) { return table.getColumn(words, column); });
}

VDK_CLIENT_NATIVE(void, dbNsetUserTableColumnImpl)
(JNIEnv* env, jclass, jlong handle, jint slot, jint row, jint column, jint value) {
    runGuardedColumn<jint>(env, VDK_HERE, handle, slot, row, [&](UserTable& table, int* words) {
        table.setColumn(words, column, value);
        return 1;
    });
}

VDK_CLIENT_NATIVE(jlong, dbNgetUserTableLongColumnImpl)
(JNIEnv* env, jclass, jlong handle, jint slot, jint row, jint column) {
    return runGuardedColumn<jlong>(
        env, VDK_HERE, handle, slot, row,
        [&](UserTable& table, int* words) { return table.getLongColumn(words, column); });
}

VDK_CLIENT_NATIVE(void, dbNsetUserTableLongColumnImpl)
(JNIEnv* env, jclass, jlong handle, jint slot, jint row, jint column, jlong value) {
    runGuardedColumn<jint>(env, VDK_HERE, handle, slot, row, [&](UserTable& table, int* words) {
        table.setLongColumn(words, column, value);
        return 1;
    });
}

VDK_CLIENT_NATIVE(jstring, dbNgetDatabaseStatisticsImpl)(JNIEnv* env, jclass, jlong handle) {
    return runGuardedDB<jstring>(env, VDK_HERE, handle,
                                 [&](DB& db) { return toJavaString(env, db.getStatistics()); });
}
