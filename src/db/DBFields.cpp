#include "db/DB.h"

#include <cstring>

// The numbered field accessors: one entry a field, generated from the record catalogue.

namespace {
struct FieldAccessor {
    // Address of the field in the row of this index, which is made if it is absent.
    void* (*address)(DB* db, int recordIndex);
    FieldType type;
};

#define VDK_ACCESSOR_INT(base, name)                                                               \
    {[](DB* db, int recordIndex) -> void* {                                                        \
         return &tableOf<base##Record>(db)->getRecord(recordIndex, true)->name;                    \
     },                                                                                            \
     FIELD_INT},
#define VDK_ACCESSOR_LONG(base, name)                                                              \
    {[](DB* db, int recordIndex) -> void* {                                                        \
         return &tableOf<base##Record>(db)->getRecord(recordIndex, true)->name;                    \
     },                                                                                            \
     FIELD_LONG},
#define VDK_ACCESSOR_TEXT(base, name)                                                              \
    {[](DB* db, int recordIndex) -> void* {                                                        \
         return &tableOf<base##Record>(db)->getRecord(recordIndex, true)->name;                    \
     },                                                                                            \
     FIELD_TEXT},
#define VDK_ACCESSOR_TELE(base, name)
#define VDK_ACCESSOR(base, type, name, initial, meaning, text) VDK_ACCESSOR_##type(base, name)
#define VDK_ACCESSORS(slot, base, member, tableName, firstIndex, capacity, size)                   \
    VDK_FIELDS_##base(VDK_ACCESSOR, base)

template <typename T>
DBTable<T>* tableOf(DB* db) {
    return static_cast<DBTable<T>*>(db->tables[RecordTraits<T>::slot]);
}

const FieldAccessor ourFieldRetriever[] = {VDK_TABLES(VDK_ACCESSORS)};
static_assert(sizeof(ourFieldRetriever) / sizeof(ourFieldRetriever[0]) == FIELD_COUNT,
              "one accessor a field");

const FieldAccessor& accessorOf(int fieldID) {
    Logger::assertTrue(fieldID >= 0 && fieldID < FIELD_COUNT, VDK_HERE);
    return ourFieldRetriever[fieldID];
}
} // namespace

int DB::getIntField(int fieldID, int recordIndex) {
    int value;
    memcpy(&value, accessorOf(fieldID).address(this, recordIndex), sizeof(value));
    return value;
}

void DB::setIntField(int fieldID, int recordIndex, int value) {
    const FieldAccessor& accessor = accessorOf(fieldID);
    Logger::assertNotEquals(accessor.type, FIELD_TEXT, VDK_HERE);
    memcpy(accessor.address(this, recordIndex), &value, sizeof(value));
}

long DB::getLongField(int fieldID, int recordIndex) {
    const FieldAccessor& accessor = accessorOf(fieldID);
    // Eight bytes from an int would reach into the next field, or beyond the chunk.
    Logger::assertNotEquals(accessor.type, FIELD_INT, VDK_HERE);
    long value;
    memcpy(&value, accessor.address(this, recordIndex), sizeof(value));
    return value;
}

void DB::setLongField(int fieldID, int recordIndex, long value) {
    const FieldAccessor& accessor = accessorOf(fieldID);
    Logger::assertEquals(accessor.type, FIELD_LONG, VDK_HERE);
    memcpy(accessor.address(this, recordIndex), &value, sizeof(value));
}
