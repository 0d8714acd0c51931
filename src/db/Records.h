#pragma once

#include <cstddef>
#include <type_traits>

// The record catalogue: every table and every field of the database is declared here, once. The
// record structs, the fields that writeTable writes and a reader reads, the numbered field
// accessors and the table reference in docs/format-tables.md all follow from these lists.
//
// A record begins with `stamp`, its modification stamp: 0 absent, positive live and changed at that
// stamp, negative deleted at the absolute value. In the stream it follows the row index, and then
// come the fields in the order of the list.
//
// One entry is F(B, type, name, initial value, meaning, text):
//   B        base name of the record, handed through by the caller of the list
//   type     INT 32 bits, LONG 64 bits, TEXT an owned C string, TELE the 17 telemetry values
//   meaning  what a number refers to, a FieldMeaning: a reader checks rows against it
//   text     description for the reference

// What a field's number stands for. Row numbers of tables with first index 1 are 0 for none.
enum FieldMeaning {
    PLAIN,            // a number
    STRING_ROW,       // row of string
    STRING_OR_NUMBER, // row of string or a plain number, which a name beside it tells
    FRAME_ROW,        // row of frame
    FRAME_LINK,       // row of frame, -1 for none
    METHOD_ROW,       // row of method
    THREAD_NUMBER,    // running number of a thread (TRN), never reused
    THREAD_INDEX,     // reusable small key of a thread: first half of a row of threadframe
};

#define VDK_FIELDS_String(F, B)                                                                    \
    F(B, TEXT, text, nullptr, PLAIN, "the characters; null once the row was deleted")

#define VDK_FIELDS_Thread(F, B)                                                                    \
    F(B, INT, nameStrID, 0, STRING_ROW, "the thread's name")                                       \
    F(B, INT, groupStrID, 0, STRING_ROW, "the name of its thread group")                           \
    F(B, INT, tfiThreadIndex, 0, THREAD_INDEX,                                                     \
      "key in the thread-frame index, 0 once the thread was merged away")                          \
    F(B, INT, trn, 0, THREAD_NUMBER, "running number of the thread")                               \
    F(B, LONG, nativeThreadID, 0, PLAIN, "the operating system's id of the thread, 0 if unknown")

#define VDK_FIELDS_Method(F, B)                                                                    \
    F(B, INT, methodNameStrID, 0, STRING_ROW, "name of the method")                                \
    F(B, INT, parametersStrID, 0, STRING_ROW, "parameters as text, such as (byte[], int)")         \
    F(B, INT, classNameStrID, 0, STRING_ROW, "full name of the class")                             \
    F(B, INT, flags, 0, PLAIN, "method flags, see below")

#define VDK_FIELDS_ThreadFrame(F, B)                                                               \
    F(B, INT, tfiThreadIndex, 0, THREAD_INDEX, "key of the thread")                                \
    F(B, INT, frame, 0, FRAME_ROW, "the frame; both fields are 0 in a deleted row")

#define VDK_FIELDS_J2EE(F, B)                                                                      \
    F(B, INT, trn, 0, THREAD_NUMBER, "thread of the event")                                        \
    F(B, INT, frame, 0, FRAME_ROW, "stack of the event")                                           \
    F(B, INT, nameStrID, 0, STRING_ROW, "name of the event: SQL text, URI, JNDI name")             \
    F(B, INT, typeID, 0, PLAIN, "kind of the event")                                               \
    F(B, LONG, timeNs, 0, PLAIN, "time inside the event, ns")                                      \
    F(B, LONG, count, 0, PLAIN, "number of events")

#define VDK_FIELDS_Monitor(F, B)                                                                   \
    F(B, INT, waiterTRN, 0, THREAD_NUMBER, "thread that waited")                                   \
    F(B, INT, frame, 0, FRAME_ROW, "stack of the waiting thread")                                  \
    F(B, INT, ownerTRN, 0, THREAD_NUMBER, "thread that held the monitor, 0 if unknown")            \
    F(B, INT, classNameStrID, 0, STRING_ROW, "class of the monitor object")                        \
    F(B, LONG, timeNs, 0, PLAIN, "time waited, ns")                                                \
    F(B, LONG, count, 0, PLAIN, "number of waits")

#define VDK_FIELDS_CPUProfiling(F, B)                                                              \
    F(B, LONG, timeNs, 0, PLAIN, "time inside the frame, its callees included, ns")                \
    F(B, LONG, count, 0, PLAIN, "number of calls; 0 under sampling")

#define VDK_FIELDS_InstanceCounts(F, B)                                                            \
    F(B, INT, classNameStrID, 0, STRING_ROW, "full name of the class")                             \
    F(B, INT, instanceCount, 0, PLAIN, "live instances at the last count")                         \
    F(B, LONG, shallowSize, 0, PLAIN, "sum of their sizes, bytes")

#define VDK_FIELDS_Frame(F, B)                                                                     \
    F(B, INT, parent, -1, FRAME_LINK, "the caller's frame")                                        \
    F(B, INT, method, 0, METHOD_ROW, "the method that runs in this frame")                         \
    F(B, INT, firstChild, -1, FRAME_LINK, "first frame called from this one")                      \
    F(B, INT, nextSibling, -1, FRAME_LINK, "next frame with the same parent")

#define VDK_FIELDS_TableGeneration(F, B)

#define VDK_FIELDS_Snapshot(F, B)                                                                  \
    F(B, INT, pathStrID, 0, STRING_ROW, "path of the snapshot file")                               \
    F(B, LONG, value, 0, PLAIN, "flags that the snapshot was captured with")

#define VDK_FIELDS_AllocInfo(F, B)                                                                 \
    F(B, LONG, objectCount, 0, PLAIN, "recorded objects allocated in the frame")                   \
    F(B, LONG, objectBytes, 0, PLAIN, "sum of their sizes, bytes")

#define VDK_FIELDS_Allocator(F, B)                                                                 \
    F(B, INT, trn, 0, THREAD_NUMBER, "thread that allocated the object")                           \
    F(B, INT, frame, 0, FRAME_ROW, "stack of the allocation")                                      \
    F(B, INT, objectIndex, 0, PLAIN, "index of the object in a heap snapshot")

#define VDK_FIELDS_Generation(F, B)                                                                \
    F(B, INT, reserved, 0, PLAIN, "always 0")                                                      \
    F(B, INT, descriptionStrID, 0, STRING_ROW, "what opened the generation")                       \
    F(B, LONG, uptimeMs, 0, PLAIN, "uptime at its opening, ms")

#define VDK_FIELDS_Property(F, B)                                                                  \
    F(B, INT, nameStrID, 0, STRING_ROW, "name of the property")                                    \
    F(B, INT, value, 0, STRING_OR_NUMBER, "the name tells which")

#define VDK_FIELDS_Telemetry(F, B) F(B, TELE, values, {}, PLAIN, "the telemetry values, see below")

#define VDK_FIELDS_ThreadState(F, B)                                                               \
    F(B, INT, trn, 0, THREAD_NUMBER, "the thread")                                                 \
    F(B, INT, frame, 0, FRAME_ROW, "its stack")                                                    \
    F(B, INT, jvmtiThreadState, 0, PLAIN, "JVMTI thread state bits")                               \
    F(B, LONG, cpuTimeNs, 0, PLAIN, "CPU time of the thread, ns")

#define VDK_FIELDS_Exception(F, B)                                                                 \
    F(B, INT, trn, 0, THREAD_NUMBER, "thread that threw")                                          \
    F(B, INT, throwFrame, 0, FRAME_ROW, "stack at the throw")                                      \
    F(B, INT, catchFrame, 0, FRAME_ROW, "stack at the catch, 0 if not caught yet")                 \
    F(B, INT, classNameStrID, 0, STRING_ROW, "class of the exception")                             \
    F(B, LONG, count, 0, PLAIN, "number of throws")

#define VDK_FIELDS_TelemetryExt(F, B)                                                              \
    F(B, INT, nameStrID, 0, STRING_ROW, "name of the value")                                       \
    F(B, INT, value, 0, STRING_OR_NUMBER, "the name tells which")

// T(slot, record base name, member of DB, table name, first index, capacity, sizeof the record), in
// the order of the slots. The capacity of method reserves its chunk pointer array once: the flags
// of methods are read without a lock, so that array must not move.
#define VDK_TABLES(T)                                                                              \
    T(0, String, stringTable, "string", 1, 1024, 16)                                               \
    T(1, Thread, threadTable, "thread", 1, 1024, 32)                                               \
    T(2, Method, methodTable, "method", 1, 10485760, 20)                                           \
    T(3, ThreadFrame, threadFrameTable, "threadframe", 0, 1024, 12)                                \
    T(4, J2EE, j2eeTable, "j2ee", 0, 1024, 40)                                                     \
    T(5, Monitor, monitorTable, "monitor", 1, 1024, 40)                                            \
    T(6, CPUProfiling, cpuProfilingTable, "cpuprofiling", 0, 1024, 24)                             \
    T(7, InstanceCounts, instanceCountsTable, "instancecounts", 1, 1024, 24)                       \
    T(8, Frame, frameTable, "frame", 1, 1024, 20)                                                  \
    T(9, TableGeneration, tableGenerationTable, "tablegeneration", 0, 1024, 4)                     \
    T(10, Snapshot, snapshotTable, "snapshot", 0, 1024, 16)                                        \
    T(11, AllocInfo, allocInfoTable, "allocinfo", 0, 1024, 24)                                     \
    T(12, Allocator, allocatorTable, "allocator", 1, 1024, 16)                                     \
    T(13, Generation, generationTable, "generation", 1, 1024, 24)                                  \
    T(14, Property, propertyTable, "properties", 0, 1024, 12)                                      \
    T(15, Telemetry, telemetryTable, "tele", 0, 1024, 72)                                          \
    T(16, ThreadState, threadStateTable, "threadstate", 0, 1024, 24)                               \
    T(17, Exception, exceptionTable, "exception", 1, 1024, 32)                                     \
    T(18, TelemetryExt, telemetryExtTable, "tele_ext", 0, 1024, 12)

// Values of a row of tele. Keep in sync with com.vandrik.api.TelemetryRecord.
// V(index, name, text)
#define VDK_TELEMETRY_VALUES(V)                                                                    \
    V(0, TELE_HEAP_MEMORY_USED_KB, "heap used")                                                    \
    V(1, TELE_HEAP_MEMORY_COMMITTED_KB, "heap committed")                                          \
    V(2, TELE_NON_HEAP_MEMORY_USED_KB, "non-heap used")                                            \
    V(3, TELE_NON_HEAP_MEMORY_COMMITTED_KB, "non-heap committed")                                  \
    V(4, TELE_LOADED_CLASS_COUNT, "loaded classes")                                                \
    V(5, TELE_LIVE_THREAD_COUNT, "live threads")                                                   \
    V(6, TELE_DAEMON_THREAD_COUNT, "daemon threads")                                               \
    V(7, TELE_GC_COLLECTION1_COUNT, "collections of the first collector")                          \
    V(8, TELE_GC_COLLECTION2_COUNT, "collections of the second collector")                         \
    V(9, TELE_GC_TOTAL_COLLECTION_TIME_MS, "collection time")                                      \
    V(10, TELE_CPU_TIME_MS, "process CPU time")                                                    \
    V(11, TELE_PROCESSOR_COUNT, "available processors")                                            \
    V(12, TELE_UPTIME_DS, "uptime, tenths of a second")                                            \
    V(13, TELE_THREAD_STATE_COUNT, "threadstate rows of this sample, -1 when stacks were off")     \
    V(14, TELE_THREAD_STATE_START_INDEX, "first threadstate row of this sample")                   \
    V(15, TELE_EXT_COUNT, "tele_ext rows of this sample")                                          \
    V(16, TELE_EXT_START_INDEX, "first tele_ext row of this sample")

enum TelemetryIndex {
#define VDK_TELEMETRY_INDEX(index, name, text) name = index,
    VDK_TELEMETRY_VALUES(VDK_TELEMETRY_INDEX)
#undef VDK_TELEMETRY_INDEX
        TELE_FIELD_COUNT = 17
};

// Bits of MethodRecord::flags. M(value, name, text)
#define VDK_METHOD_FLAGS(M)                                                                        \
    M(1, METHOD_HIDDEN, "left out of every stack")                                                 \
    M(2, METHOD_FILTERED, "filtered out of the user's view")                                       \
    M(4, METHOD_WALL_TIME, "measured in wall time")                                                \
    M(16, METHOD_HAS_PROBE, "the J2EESupport probe is woven in; other probes leave it alone")      \
    M(32, METHOD_WAIT, "a place where a thread waits")                                             \
    M(64, METHOD_PROBE_CALLBACK, "a callback of a probe, told by its name")                        \
    M(128, METHOD_INSTRUMENTED, "carries the tracing entry and exit calls")

enum MethodFlag {
#define VDK_METHOD_FLAG(value, name, text) name = value,
    VDK_METHOD_FLAGS(VDK_METHOD_FLAG)
#undef VDK_METHOD_FLAG
};

// Rows 0 to 5 of properties, made with the database. Keep in sync with the TELEC_*_PROP_INDEX
// constants of com.vandrik.api.TelemetryRecord.
constexpr int TELEC_FIELD_COUNT = 6;
constexpr int TELEC_UNLOADED_CLASSES = 2;

// A telemetry row's 17 values.
struct TelemetryValues {
    int value[TELE_FIELD_COUNT];
    int& operator[](int i) { return value[i]; }
    int operator[](int i) const { return value[i]; }
};

typedef int FieldType_INT;
typedef long FieldType_LONG;
typedef char* FieldType_TEXT;
typedef TelemetryValues FieldType_TELE;
static_assert(sizeof(int) == 4 && sizeof(long) == 8 && sizeof(char*) == 8,
              "records are laid out for 64-bit systems");

#define VDK_DECLARE_FIELD(base, type, name, initial, meaning, text) FieldType_##type name = initial;
#define VDK_DECLARE_RECORD(slot, base, member, tableName, firstIndex, capacity, size)              \
    struct base##Record {                                                                          \
        int stamp = 0;                                                                             \
        VDK_FIELDS_##base(VDK_DECLARE_FIELD, base)                                                 \
    };                                                                                             \
    static_assert(sizeof(base##Record) == (size) && offsetof(base##Record, stamp) == 0 &&          \
                      std::is_trivially_copyable<base##Record>::value,                             \
                  "layout of " tableName);
VDK_TABLES(VDK_DECLARE_RECORD)
#undef VDK_DECLARE_RECORD
#undef VDK_DECLARE_FIELD

// Slots of the core tables: SLOT_String and so on.
enum TableSlot {
#define VDK_SLOT(slot, base, member, tableName, firstIndex, capacity, size) SLOT_##base = slot,
    VDK_TABLES(VDK_SLOT)
#undef VDK_SLOT
        CORE_TABLE_COUNT = 19,
    FIRST_USER_TABLE = 32,
    MAX_TABLE_COUNT = 128
};

// Numbers of the fields that DB::getIntField and its kin reach: FIELD_Thread_nameStrID and so on,
// counting from 0 through all records. The telemetry values have none.
enum FieldID {
#define VDK_FIELD_NUMBER_INT(base, name) FIELD_##base##_##name,
#define VDK_FIELD_NUMBER_LONG(base, name) FIELD_##base##_##name,
#define VDK_FIELD_NUMBER_TEXT(base, name) FIELD_##base##_##name,
#define VDK_FIELD_NUMBER_TELE(base, name)
#define VDK_FIELD_NUMBER(base, type, name, initial, meaning, text)                                 \
    VDK_FIELD_NUMBER_##type(base, name)
#define VDK_FIELD_NUMBERS(slot, base, member, tableName, firstIndex, capacity, size)               \
    VDK_FIELDS_##base(VDK_FIELD_NUMBER, base)
    VDK_TABLES(VDK_FIELD_NUMBERS)
#undef VDK_FIELD_NUMBERS
#undef VDK_FIELD_NUMBER
#undef VDK_FIELD_NUMBER_INT
#undef VDK_FIELD_NUMBER_LONG
#undef VDK_FIELD_NUMBER_TEXT
#undef VDK_FIELD_NUMBER_TELE
        FIELD_COUNT
};
static_assert(FIELD_COUNT == 56, "field numbers are part of the natives' interface");

// Description of one field, for readers, messages and the reference.
enum FieldType { FIELD_INT, FIELD_LONG, FIELD_TEXT, FIELD_TELE };
struct TableField {
    const char* name;
    FieldType type;
    FieldMeaning meaning;
    const char* text;
};

// RecordTraits<R>: what the templates know about a record type.
//   slot, tableName, firstIndex, capacity
//   fields, fieldCount   TableField in wire order, ended by an entry without name
//   eachField(record, v) calls v(field number, field) for each field in wire order
template <typename R>
struct RecordTraits;

#define VDK_FIELD_INFO(base, type, name, initial, meaning, text)                                   \
    {#name, FIELD_##type, meaning, text},
#define VDK_VISIT_FIELD(base, type, name, initial, meaning, text) visitor(number++, record.name);
#define VDK_DECLARE_TRAITS(theSlot, base, member, theName, theFirstIndex, theCapacity, size)       \
    template <>                                                                                    \
    struct RecordTraits<base##Record> {                                                            \
        static constexpr int slot = theSlot;                                                       \
        static constexpr const char* tableName = theName;                                          \
        static constexpr int firstIndex = theFirstIndex;                                           \
        static constexpr int capacity = theCapacity;                                               \
        static constexpr TableField fields[] = {                                                   \
            VDK_FIELDS_##base(VDK_FIELD_INFO, base){nullptr, FIELD_INT, PLAIN, nullptr}};          \
        static constexpr int fieldCount = sizeof(fields) / sizeof(fields[0]) - 1;                  \
        template <typename Record, typename Visitor>                                               \
        static void eachField(Record& record, Visitor&& visitor) {                                 \
            int number = 0;                                                                        \
            VDK_FIELDS_##base(VDK_VISIT_FIELD, base);                                              \
            static_cast<void>(number);                                                             \
            static_cast<void>(visitor);                                                            \
            static_cast<void>(record);                                                             \
        }                                                                                          \
    };
VDK_TABLES(VDK_DECLARE_TRAITS)
#undef VDK_DECLARE_TRAITS
#undef VDK_VISIT_FIELD
#undef VDK_FIELD_INFO
