#pragma once

#include "heapfile/HprofFormat.h"

#include <cstdint>

// Where a walk over the records of a heap dump ended, and why if it ended early.
struct HprofWalkEnd {
    uint64_t offset = 0;           // of the first byte that was not read
    const char* problem = nullptr; // null if the stretch was read to its end
};

// Walks the records inside a heap dump from offset `from` to `to` and calls the handler for each
// that is complete:
//   root(tag, id, first, second)      the two words behind the id, 0 where the kind has none
//   classDump(offset, end)            the whole record, tag included
//   instance(offset, id, classId, data, length)
//   objectArray(offset, id, classId, elements, length)
//   primitiveArray(offset, id, type, elements, length)   elements null for an array without data
//   boundary(offset)                  before each record
// Offsets are those of the record's tag byte in the file. Never reads at or behind `to`.
template <uint32_t ID_SIZE, typename Handler>
class HprofWalker {
public:
    HprofWalker(const uint8_t* fileBytes, Handler& target) : base(fileBytes), handler(target) {}

    HprofWalkEnd walk(uint64_t from, uint64_t to) {
        pos = from;
        end = to;
        HprofWalkEnd result;
        while (pos < end) {
            handler.boundary(pos);
            const char* problem = step();
            if (problem) {
                result.problem = problem;
                break;
            }
        }
        result.offset = pos;
        return result;
    }

private:
    static constexpr const char* CUT = "record is cut off";

    bool has(uint64_t count) const { return end - pos >= count; }
    uint64_t id(uint64_t at) const { return hprofId<ID_SIZE>(base + at); }

    const char* step() {
        switch (base[pos]) {
        case HPROF_INSTANCE_DUMP:
            return instance();
        case HPROF_OBJECT_ARRAY_DUMP:
            return objectArray();
        case HPROF_PRIMITIVE_ARRAY_DUMP:
            return primitiveArray(true);
        case HPROF_PRIMITIVE_ARRAY_NODATA:
            return primitiveArray(false);
        case HPROF_CLASS_DUMP:
            return classDump();
        case HPROF_ROOT_JNI_GLOBAL:
            return root(0, ID_SIZE);
        case HPROF_ROOT_JNI_LOCAL:
        case HPROF_ROOT_JAVA_FRAME:
        case HPROF_ROOT_THREAD_OBJECT:
        case HPROF_ROOT_JNI_MONITOR:
            return root(2, 0);
        case HPROF_ROOT_NATIVE_STACK:
        case HPROF_ROOT_THREAD_BLOCK:
            return root(1, 0);
        case HPROF_ROOT_UNKNOWN:
        case HPROF_ROOT_STICKY_CLASS:
        case HPROF_ROOT_MONITOR_USED:
        case HPROF_ROOT_INTERNED_STRING:
        case HPROF_ROOT_FINALIZING:
        case HPROF_ROOT_DEBUGGER:
        case HPROF_ROOT_REFERENCE_CLEANUP:
        case HPROF_ROOT_VM_INTERNAL:
        case HPROF_UNREACHABLE:
            return root(0, 0);
        case HPROF_HEAP_DUMP_INFO:
            return skip(1 + 4 + ID_SIZE);
        default:
            return "unknown heap record tag";
        }
    }

    const char* skip(uint64_t count) {
        if (!has(count)) {
            return CUT;
        }
        pos += count;
        return nullptr;
    }

    // A root: tag, id, `words` 4-byte words, `extra` bytes of no interest.
    const char* root(uint32_t words, uint32_t extra) {
        uint64_t total = 1 + ID_SIZE + 4 * words + extra;
        if (!has(total)) {
            return CUT;
        }
        const uint8_t* word = base + pos + 1 + ID_SIZE;
        handler.root(base[pos], id(pos + 1), words > 0 ? hprofU4(word) : 0,
                     words > 1 ? hprofU4(word + 4) : 0);
        pos += total;
        return nullptr;
    }

    const char* instance() {
        constexpr uint64_t FIXED = 1 + ID_SIZE + 4 + ID_SIZE + 4;
        if (!has(FIXED)) {
            return CUT;
        }
        uint64_t length = hprofU4(base + pos + FIXED - 4);
        if (!has(FIXED + length)) {
            return "instance goes beyond the end";
        }
        handler.instance(pos, id(pos + 1), id(pos + 1 + ID_SIZE + 4), base + pos + FIXED,
                         static_cast<uint32_t>(length));
        pos += FIXED + length;
        return nullptr;
    }

    const char* objectArray() {
        constexpr uint64_t FIXED = 1 + ID_SIZE + 4 + 4 + ID_SIZE;
        if (!has(FIXED)) {
            return CUT;
        }
        uint64_t length = hprofU4(base + pos + 1 + ID_SIZE + 4);
        if (!has(FIXED + length * ID_SIZE)) {
            return "array goes beyond the end";
        }
        handler.objectArray(pos, id(pos + 1), id(pos + FIXED - ID_SIZE), base + pos + FIXED,
                            static_cast<uint32_t>(length));
        pos += FIXED + length * ID_SIZE;
        return nullptr;
    }

    const char* primitiveArray(bool withData) {
        constexpr uint64_t FIXED = 1 + ID_SIZE + 4 + 4 + 1;
        if (!has(FIXED)) {
            return CUT;
        }
        uint64_t length = hprofU4(base + pos + 1 + ID_SIZE + 4);
        uint8_t type = base[pos + FIXED - 1];
        uint32_t size = type == HPROF_TYPE_OBJECT ? 0 : hprofTypeSize(type, ID_SIZE);
        if (size == 0) {
            return "primitive array of an unknown type";
        }
        uint64_t bytes = withData ? length * size : 0;
        if (!has(FIXED + bytes)) {
            return "array goes beyond the end";
        }
        handler.primitiveArray(pos, id(pos + 1), type, withData ? base + pos + FIXED : nullptr,
                               static_cast<uint32_t>(length));
        pos += FIXED + bytes;
        return nullptr;
    }

    // class, trace, superclass, loader, signers, domain, 2 reserved, instance size, then the
    // constant pool (u2 index, u1 type, value), the statics (id, u1 type, value) and the fields
    // (id, u1 type), each behind a u2 count.
    const char* classDump() {
        constexpr uint64_t FIXED = 1 + ID_SIZE + 4 + 6 * ID_SIZE + 4;
        uint64_t start = pos;
        uint64_t at = pos + FIXED;
        if (!has(FIXED) || !skipTyped(at, 2, true) || !skipTyped(at, ID_SIZE, true) ||
            !skipTyped(at, ID_SIZE, false)) {
            return "class record is cut off or has an unknown type";
        }
        handler.classDump(start, at);
        pos = at;
        return nullptr;
    }

    bool skipTyped(uint64_t& at, uint32_t nameSize, bool withValue) const {
        if (end - at < 2) {
            return false;
        }
        uint32_t count = hprofU2(base + at);
        at += 2;
        for (uint32_t i = 0; i < count; i++) {
            if (end - at < nameSize + 1) {
                return false;
            }
            uint32_t size = hprofTypeSize(base[at + nameSize], ID_SIZE);
            at += nameSize + 1;
            if (size == 0 || (withValue && end - at < size)) {
                return false;
            }
            at += withValue ? size : 0;
        }
        return true;
    }

    const uint8_t* base;
    Handler& handler;
    uint64_t pos = 0;
    uint64_t end = 0;
};
