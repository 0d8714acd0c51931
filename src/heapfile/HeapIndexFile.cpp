#include "heapfile/HeapIndexFile.h"

#include "heapfile/HeapIndexModel.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/IndexSections.h"
#include "heapfile/IndexStream.h"
#include "offline/Reachability.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char MAGIC[] = "VDK heap index\n\x1a";
constexpr size_t MAGIC_SIZE = 16;
constexpr size_t HEAD_SIZE = MAGIC_SIZE + 36;
constexpr uint32_t VERSION = 7;
constexpr uint32_t BYTE_ORDER_MARK = 0x01020304; // written as this machine stores it
constexpr uint64_t MOST_REFERENCES = 0x7ffffff0;

// In the order of the file, the head being section 0.
enum Section : size_t {
    MODEL = 1,
    REACHED,
    REFERENCE_STARTS,
    REFERENCES,
    REFERRER_STARTS,
    REFERRERS,
    DOMINATORS,
    SIZES,
    WIDE_SIZES,
    LENGTHS,
    WIDE_LENGTHS,
    RETAINED,
    WIDE_RETAINED,
    GENERATIONS,
    ALLOCATOR_FRAMES,
    ALLOCATOR_THREADS,
    ID_DELTAS,
    ID_PLACES,
    POSITION_DELTAS,
    POSITION_PLACES,
    PRIMITIVE_DELTAS,
    PRIMITIVE_PLACES,
    SECTION_END
};
constexpr size_t SECTION_COUNT = SECTION_END - 1;

// The writing of columns, which all go over the rows from 0 on.
class ColumnWriter {
public:
    ColumnWriter(IndexOutput& output, const HeapModel& model)
        : out(output), rows(model.objectCount) {}

    void lists(const RefTable& table) {
        uint32_t start = 0;
        for (int row = 0; row < rows; row++) {
            out.number(start);
            start += static_cast<uint32_t>(table.getCount(row));
        }
        out.number(start);
        out.endSection();
        for (int row = 0; row < rows; row++) {
            BigIntArrayIterator64 list = table.initReferenceIterator(row);
            while (list.hasNext()) {
                out.number(list.next());
            }
        }
        out.endSection();
    }

    // A section without bytes if all rows but 0 have the fill value.
    template <typename Get>
    void ints(Get get, bool mayBeAbsent, int fillValue) {
        bool isAbsent = mayBeAbsent;
        for (int row = 1; row < rows && isAbsent; row++) {
            isAbsent = get(row) == fillValue;
        }
        for (int row = 0; row < rows && !isAbsent; row++) {
            out.number(get(row));
        }
        out.endSection();
    }

    template <typename T, typename Get>
    void narrow(Get get) {
        using Column = NarrowColumn<T>;
        std::vector<typename Column::Wide> wide;
        for (int row = 0; row < rows; row++) {
            const long value = get(row);
            if (Column::fits(value)) {
                out.number(static_cast<T>(value + 1));
            } else {
                out.number(Column::IS_WIDE);
                wide.push_back({static_cast<unsigned long>(row), value});
            }
        }
        out.endSection();
        out.bytes(wide.data(), wide.size() * sizeof(wide[0]));
        out.endSection();
    }

    // Two sections without bytes if all rows have 0.
    template <typename Get>
    void deltas(Get get) {
        bool isAbsent = true;
        for (int row = 1; row < rows && isAbsent; row++) {
            isAbsent = get(row) == 0;
        }
        std::vector<DeltaColumn::Place> places;
        uint8_t bytes[DeltaColumn::LONGEST_DELTA];
        unsigned long written = 0;
        unsigned long before = 0;
        for (int row = 0; row < rows && !isAbsent; row++) {
            const auto value = static_cast<unsigned long>(row == 0 ? 0 : get(row));
            if (row % DeltaColumn::ROWS_PER_PLACE == 0) {
                places.push_back({value, written});
            } else {
                const auto length = static_cast<size_t>(DeltaColumn::encode(before, value, bytes));
                out.bytes(bytes, length);
                written += length;
            }
            before = value;
        }
        out.endSection();
        out.bytes(places.data(), places.size() * sizeof(places[0]));
        out.endSection();
    }

private:
    IndexOutput& out;
    int rows;
};

void writeColumns(IndexOutput& out, const HeapModel& model, AnalysisProgress* progress) {
    const ObjectStorage& storage = *model.storage;
    ColumnWriter columns(out, model);
    columns.lists(storage.getReferences());
    reportProgress(progress, "writing index", 1, 4);
    columns.lists(*storage.getBackwardReferences());
    reportProgress(progress, "writing index", 2, 4);
    columns.ints([&](int row) { return storage.getDominator(row); }, false, 0);
    columns.narrow<uint16_t>([&](int row) { return storage.getSize(row); });
    columns.narrow<uint16_t>([&](int row) { return storage.getArrayLength(row); });
    columns.narrow<uint32_t>([&](int row) { return storage.getRetainedSize(row); });
    reportProgress(progress, "writing index", 3, 4);
    columns.ints([&](int row) { return storage.getGeneration(row); }, true, 0);
    columns.ints([&](int row) { return storage.getAllocatorFrame(row); }, true, 0);
    columns.ints([&](int row) { return storage.getAllocatorThread(row); }, true, -1);
    const bool isDump = model.format == HeapModel::Format::Hprof;
    columns.deltas([&](int row) { return isDump ? model.idOf(row) : 0; });
    columns.deltas([&](int row) { return storage.getRecordPosition(row); });
    columns.deltas([&](int row) { return storage.getPrimitiveDataPosition(row); });
    reportProgress(progress, "writing index", 4, 4);
}

// The columns of an index, with the sections that they are read from.
class IndexColumns final : public StoredColumns {
public:
    // Throws HeapReadError if a section hasn't the length that so many rows take.
    IndexColumns(std::shared_ptr<IndexSections> opened, int objectCount)
        : file(std::move(opened)), rows(static_cast<uint64_t>(objectCount)) {
        const uint64_t last = rows - 1;
        using Check = IndexSection::Check;
        lists(references, REFERENCE_STARTS, "references");
        lists(backwardReferences, REFERRER_STARTS, "backward references");
        dominators = column(DOMINATORS, "dominators", Check::Dominators, last, 4);
        narrow(sizes, SIZES, "sizes");
        narrow(arrayLengths, LENGTHS, "array lengths");
        narrow(retainedSizes, RETAINED, "retained sizes");
        generations = optional(GENERATIONS, "generations");
        allocatorFrames = optional(ALLOCATOR_FRAMES, "allocator frames");
        allocatorThreads = optional(ALLOCATOR_THREADS, "allocator threads");
        deltas(identifiers, ID_DELTAS, "identifiers");
        deltas(recordPositions, POSITION_DELTAS, "positions");
        deltas(primitivePositions, PRIMITIVE_DELTAS, "positions of data");
    }

private:
    using Check = IndexSection::Check;

    const LazySection* add(size_t section, const char* what, Check check, uint64_t most) {
        sections.push_back(std::make_unique<IndexSection>(file, section, what, check, most));
        return sections.back().get();
    }
    const LazySection* column(size_t section, const char* what, Check check, uint64_t most,
                              uint64_t bytesPerRow) {
        expect(file->length(section) == rows * bytesPerRow, section, what);
        return add(section, what, check, most);
    }
    const LazySection* optional(size_t section, const char* what) {
        expect(file->length(section) == 0 || file->length(section) == rows * 4, section, what);
        return add(section, what, Check::Nothing, 0);
    }
    void lists(StoredLists& lists, size_t section, const char* what) {
        const uint64_t bytes = file->length(section + 1);
        expect(file->length(section) == (rows + 1) * 4 && bytes % 4 == 0 &&
                   bytes / 4 <= MOST_REFERENCES,
               section, what);
        lists.starts = add(section, what, Check::Positions, bytes / 4);
        lists.references = add(section + 1, what, Check::Rows, rows - 1);
    }
    template <typename T>
    void narrow(NarrowColumn<T>& narrow, size_t section, const char* what) {
        expect(file->length(section + 1) % sizeof(typename NarrowColumn<T>::Wide) == 0, section,
               what);
        narrow.narrow = column(section, what, Check::Nothing, 0, sizeof(T));
        narrow.wide = add(section + 1, what, Check::Nothing, 0);
    }
    void deltas(DeltaColumn& deltas, size_t section, const char* what) {
        const uint64_t places = file->length(section + 1) / sizeof(DeltaColumn::Place);
        const uint64_t needed =
            (rows + DeltaColumn::ROWS_PER_PLACE - 1) / DeltaColumn::ROWS_PER_PLACE;
        expect(file->length(section + 1) % sizeof(DeltaColumn::Place) == 0 &&
                   (places == 0 || places == needed),
               section, what);
        deltas.deltas = add(section, what, Check::Nothing, 0);
        deltas.places = add(section + 1, what, Check::Nothing, 0);
    }
    void expect(bool fits, size_t section, const char* what) const {
        if (!fits) {
            file->fail("the number of " + std::string(what) + " isn't that of " +
                           std::to_string(rows) + " rows",
                       file->startOf(section));
        }
    }

    std::shared_ptr<IndexSections> file;
    uint64_t rows;
    std::vector<std::unique_ptr<IndexSection>> sections;
};

void readHeap(const std::string& path, const std::shared_ptr<IndexSections>& index,
              std::shared_ptr<MappedFile> file, AnalyzedHeap& heap) {
    index->readTables(HEAD_SIZE, SECTION_COUNT);
    heap.model = std::make_unique<HeapModel>(std::move(file));
    HeapModel& model = *heap.model;
    const std::vector<uint8_t> description = index->whole(MODEL);
    IndexInput in(path, description, index->startOf(MODEL));
    readIndexModel(in, model);
    if (in.left() != 0) {
        in.fail("data behind the end");
    }
    auto columns = std::make_unique<IndexColumns>(index, model.objectCount);
    model.storage = std::make_unique<ObjectStorage>(model.objectCount, columns.get());
    static_cast<void>(columns.release()); // the storage's
    for (const HeapClass& type : model.classes) {
        model.storage->getClassRows().push(type.row);
    }
    const std::vector<uint8_t> reached = index->whole(REACHED);
    heap.reachedBits.resize(static_cast<size_t>(bitFieldWords(model.objectCount)));
    if (reached.size() != heap.reachedBits.size() * sizeof(int)) {
        index->fail("the number of rows reached is another", index->startOf(REACHED));
    }
    memcpy(heap.reachedBits.data(), reached.data(), reached.size());
    heap.analyzed = true;
}

// The bytes behind the magic and the byte order mark.
void writeIdentity(IndexOutput& out, const MappedFile& file, int dumpNumber) {
    out.u32(VERSION);
    out.u64(file.identity().size);
    out.u64(file.identity().modifiedNs);
    out.u64(file.identity().headDigest);
    out.u32(static_cast<uint32_t>(dumpNumber));
}

bool isForFile(IndexInput& in, const MappedFile& file, int dumpNumber, std::string& why) {
    char magic[MAGIC_SIZE];
    uint32_t mark = 0;
    in.bytes(magic, sizeof(magic));
    in.bytes(&mark, sizeof(mark));
    if (in.u32() != VERSION || mark != BYTE_ORDER_MARK) {
        why = "the index has another version";
        return false;
    }
    MappedFile::Identity expected = file.identity();
    uint64_t size = in.u64();
    uint64_t modified = in.u64();
    uint64_t digest = in.u64();
    uint32_t dump = in.u32();
    if (size != expected.size || modified != expected.modifiedNs || digest != expected.headDigest) {
        why = "the index belongs to another state of the file";
        return false;
    }
    if (dump != static_cast<uint32_t>(dumpNumber)) {
        why = "the index belongs to another dump of the file";
        return false;
    }
    return true;
}

} // namespace

void HeapIndexFile::write(const AnalyzedHeap& heap, int dumpNumber, const std::string& path,
                          AnalysisProgress* progress) {
    const HeapModel& model = *heap.model;
    IndexOutput out(path);
    out.bytes(MAGIC, MAGIC_SIZE);
    out.bytes(&BYTE_ORDER_MARK, sizeof(BYTE_ORDER_MARK));
    writeIdentity(out, *model.file, dumpNumber);
    out.endSection();
    writeIndexModel(out, model);
    out.endSection();
    out.bytes(heap.reachedBits.data(), heap.reachedBits.size() * sizeof(heap.reachedBits[0]));
    out.endSection();
    writeColumns(out, model, progress);
    out.commit();
}

bool HeapIndexFile::read(const std::string& path, std::shared_ptr<MappedFile> file, int dumpNumber,
                         AnalyzedHeap& heap, std::string& why) {
    const std::shared_ptr<IndexSections> index = IndexSections::open(path);
    if (!index) {
        return false;
    }
    const std::vector<uint8_t> head = index->start(HEAD_SIZE);
    if (head.size() < MAGIC_SIZE || memcmp(head.data(), MAGIC, MAGIC_SIZE) != 0) {
        throw HeapReadError(path + " is not an index of a heap, and is left as it is");
    }
    try {
        IndexInput in(path, head, 0);
        if (!isForFile(in, *file, dumpNumber, why)) {
            return false;
        }
        readHeap(path, index, std::move(file), heap);
    } catch (const HeapReadError& e) {
        heap = AnalyzedHeap();
        why = e.what();
        return false;
    }
    return true;
}
