#include "heapfile/HprofReader.h"

#include "heapfile/HeapReadError.h"
#include "heapfile/HprofClasses.h"
#include "heapfile/HprofRecords.h"
#include "heapfile/HprofScan.h"
#include "heapfile/HprofWalker.h"
#include "heapfile/ParallelTasks.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <unordered_map>

namespace {

constexpr uint64_t MOST_ROWS = 0x3ffffff0; // a row has two 32-bit positions in one table
constexpr uint64_t MOST_REFERENCES = 0x7ffffff0;
constexpr uint64_t USUALLY_ABSENT = 8192; // references or roots without an object in a healthy dump
constexpr uint64_t USUAL_SHARE = 1000;    // or one in so many

// Rows that were filled already. Needed only for a dump that holds an identifier twice.
class FilledRows {
public:
    explicit FilledRows(uint64_t rows) : bits(rows / 64 + 1, 0) {}
    // True the first time.
    bool take(uint32_t row) {
        uint64_t bit = 1ULL << (row & 63);
        bool first = (bits[row >> 6] & bit) == 0;
        bits[row >> 6] |= bit;
        return first;
    }

private:
    std::vector<uint64_t> bits;
};

// The lengths of arrays: that of a list of references, or out of the record, as few are asked for.
class RecordLengths final : public ArrayLengths {
public:
    RecordLengths(std::shared_ptr<MappedFile> mapped, const ObjectStorage& storage, uint32_t idSize)
        : file(std::move(mapped)), storage(storage), idSize(idSize),
          arrays(static_cast<size_t>(storage.getObjectCount()) / 32 + 1) {}

    // While the storage is filled, from any thread.
    void markArray(uint32_t row) {
        arrays[row / 32].fetch_or(1U << row % 32, std::memory_order_relaxed);
    }
    int arrayLength(int row) const override {
        const auto at = static_cast<size_t>(row);
        const uint32_t word =
            row < storage.getObjectCount() ? arrays[at / 32].load(std::memory_order_relaxed) : 0;
        if ((word >> at % 32 & 1) == 0) {
            return -1;
        }
        // Of a primitive array the list has the class alone.
        const int elements = storage.getRefCount(row) - 1;
        return elements > 0 ? elements : lengthInRecord(row);
    }

private:
    int lengthInRecord(int row) const {
        const auto record = static_cast<uint64_t>(storage.getRecordPosition(row));
        // Tag, identifier, number of the stack trace, length.
        const uint64_t ahead = 1 + uint64_t(idSize) + 4;
        if (record >= file->size() || file->size() - record < ahead + 4) {
            return -1;
        }
        return static_cast<int>(
            std::min<uint32_t>(hprofU4(file->data() + record + ahead), INT32_MAX));
    }

    const std::shared_ptr<MappedFile> file;
    const ObjectStorage& storage;
    const uint32_t idSize;
    std::vector<std::atomic<uint32_t>> arrays; // a bit a row
};

// Second pass over one chunk: each object gets its list of references from `position` on.
template <uint32_t ID_SIZE>
class FillHandler {
public:
    FillHandler(const HprofScan& hprofScan, const HprofClasses& hprofClasses, HeapModel& heapModel,
                RecordLengths& recordLengths, FilledRows* filledRows, uint64_t firstPosition)
        : ids(hprofScan.ids), classes(hprofClasses), layout(hprofClasses.layout()),
          model(heapModel), storage(*heapModel.storage), references(storage.getReferences()),
          lengths(recordLengths), filled(filledRows), position(static_cast<int>(firstPosition)) {}

    void boundary(uint64_t) {}
    void root(uint8_t, uint64_t, uint32_t, uint32_t) {}
    void classDump(uint64_t, uint64_t) {}

    void instance(uint64_t offset, uint64_t id, uint64_t classId, const uint8_t* data,
                  uint32_t length) {
        uint32_t row = begin(offset, id);
        if (row == 0) {
            return;
        }
        const HprofClassPlan* const plan = lastInstances.find(*this, classId);
        model.classColumn.set(static_cast<int>(row), lastInstances.classIndex);
        storage.setSize(static_cast<int>(row), plan->instanceSize);
        if (plan->wordsOffset >= 0 && plan->wordsOffset + 4u <= length) {
            setSize(row, classes.stackChunkSize(*plan, hprofU4(data + plan->wordsOffset)));
        }
        if (plan->checkGaps) {
            noteGap(*plan, id, row);
        }
        references.setList(static_cast<int>(row), position,
                           static_cast<int>(plan->referenceCount) + 1);
        references.setRefAt(position++, plan->row);
        const uint32_t* fieldOffset = classes.referenceOffsets() + plan->firstOffset;
        for (uint32_t i = 0; i < plan->referenceCount; i++) {
            bool there = length >= ID_SIZE && fieldOffset[i] <= length - ID_SIZE;
            putReference(there ? hprofId<ID_SIZE>(data + fieldOffset[i]) : 0);
        }
        shortInstances += plan->referenceCount > 0 &&
                          fieldOffset[plan->referenceCount - 1] + uint64_t(ID_SIZE) > length;
    }

    void objectArray(uint64_t offset, uint64_t id, uint64_t classId, const uint8_t* elements,
                     uint32_t length) {
        uint32_t row = begin(offset, id);
        if (row == 0) {
            return;
        }
        array(row, 0, length);
        references.setList(static_cast<int>(row), position, static_cast<int>(length) + 1);
        const HprofClassPlan* const plan = lastArrays.find(*this, classId);
        model.classColumn.set(static_cast<int>(row), lastArrays.classIndex);
        references.setRefAt(position++, plan->row);
        for (uint32_t i = 0; i < length; i++) {
            putReference(hprofId<ID_SIZE>(elements + uint64_t(i) * ID_SIZE));
        }
    }

    void primitiveArray(uint64_t offset, uint64_t id, uint8_t type, const uint8_t*,
                        uint32_t length) {
        uint32_t row = begin(offset, id);
        if (row == 0) {
            return;
        }
        array(row, hprofTypeSize(type, ID_SIZE), length);
        references.setList(static_cast<int>(row), position, 1);
        const int classRow = classes.primitiveArrayRow(type);
        model.classColumn.set(static_cast<int>(row), model.classByRow(classRow));
        references.setRefAt(position++, classRow);
    }

    // Instances of classes whose size rests on few samples, and the smallest distance behind any.
    struct Doubtful {
        uint64_t smallestGap = UINT64_MAX;
        std::vector<int> rows;
    };
    std::unordered_map<const HprofClassPlan*, Doubtful> doubtful;
    std::vector<LargeObject> large;
    uint64_t dangling = 0;       // references to what the dump doesn't hold
    uint64_t shortInstances = 0; // instances with fewer bytes than their class's fields

private:
    // The class of the object before, which is likely to be that of the next.
    struct LastClass {
        const HprofClassPlan* plan = nullptr;
        int classIndex = -1;
        const HprofClassPlan* find(const FillHandler& handler, uint64_t classId) {
            if (plan == nullptr || plan->classId != classId) {
                plan = handler.classes.find(classId);
                classIndex = handler.model.classByRow(plan->row);
            }
            return plan;
        }
    };

    uint32_t begin(uint64_t offset, uint64_t id) {
        uint32_t row = id == 0 ? 0 : ids.rowOf(id);
        if (row == 0 || (filled && !filled->take(row))) {
            return 0;
        }
        storage.setRecordPosition(static_cast<int>(row), static_cast<long>(offset));
        return row;
    }
    void array(uint32_t row, uint32_t elementSize, uint32_t length) {
        setSize(row, layout.arraySize(elementSize, length));
        lengths.markArray(row);
    }
    void setSize(uint32_t row, int64_t size) {
        if (size >= HeapModel::LARGEST_STORED) {
            large.push_back({static_cast<int>(row), size});
            size = HeapModel::LARGEST_STORED;
        }
        storage.setSize(static_cast<int>(row), static_cast<int>(size));
    }
    void noteGap(const HprofClassPlan& plan, uint64_t id, uint32_t row) {
        Doubtful& known = doubtful[&plan];
        const uint64_t next = ids.next(id);
        if (next != 0) {
            known.smallestGap = std::min(known.smallestGap, next - id);
        }
        known.rows.push_back(static_cast<int>(row));
    }
    void putReference(uint64_t id) {
        uint32_t row = id == 0 ? 0 : ids.rowOf(id);
        dangling += id != 0 && row == 0;
        references.setRefAt(position++, static_cast<int>(row));
    }

    const ObjectIdMap& ids;
    const HprofClasses& classes;
    const JvmLayout layout;
    HeapModel& model;
    ObjectStorage& storage;
    RefTable& references;
    RecordLengths& lengths;
    FilledRows* filled;
    LastClass lastInstances;
    LastClass lastArrays;
    int position;
};

// The steps of reading one dump, with what they share.
class Reading {
public:
    Reading(std::shared_ptr<MappedFile> mapped, const HeapReadOptions& readOptions)
        : options(readOptions), file(*mapped), model(new HeapModel(std::move(mapped))) {}

    std::unique_ptr<HeapModel> run();

private:
    void checkCounts(const HprofScan& scan);
    uint64_t placeChunks(const HprofScan& scan, const HprofClasses& classes);
    void makeStorage(uint64_t references);
    void fillClasses(const HprofScan& scan, const HprofClasses& classes, FilledRows* filled);
    void fillObjects(const HprofScan& scan, const HprofClasses& classes, FilledRows* filled);
    template <uint32_t ID_SIZE>
    void fillChunk(const HprofScan& scan, const HprofClasses& classes, FilledRows* filled,
                   size_t chunk);
    void setRoots(const HprofScan& scan);
    void settleDoubtful();
    void tellAbsent(uint64_t absent, uint64_t all, const char* what);
    int threadOf(uint32_t serial) const;

    const HeapReadOptions& options;
    const MappedFile& file;
    std::unique_ptr<HeapModel> model;
    RecordLengths* lengths = nullptr;     // the storage's
    std::vector<uint64_t> chunkPositions; // first position of each chunk's references
    std::unordered_map<uint32_t, int> threadBySerial;
    std::mutex
        mergeLock; // guards what the chunks' handlers leave: doubtful and the model's largeObjects
    std::unordered_map<const HprofClassPlan*, std::pair<uint64_t, std::vector<int>>> doubtful;
    std::atomic<uint64_t> dangling{0};
    std::atomic<uint64_t> shortInstances{0};
};

uint32_t rootKind(uint8_t tag) {
    switch (tag) {
    case HPROF_ROOT_JNI_GLOBAL:
        return HEAP_ROOT_JNI_GLOBAL;
    case HPROF_ROOT_JNI_LOCAL:
        return HEAP_ROOT_JNI_LOCAL;
    case HPROF_ROOT_JAVA_FRAME:
        return HEAP_ROOT_STACK_LOCAL;
    case HPROF_ROOT_NATIVE_STACK:
    case HPROF_ROOT_THREAD_BLOCK:
        return HEAP_ROOT_NATIVE_STACK;
    case HPROF_ROOT_STICKY_CLASS:
        return HEAP_ROOT_SYSTEM_CLASS;
    case HPROF_ROOT_MONITOR_USED:
    case HPROF_ROOT_JNI_MONITOR:
        return HEAP_ROOT_MONITOR;
    case HPROF_ROOT_THREAD_OBJECT:
        return HEAP_ROOT_THREAD;
    default:
        return HEAP_ROOT_OTHER;
    }
}

std::unique_ptr<HeapModel> Reading::run() {
    if (!file.inflateProblem().empty()) {
        model->remarks.push_back("the file is truncated or damaged: " + file.inflateProblem());
    }
    HprofRecords records(file.data(), file.size(), options.dumpNumber, model->remarks);
    model->format = HeapModel::Format::Hprof;
    model->formatName = records.formatName() + (file.isCompressed() ? ", gzip" : "");
    model->idSize = records.idSize();
    model->captureTimeMs = records.captureTimeMs();
    HprofScan scan(file, records, {options.threads, options.progress}, model->remarks);
    checkCounts(scan);
    HprofClasses classes(file, records, scan, *model);
    const uint64_t references = placeChunks(scan, classes);
    makeStorage(references);
    std::unique_ptr<FilledRows> filled;
    if (scan.classAndObjectRecords != scan.ids.size()) {
        model->remarks.push_back(std::to_string(scan.classAndObjectRecords - scan.ids.size()) +
                                 " objects have the identifier of another; the first is kept");
        filled.reset(new FilledRows(scan.ids.size() + 1));
    }
    fillClasses(scan, classes, filled.get());
    fillObjects(scan, classes, filled.get());
    settleDoubtful();
    setRoots(scan);
    tellAbsent(dangling, references, "references");
    if (shortInstances > 0) {
        model->remarks.push_back(std::to_string(shortInstances.load()) +
                                 " instances hold fewer bytes than the fields of their classes");
    }
    return std::move(model);
}

void Reading::checkCounts(const HprofScan& scan) {
    if (scan.ids.size() == 0) {
        std::string why = model->remarks.empty() ? "" : " (" + model->remarks.back() + ")";
        throw HeapReadError("the heap dump holds no objects" + why);
    }
    if (scan.ids.size() > MOST_ROWS) {
        throw HeapReadError("the heap dump holds " + std::to_string(scan.ids.size()) +
                            " objects, more than the " + std::to_string(MOST_ROWS) +
                            " that can be numbered");
    }
}

// No object is larger than the way to the next one, whatever the sampled distances said.
void Reading::settleDoubtful() {
    for (const auto& entry : doubtful) {
        const uint64_t smallest = entry.second.first;
        const int size = entry.first->instanceSize;
        if (smallest >= static_cast<uint64_t>(size)) {
            continue;
        }
        const int lowered = std::max(static_cast<int>(smallest), entry.first->computedSize);
        for (int row : entry.second.second) {
            model->storage->setSize(row, lowered);
        }
        const int index = model->classByRow(entry.first->row);
        if (index >= 0) {
            model->classes[static_cast<size_t>(index)].instanceSize = lowered;
        }
    }
    std::sort(model->largeObjects.begin(), model->largeObjects.end(),
              [](const LargeObject& a, const LargeObject& b) { return a.row < b.row; });
}

// Every JVM leaves some behind, of classes in its archive that it hasn't loaded; many, or in a file
// that is damaged elsewhere, tell of damage.
void Reading::tellAbsent(uint64_t absent, uint64_t all, const char* what) {
    if (absent == 0) {
        return;
    }
    const bool isUsual = model->remarks.empty() && absent <= USUALLY_ABSENT + all / USUAL_SHARE;
    (isUsual ? model->notes : model->remarks)
        .push_back(std::to_string(absent) + " " + what +
                   " lead to objects that the dump does not hold" +
                   (isUsual ? ", as JVMs with a class archive leave them" : ""));
}

// Finds where the references of each chunk begin: behind those of the classes and of the chunks
// before it. Returns the number of all.
uint64_t Reading::placeChunks(const HprofScan& scan, const HprofClasses& classes) {
    uint64_t position = classes.classReferences();
    for (const HprofChunk& chunk : scan.chunks) {
        chunkPositions.push_back(position);
        position += chunk.arrayReferences;
        for (const HprofClassCount& entry : chunk.classes.slots()) {
            if (entry.count > 0) {
                position += uint64_t(entry.count) *
                            (1 + uint64_t(classes.find(entry.classId)->referenceCount));
            }
        }
    }
    return position;
}

void Reading::makeStorage(uint64_t references) {
    if (references > MOST_REFERENCES) {
        throw HeapReadError("the heap dump holds " + std::to_string(references) +
                            " references, more than the " + std::to_string(MOST_REFERENCES) +
                            " that can be numbered");
    }
    // A reference takes idSize bytes of the file. Fields that damaged records leave out are counted
    // too, which may not make memory grow far beyond what the file holds.
    if (references / 4 > file.size() / model->idSize + 1024) {
        throw HeapReadError("the classes of the heap dump have more fields than its objects hold");
    }
    model->storage.reset(new ObjectStorage(model->objectCount, false));
    ObjectStorage& storage = *model->storage;
    storage.getReferences().reserve(static_cast<int>(references));
    storage.arrayOfKind(READ_SIZES)->ensure(model->objectCount);
    lengths = new RecordLengths(model->file, storage, model->idSize);
    storage.setOtherLengths(lengths);
    storage.ensureRecordPositions(file.size());
    model->classColumn.make(model->objectCount, model->classes.size());
}

void Reading::fillClasses(const HprofScan& scan, const HprofClasses& classes, FilledRows* filled) {
    int position = 0;
    RefTable& references = model->storage->getReferences();
    for (const HprofClasses::ClassRow& row : classes.classRows()) {
        if (filled && row.recordOffset != 0) {
            filled->take(static_cast<uint32_t>(row.row));
        }
        references.setList(row.row, position, static_cast<int>(row.references.size()));
        for (uint64_t id : row.references) {
            references.setRefAt(position++, static_cast<int>(id == 0 ? 0 : scan.ids.rowOf(id)));
        }
        model->storage->setSize(row.row, static_cast<int>(std::min<int64_t>(row.size, INT32_MAX)));
        model->storage->setRecordPosition(row.row, static_cast<long>(row.recordOffset));
        model->storage->getClassRows().push(row.row);
    }
}

void Reading::fillObjects(const HprofScan& scan, const HprofClasses& classes, FilledRows* filled) {
    const bool wide = model->idSize == 8;
    // Which of two objects with one identifier comes first must not depend on threads.
    int workers = filled ? 1 : std::max(1, options.threads);
    runParallel(
        scan.chunks.size(), workers,
        [&](size_t chunk, int) {
            if (wide) {
                fillChunk<8>(scan, classes, filled, chunk);
            } else {
                fillChunk<4>(scan, classes, filled, chunk);
            }
        },
        [&](size_t taken) {
            reportProgress(options.progress, "reading objects", static_cast<long>(taken),
                           static_cast<long>(scan.chunks.size()));
        });
    // Behind the objects: a damaged dump may have one in the place of a class.
    for (const HeapClass& type : model->classes) {
        model->classColumn.set(type.row, model->classClass);
    }
}

template <uint32_t ID_SIZE>
void Reading::fillChunk(const HprofScan& scan, const HprofClasses& classes, FilledRows* filled,
                        size_t chunk) {
    FillHandler<ID_SIZE> handler(scan, classes, *model, *lengths, filled, chunkPositions[chunk]);
    HprofWalker<ID_SIZE, FillHandler<ID_SIZE>> walker(file.data(), handler);
    for (const HprofRecords::Segment& range : scan.chunks[chunk].ranges) {
        walker.walk(range.from, range.to);
    }
    {
        const std::lock_guard<std::mutex> merging(mergeLock);
        for (auto& entry : handler.doubtful) {
            auto& sum =
                doubtful.try_emplace(entry.first, UINT64_MAX, std::vector<int>()).first->second;
            sum.first = std::min(sum.first, entry.second.smallestGap);
            sum.second.insert(sum.second.end(), entry.second.rows.begin(), entry.second.rows.end());
        }
        model->largeObjects.insert(model->largeObjects.end(), handler.large.begin(),
                                   handler.large.end());
    }
    dangling += handler.dangling;
    shortInstances += handler.shortInstances;
    if (!scan.chunks[chunk].ranges.empty()) {
        file.release(scan.chunks[chunk].ranges.front().from, scan.chunks[chunk].ranges.back().to);
    }
}

int Reading::threadOf(uint32_t serial) const {
    auto found = threadBySerial.find(serial);
    return found == threadBySerial.end() ? -1 : found->second;
}

void Reading::setRoots(const HprofScan& scan) {
    for (const HprofRoot& root : scan.roots) {
        if (root.tag != HPROF_ROOT_THREAD_OBJECT ||
            !threadBySerial.emplace(root.first, static_cast<int>(model->threads.size())).second) {
            continue;
        }
        HeapThread thread = {};
        thread.serial = root.first;
        thread.row = root.id == 0 ? 0 : static_cast<int>(scan.ids.rowOf(root.id));
        thread.trace = root.second;
        model->threads.push_back(std::move(thread));
    }
    uint64_t absent = 0;
    for (const HprofRoot& root : scan.roots) {
        int row = root.id == 0 ? 0 : static_cast<int>(scan.ids.rowOf(root.id));
        absent += root.id != 0 && row == 0;
        if (row == 0) {
            continue;
        }
        uint32_t kind = rootKind(root.tag);
        bool ofThread = kind == HEAP_ROOT_THREAD || kind == HEAP_ROOT_STACK_LOCAL ||
                        kind == HEAP_ROOT_JNI_LOCAL || kind == HEAP_ROOT_NATIVE_STACK;
        bool hasFrame = root.tag == HPROF_ROOT_JAVA_FRAME || root.tag == HPROF_ROOT_JNI_LOCAL;
        model->roots.push_back({row, kind, ofThread ? threadOf(root.first) : -1,
                                hasFrame ? static_cast<int>(root.second) : -1});
    }
    tellAbsent(absent, scan.roots.size(), "roots");
}

} // namespace

std::unique_ptr<HeapModel> HprofReader::read(std::shared_ptr<MappedFile> file,
                                             const HeapReadOptions& options) {
    return Reading(std::move(file), options).run();
}
