#include "heapfile/HprofRecords.h"

#include "heapfile/HeapReadError.h"
#include "heapfile/HeapText.h"
#include "heapfile/HprofFormat.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char MAGIC[] = "JAVA PROFILE 1.0.";
constexpr uint64_t MAGIC_LENGTH = sizeof(MAGIC) - 1;
constexpr uint64_t LENGTH_WRAP = 1ULL << 32; // lengths have 32 bits, heap dumps may have more
constexpr uint32_t MOST_FRAMES = 4096;
constexpr int32_t NATIVE_LINE = -3;
constexpr uint64_t MOST_TRIED_HEADS = 1 << 16; // behind damage

// Sorts by key and leaves the last of those with the same key, which is the valid one.
template <typename T, typename Key>
void sortKeepLast(std::vector<T>& table, Key key) {
    std::stable_sort(table.begin(), table.end(),
                     [&](const T& a, const T& b) { return key(a) < key(b); });
    size_t kept = 0;
    for (size_t i = 0; i < table.size(); i++) {
        if (i + 1 < table.size() && key(table[i]) == key(table[i + 1])) {
            continue;
        }
        table[kept++] = table[i];
    }
    table.resize(kept);
}

template <typename T, typename Key>
const T* findByKey(const std::vector<T>& table, uint64_t wanted, Key key) {
    auto at = std::lower_bound(table.begin(), table.end(), wanted,
                               [&](const T& entry, uint64_t k) { return key(entry) < k; });
    return at != table.end() && key(*at) == wanted ? &*at : nullptr;
}

} // namespace

bool HprofRecords::isHprof(const uint8_t* bytes, uint64_t size) {
    return size >= MAGIC_LENGTH && memcmp(bytes, MAGIC, MAGIC_LENGTH) == 0;
}

HprofRecords::HprofRecords(const uint8_t* fileBytes, uint64_t fileSize, int dumpNumber,
                           std::vector<std::string>& remarks)
    : base(fileBytes), size(fileSize) {
    readHeader();
    readRecords(dumpNumber, remarks);
    sortTables();
}

void HprofRecords::readHeader() {
    if (!isHprof(base, size)) {
        throw HeapReadError("not an HPROF file: wrong magic", 0);
    }
    const void* end = memchr(base, 0, std::min<uint64_t>(size, 32));
    if (!end) {
        throw HeapReadError("HPROF header has no end of text", MAGIC_LENGTH);
    }
    uint64_t at = static_cast<uint64_t>(static_cast<const uint8_t*>(end) - base) + 1;
    char version = static_cast<char>(base[MAGIC_LENGTH]);
    if (at != MAGIC_LENGTH + 2 || version < '1' || version > '3') {
        throw HeapReadError("unknown HPROF version", MAGIC_LENGTH);
    }
    format = std::string("HPROF 1.0.") + version;
    if (size - at < 12) {
        throw HeapReadError("HPROF header is cut off", size);
    }
    identifierSize = hprofU4(base + at);
    if (identifierSize != 4 && identifierSize != 8) {
        throw HeapReadError(
            "identifiers of " + std::to_string(identifierSize) + " bytes, 4 or 8 expected,", at);
    }
    timeMs = hprofU8(base + at + 4);
    firstRecord = at + 12;
}

void HprofRecords::readRecords(int dumpNumber, std::vector<std::string>& remarks) {
    uint64_t pos = firstRecord;
    bool inDump = false;
    while (pos < size) {
        if (size - pos < HPROF_TOP_RECORD_HEADER) {
            remarks.push_back("the file is truncated: record head cut off at offset " +
                              std::to_string(pos));
            break;
        }
        uint8_t tag = base[pos];
        uint64_t length = hprofU4(base + pos + 5);
        uint64_t body = pos + HPROF_TOP_RECORD_HEADER;
        if (tag == HPROF_HEAP_DUMP || tag == HPROF_HEAP_DUMP_SEGMENT) {
            bool guessed = false;
            uint64_t end = endOfHeapRecord(tag, body, length, guessed);
            if (tag == HPROF_HEAP_DUMP || !inDump) {
                dumps++;
            }
            inDump = tag == HPROF_HEAP_DUMP_SEGMENT;
            if (dumps == dumpNumber) {
                heapSegments.push_back({body, std::min(end, size)});
            }
            if (end > size) {
                remarks.push_back("the file is truncated: the heap dump record at offset " +
                                  std::to_string(pos) + " needs " + std::to_string(end - size) +
                                  " bytes more");
            } else if (guessed) {
                remarks.push_back("the heap dump record at offset " + std::to_string(pos) +
                                  " has a length that cannot be; taken to end at offset " +
                                  std::to_string(end));
            }
            pos = std::min(end, size);
            continue;
        }
        const bool isKnown =
            tag != 0 && (tag <= HPROF_CONTROL_SETTINGS || tag == HPROF_HEAP_DUMP_END);
        if (!isKnown || length > size - body) {
            const uint64_t next = nextPlausibleRecord(pos + 1);
            remarks.push_back(damageAt(pos, tag, isKnown, length, next));
            if (next >= size) {
                break;
            }
            pos = next;
            continue;
        }
        inDump = inDump && tag != HPROF_HEAP_DUMP_END;
        readSmallRecord(tag, body, length);
        pos = body + length;
    }
    if (dumps < dumpNumber || dumpNumber < 1) {
        std::string why = remarks.empty() ? "" : " (" + remarks.back() + ")";
        throw HeapReadError(dumps == 0 ? "the file holds no heap dump" + why
                                       : "the file holds " + std::to_string(dumps) +
                                             " heap dumps, none of number " +
                                             std::to_string(dumpNumber) + why,
                            pos);
    }
    if (dumps > 1) {
        remarks.push_back("the file holds " + std::to_string(dumps) +
                          " heap dumps; this is number " + std::to_string(dumpNumber));
    }
}

std::string HprofRecords::damageAt(uint64_t pos, uint8_t tag, bool isKnown, uint64_t length,
                                   uint64_t next) const {
    const uint64_t left = size - pos - HPROF_TOP_RECORD_HEADER;
    std::string text =
        isKnown ? "the file is truncated: the record at offset " + std::to_string(pos) + " needs " +
                      std::to_string(length - left) + " bytes more"
                : "unknown record tag " + std::to_string(tag) + " at offset " + std::to_string(pos);
    if (next < size) {
        return "damage at offset " + std::to_string(pos) + "; the file is read on from offset " +
               std::to_string(next);
    }
    return isKnown ? text : text + "; the file is read up to there";
}

// Where records go on behind damage: at the head of a class or of a heap dump from which a chain of
// records reaches the end. The size of the file if there is none.
uint64_t HprofRecords::nextPlausibleRecord(uint64_t from) const {
    uint64_t tried = 0;
    for (uint64_t at = from; at + HPROF_TOP_RECORD_HEADER <= size && tried < MOST_TRIED_HEADS;
         at++) {
        const uint8_t tag = base[at];
        const bool isHead = tag == HPROF_LOAD_CLASS || tag == HPROF_HEAP_DUMP_SEGMENT;
        if (!isHead ||
            (tag == HPROF_LOAD_CLASS && hprofU4(base + at + 5) != 8 + 2 * identifierSize)) {
            continue;
        }
        tried++;
        if (recordsReachEnd(at)) {
            return at;
        }
    }
    return size;
}

// End of a heap dump record by its length, or by what fits better. An old JVM writes the whole heap
// as one record whose length has lost its upper bits, and one that died leaves a length of 0.
uint64_t HprofRecords::endOfHeapRecord(uint8_t tag, uint64_t body, uint64_t length,
                                       bool& guessed) const {
    if (length == 0 && body < size) {
        guessed = !recordsReachEnd(body);
        return guessed ? size : body;
    }
    if (tag != HPROF_HEAP_DUMP || size - body < LENGTH_WRAP) {
        return body + length;
    }
    for (uint64_t end = body + length; end <= size; end += LENGTH_WRAP) {
        if (recordsReachEnd(end)) {
            guessed = end != body + length;
            return end;
        }
    }
    return body + length;
}

// Whether a plausible chain of records begins here: up to the end of the file, or a good number.
bool HprofRecords::recordsReachEnd(uint64_t pos) const {
    for (int i = 0; i < 1000 && pos < size; i++) {
        if (size - pos < HPROF_TOP_RECORD_HEADER) {
            return false;
        }
        uint8_t tag = base[pos];
        bool heap = tag == HPROF_HEAP_DUMP || tag == HPROF_HEAP_DUMP_SEGMENT;
        if (tag == 0 || (tag > HPROF_CONTROL_SETTINGS && tag != HPROF_HEAP_DUMP_END && !heap)) {
            return false;
        }
        if (tag == HPROF_HEAP_DUMP) {
            return true; // its length may be a lie again; the tag and the place have to do
        }
        pos += HPROF_TOP_RECORD_HEADER + static_cast<uint64_t>(hprofU4(base + pos + 5));
        if (pos > size) {
            return heap; // cut off in the middle of a segment
        }
    }
    return true;
}

void HprofRecords::readSmallRecord(uint8_t tag, uint64_t body, uint64_t length) {
    const uint8_t* p = base + body;
    const uint32_t id = identifierSize;
    switch (tag) {
    case HPROF_STRING:
        if (length >= id) {
            strings.push_back({hprofId(p, id), body + id, static_cast<uint32_t>(length - id)});
        }
        break;
    case HPROF_LOAD_CLASS: // u4 serial, id class, u4 trace, id name
        if (length >= 8 + 2 * id) {
            loaded.push_back({hprofId(p + 4, id), hprofId(p + 8 + id, id), hprofU4(p)});
        }
        break;
    case HPROF_FRAME: // id frame, id method, id signature, id file, u4 class serial, u4 line
        if (length >= 4 * id + 8) {
            frames.push_back({hprofId(p, id), body, static_cast<uint32_t>(length)});
        }
        break;
    case HPROF_TRACE: // u4 serial, u4 thread serial, u4 count, ids of frames
        if (length >= 12) {
            traces.push_back({hprofU4(p), body, static_cast<uint32_t>(length)});
        }
        break;
    default:
        break;
    }
}

void HprofRecords::sortTables() {
    for (const LoadedClass& entry : loaded) {
        classIdsBySerial.emplace_back(entry.serial, entry.classId);
    }
    sortKeepLast(classIdsBySerial, [](const auto& e) { return e.first; });
    sortKeepLast(strings, [](const StringAt& e) { return e.id; });
    sortKeepLast(loaded, [](const LoadedClass& e) { return e.classId; });
    sortKeepLast(frames, [](const RecordAt& e) { return e.key; });
    sortKeepLast(traces, [](const RecordAt& e) { return e.key; });
}

std::string HprofRecords::string(uint64_t id) const {
    const StringAt* found = findByKey(strings, id, [](const StringAt& e) { return e.id; });
    return found ? cleanUtf8(base + found->offset, found->length) : std::string();
}

std::string HprofRecords::className(uint64_t classId) const {
    const LoadedClass* found =
        findByKey(loaded, classId, [](const LoadedClass& e) { return e.classId; });
    return found ? sourceClassName(string(found->nameId)) : std::string();
}

bool HprofRecords::frame(uint64_t frameId, Frame& result) const {
    const RecordAt* found = findByKey(frames, frameId, [](const RecordAt& e) { return e.key; });
    if (!found) {
        return false;
    }
    const uint32_t id = identifierSize;
    const uint8_t* p = base + found->offset;
    result = {hprofId(p + id, id), hprofId(p + 3 * id, id), hprofU4(p + 4 * id),
              static_cast<int32_t>(hprofU4(p + 4 * id + 4))};
    return true;
}

std::string HprofRecords::frameText(const Frame& frame) const {
    const auto* type = findByKey(classIdsBySerial, frame.classSerial,
                                 [](const auto& e) { return static_cast<uint64_t>(e.first); });
    std::string text = type ? className(type->second) : std::string("?");
    text += "." + string(frame.methodName);
    if (frame.line == NATIVE_LINE) {
        return text + "(native)";
    }
    std::string file = string(frame.fileName);
    if (!file.empty()) {
        text += "(" + file + (frame.line > 0 ? ":" + std::to_string(frame.line) : "") + ")";
    }
    return text;
}

std::vector<uint64_t> HprofRecords::trace(uint32_t traceSerial) const {
    std::vector<uint64_t> result;
    const RecordAt* trace = findByKey(traces, traceSerial, [](const RecordAt& e) { return e.key; });
    if (!trace) {
        return result;
    }
    uint64_t count = hprofU4(base + trace->offset + 8);
    count = std::min<uint64_t>({count, (trace->length - 12) / identifierSize, MOST_FRAMES});
    for (uint64_t i = 0; i < count; i++) {
        result.push_back(hprofId(base + trace->offset + 12 + i * identifierSize, identifierSize));
    }
    return result;
}
