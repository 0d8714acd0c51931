#pragma once

#include "heapfile/HprofRecords.h"
#include "heapfile/MappedFile.h"
#include "heapfile/ObjectIdMap.h"
#include "offline/AnalysisProgress.h"

#include <cstdint>
#include <string>
#include <vector>

// DESCRIPTION
//   First pass over a heap dump: finds all identifiers, the class records and roots, and counts the
//   objects by class, so that the second pass can fill arrays whose sizes and places it knows.
//   The dump is cut in chunks; the result doesn't depend on how many threads share them.
// IMPLEMENTATION
//   Segments are grouped in tasks of some megabytes, the unit that a thread takes. A long segment
//   is one task, which makes many chunks. A damaged segment is read up to the damage.
struct HprofClassCount {
    static constexpr int SAMPLES = 6;
    uint64_t classId;
    uint32_t count;
    uint32_t sampleCount;
    uint64_t samples[SAMPLES]; // identifiers of the first instances met
};

// Counts by class identifier. Open addressing; the slots in use are those with a count.
class HprofClassCounts {
public:
    void add(uint64_t classId, uint64_t instanceId) {
        HprofClassCount* entry = last && last->classId == classId ? last : find(classId);
        last = entry;
        entry->count++;
        if (entry->sampleCount < HprofClassCount::SAMPLES) {
            entry->samples[entry->sampleCount++] = instanceId;
        }
    }
    const std::vector<HprofClassCount>& slots() const { return table; }

private:
    HprofClassCount* find(uint64_t classId);
    void grow();

    std::vector<HprofClassCount> table;
    size_t used = 0;
    HprofClassCount* last = nullptr;
};

struct HprofArraySample {
    uint64_t id;
    uint32_t length;
    uint32_t elementSize; // 0 for references
};

struct HprofChunk {
    static constexpr size_t ARRAY_SAMPLES = 48; // of each of the two kinds
    std::vector<HprofRecords::Segment> ranges;  // whole records, in ascending order
    uint64_t bytes = 0;                         // of all closed ranges
    uint64_t objects = 0;                       // instances and arrays
    uint64_t arrayReferences = 0;        // references of all arrays, that to the class included
    uint32_t primitiveTypes = 0;         // bit t set: there is an array of the HPROF type t
    HprofClassCounts classes;            // instances only
    std::vector<uint64_t> arrayClassIds; // of reference arrays, each once in a row
    std::vector<HprofArraySample> arrays;
    size_t referenceArraySamples = 0;
};

struct HprofRoot {
    uint8_t tag;
    uint64_t id;
    uint32_t first;  // thread serial
    uint32_t second; // frame number, or stack trace serial of a thread
};

class HprofScan {
public:
    struct Options {
        int threads = 1;
        AnalysisProgress* progress = nullptr;
    };

    // Reads the segments of records. Damage is told in remarks.
    HprofScan(const MappedFile& file, const HprofRecords& records, const Options& options,
              std::vector<std::string>& remarks);

    ObjectIdMap ids;
    std::vector<HprofChunk> chunks; // in ascending order of offsets
    std::vector<HprofRoot> roots;
    std::vector<std::pair<uint64_t, uint64_t>> classRecords; // from tag to end
    uint64_t classAndObjectRecords = 0;
    uint64_t recordsWithoutId = 0;

private:
    struct Task;
    template <uint32_t ID_SIZE>
    class Handler;

    std::vector<Task> makeTasks(const HprofRecords& records) const;
    void runTask(Task& task, ObjectIdMap::Builder& builder, uint32_t idSize) const;
    template <uint32_t ID_SIZE>
    void walkTask(Task& task, ObjectIdMap::Builder& builder) const;
    void collect(std::vector<Task>& tasks, std::vector<std::string>& remarks);

    const MappedFile& mapped;
    uint64_t chunkSize;
};
