#include "heapfile/HprofScan.h"

#include "heapfile/HprofWalker.h"
#include "heapfile/ParallelTasks.h"

#include <algorithm>

namespace {

constexpr uint64_t SMALLEST_CHUNK = 256 * 1024;
constexpr uint64_t LARGEST_CHUNK = 16 * 1024 * 1024;
constexpr uint64_t CHUNKS_WANTED = 64;
constexpr uint64_t ID_MAP_BASE = 4 * 1024 * 1024; // bytes of bitmaps that any file may take

size_t hashOf(uint64_t id) {
    return static_cast<size_t>(id * 0x9e3779b97f4a7c15ULL >> 20);
}

} // namespace

HprofClassCount* HprofClassCounts::find(uint64_t classId) {
    if (used * 2 >= table.size()) {
        grow();
    }
    size_t mask = table.size() - 1;
    for (size_t i = hashOf(classId) & mask;; i = (i + 1) & mask) {
        if (table[i].count == 0) {
            table[i].classId = classId;
            used++;
            return &table[i];
        }
        if (table[i].classId == classId) {
            return &table[i];
        }
    }
}

void HprofClassCounts::grow() {
    std::vector<HprofClassCount> old(table.empty() ? 16 : table.size() * 2, HprofClassCount());
    old.swap(table);
    size_t mask = table.size() - 1;
    for (const HprofClassCount& entry : old) {
        if (entry.count == 0) {
            continue;
        }
        size_t i = hashOf(entry.classId) & mask;
        while (table[i].count != 0) {
            i = (i + 1) & mask;
        }
        table[i] = entry;
    }
}

// Some segments, and what was found in them.
struct HprofScan::Task {
    std::vector<HprofRecords::Segment> segments;
    std::vector<HprofChunk> chunks;
    std::vector<HprofRoot> roots;
    std::vector<std::pair<uint64_t, uint64_t>> classRecords;
    std::vector<std::string> remarks;
    uint64_t recordsWithoutId = 0;
};

template <uint32_t ID_SIZE>
class HprofScan::Handler {
public:
    Handler(Task& scanTask, ObjectIdMap::Builder& idBuilder, uint64_t bytesInChunk)
        : task(scanTask), builder(idBuilder), chunkSize(bytesInChunk) {}

    void beginSegment(uint64_t from) {
        if (!chunk || chunk->bytes >= chunkSize) {
            openChunk();
        }
        openRange(from);
    }
    void endSegment(uint64_t to) {
        HprofRecords::Segment& range = chunk->ranges.back();
        range.to = to;
        chunk->bytes += to - range.from;
    }
    void boundary(uint64_t offset) {
        if (offset >= nextBoundary) {
            endSegment(offset);
            openChunk();
            openRange(offset);
        }
    }
    void root(uint8_t tag, uint64_t id, uint32_t first, uint32_t second) {
        if (tag != HPROF_UNREACHABLE) {
            task.roots.push_back({tag, id, first, second});
        }
    }
    void classDump(uint64_t offset, uint64_t end) {
        const uint64_t id = hprofId<ID_SIZE>(base + offset + 1);
        if (addId(id)) {
            task.classRecords.emplace_back(offset, end);
        }
    }
    void instance(uint64_t, uint64_t id, uint64_t classId, const uint8_t*, uint32_t) {
        if (addId(id)) {
            chunk->objects++;
            chunk->classes.add(classId, id);
        }
    }
    void objectArray(uint64_t, uint64_t id, uint64_t classId, const uint8_t*, uint32_t length) {
        if (!addId(id)) {
            return;
        }
        chunk->objects++;
        chunk->arrayReferences += 1 + static_cast<uint64_t>(length);
        if (chunk->arrayClassIds.empty() || chunk->arrayClassIds.back() != classId) {
            chunk->arrayClassIds.push_back(classId);
        }
        if (chunk->referenceArraySamples < HprofChunk::ARRAY_SAMPLES && length > 1) {
            chunk->referenceArraySamples++;
            chunk->arrays.push_back({id, length, 0});
        }
    }
    void primitiveArray(uint64_t, uint64_t id, uint8_t type, const uint8_t*, uint32_t length) {
        if (!addId(id)) {
            return;
        }
        chunk->objects++;
        chunk->arrayReferences++;
        chunk->primitiveTypes |= 1u << type;
        size_t primitiveSamples = chunk->arrays.size() - chunk->referenceArraySamples;
        if (primitiveSamples < HprofChunk::ARRAY_SAMPLES) {
            chunk->arrays.push_back({id, length, hprofTypeSize(type, ID_SIZE)});
        }
    }

    const uint8_t* base = nullptr;

private:
    void openChunk() {
        task.chunks.emplace_back();
        chunk = &task.chunks.back();
    }
    void openRange(uint64_t from) {
        chunk->ranges.push_back({from, from});
        nextBoundary = from + (chunkSize - chunk->bytes);
    }
    bool addId(uint64_t id) {
        if (id == 0) {
            task.recordsWithoutId++;
            return false;
        }
        builder.add(id);
        return true;
    }

    Task& task;
    ObjectIdMap::Builder& builder;
    HprofChunk* chunk = nullptr;
    uint64_t chunkSize;
    uint64_t nextBoundary = 0;
};

HprofScan::HprofScan(const MappedFile& file, const HprofRecords& records, const Options& options,
                     std::vector<std::string>& remarks)
    : mapped(file),
      chunkSize(std::clamp(file.size() / CHUNKS_WANTED, SMALLEST_CHUNK, LARGEST_CHUNK)) {
    std::vector<Task> tasks = makeTasks(records);
    int workers = std::max(1, options.threads);
    std::vector<ObjectIdMap::Builder> builders;
    for (int i = 0; i < workers; i++) {
        builders.emplace_back(ID_MAP_BASE + file.size() / 2);
    }
    runParallel(
        tasks.size(), workers,
        [&](size_t task, int worker) {
            runTask(tasks[task], builders[static_cast<size_t>(worker)], records.idSize());
        },
        [&](size_t taken) {
            reportProgress(options.progress, "scanning", static_cast<long>(taken),
                           static_cast<long>(tasks.size()));
        });
    for (int i = 1; i < workers; i++) {
        builders[0].merge(builders[static_cast<size_t>(i)]);
    }
    ids.build(builders[0]);
    collect(tasks, remarks);
}

std::vector<HprofScan::Task> HprofScan::makeTasks(const HprofRecords& records) const {
    std::vector<Task> tasks;
    uint64_t bytes = chunkSize;
    for (const HprofRecords::Segment& segment : records.segments()) {
        if (bytes >= chunkSize) {
            tasks.emplace_back();
            bytes = 0;
        }
        tasks.back().segments.push_back(segment);
        bytes += segment.to - segment.from;
    }
    return tasks;
}

void HprofScan::runTask(Task& task, ObjectIdMap::Builder& builder, uint32_t idSize) const {
    if (idSize == 8) {
        walkTask<8>(task, builder);
    } else {
        walkTask<4>(task, builder);
    }
    if (!task.segments.empty()) {
        mapped.release(task.segments.front().from, task.segments.back().to);
    }
}

template <uint32_t ID_SIZE>
void HprofScan::walkTask(Task& task, ObjectIdMap::Builder& builder) const {
    Handler<ID_SIZE> handler(task, builder, chunkSize);
    handler.base = mapped.data();
    for (const HprofRecords::Segment& segment : task.segments) {
        handler.beginSegment(segment.from);
        HprofWalker<ID_SIZE, Handler<ID_SIZE>> walker(mapped.data(), handler);
        HprofWalkEnd end = walker.walk(segment.from, segment.to);
        handler.endSegment(end.offset);
        if (end.problem) {
            task.remarks.push_back(
                std::string(end.problem) + " at offset " + std::to_string(end.offset) + "; " +
                std::to_string(segment.to - end.offset) + " bytes of the heap dump are left out");
        }
    }
}

void HprofScan::collect(std::vector<Task>& tasks, std::vector<std::string>& remarks) {
    constexpr size_t MOST_REMARKS = 20;
    size_t damaged = 0;
    for (Task& task : tasks) {
        for (HprofChunk& chunk : task.chunks) {
            classAndObjectRecords += chunk.objects;
            chunks.push_back(std::move(chunk));
        }
        roots.insert(roots.end(), task.roots.begin(), task.roots.end());
        classRecords.insert(classRecords.end(), task.classRecords.begin(), task.classRecords.end());
        recordsWithoutId += task.recordsWithoutId;
        for (const std::string& remark : task.remarks) {
            if (damaged++ < MOST_REMARKS) {
                remarks.push_back(remark);
            }
        }
    }
    classAndObjectRecords += classRecords.size();
    if (damaged > MOST_REMARKS) {
        remarks.push_back(std::to_string(damaged - MOST_REMARKS) + " further segments are damaged");
    }
    if (recordsWithoutId > 0) {
        remarks.push_back(std::to_string(recordsWithoutId) +
                          " objects have the identifier 0 and are left out");
    }
}
