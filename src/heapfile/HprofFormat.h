#pragma once

#include <cstdint>
#include <cstring>

// The JVM's own heap dump format, HPROF 1.0.1 and 1.0.2: numbers of records, roots and types, and
// the reading of its big-endian numbers. All lengths come from the file and are checked by callers.

enum HprofRecordTag : uint8_t {
    HPROF_STRING = 0x01,
    HPROF_LOAD_CLASS = 0x02,
    HPROF_UNLOAD_CLASS = 0x03,
    HPROF_FRAME = 0x04,
    HPROF_TRACE = 0x05,
    HPROF_ALLOC_SITES = 0x06,
    HPROF_HEAP_SUMMARY = 0x07,
    HPROF_START_THREAD = 0x0a,
    HPROF_END_THREAD = 0x0b,
    HPROF_HEAP_DUMP = 0x0c,
    HPROF_CPU_SAMPLES = 0x0d,
    HPROF_CONTROL_SETTINGS = 0x0e,
    HPROF_HEAP_DUMP_SEGMENT = 0x1c,
    HPROF_HEAP_DUMP_END = 0x2c
};

// Records inside a heap dump. Those from 0x89 on come from the Android runtime.
enum HprofSubTag : uint8_t {
    HPROF_ROOT_UNKNOWN = 0xff,
    HPROF_ROOT_JNI_GLOBAL = 0x01,
    HPROF_ROOT_JNI_LOCAL = 0x02,
    HPROF_ROOT_JAVA_FRAME = 0x03,
    HPROF_ROOT_NATIVE_STACK = 0x04,
    HPROF_ROOT_STICKY_CLASS = 0x05,
    HPROF_ROOT_THREAD_BLOCK = 0x06,
    HPROF_ROOT_MONITOR_USED = 0x07,
    HPROF_ROOT_THREAD_OBJECT = 0x08,
    HPROF_CLASS_DUMP = 0x20,
    HPROF_INSTANCE_DUMP = 0x21,
    HPROF_OBJECT_ARRAY_DUMP = 0x22,
    HPROF_PRIMITIVE_ARRAY_DUMP = 0x23,
    HPROF_ROOT_INTERNED_STRING = 0x89,
    HPROF_ROOT_FINALIZING = 0x8a,
    HPROF_ROOT_DEBUGGER = 0x8b,
    HPROF_ROOT_REFERENCE_CLEANUP = 0x8c,
    HPROF_ROOT_VM_INTERNAL = 0x8d,
    HPROF_ROOT_JNI_MONITOR = 0x8e,
    HPROF_UNREACHABLE = 0x90,
    HPROF_PRIMITIVE_ARRAY_NODATA = 0xc3,
    HPROF_HEAP_DUMP_INFO = 0xfe
};

constexpr uint32_t HPROF_TOP_RECORD_HEADER = 9; // tag, microseconds, length
constexpr uint8_t HPROF_TYPE_OBJECT = 2;
constexpr uint8_t HPROF_LAST_TYPE = 11;

// Java type letter of an HPROF type number, 'L' for a reference, 0 for an unknown number.
inline char hprofTypeLetter(uint8_t type) {
    static const char letters[] = "\0\0L\0ZCFDBSIJ";
    return type <= HPROF_LAST_TYPE ? letters[type] : '\0';
}

// Bytes of a value of an HPROF type in the dump, 0 for an unknown type.
inline uint32_t hprofTypeSize(uint8_t type, uint32_t idSize) {
    static const uint8_t sizes[] = {0, 0, 0, 0, 1, 2, 4, 8, 1, 2, 4, 8};
    if (type == HPROF_TYPE_OBJECT) {
        return idSize;
    }
    return type <= HPROF_LAST_TYPE ? sizes[type] : 0;
}

inline uint32_t hprofU2(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 8 | p[1];
}

inline uint32_t hprofU4(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}

inline uint64_t hprofU8(const uint8_t* p) {
    return static_cast<uint64_t>(hprofU4(p)) << 32 | hprofU4(p + 4);
}

template <uint32_t ID_SIZE>
inline uint64_t hprofId(const uint8_t* p) {
    return ID_SIZE == 8 ? hprofU8(p) : hprofU4(p);
}

inline uint64_t hprofId(const uint8_t* p, uint32_t idSize) {
    return idSize == 8 ? hprofU8(p) : hprofU4(p);
}
