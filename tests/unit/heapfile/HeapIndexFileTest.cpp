#include "heapfile/HeapIndexFile.h"

#include "HprofWriter.h"
#include "TempDir.h"
#include "heapfile/HeapReadError.h"
#include "offline/BackwardReferences.h"
#include "offline/HeapAnalysis.h"
#include "offline/Reachability.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <unistd.h>

using testing::HasSubstr;

namespace {

// A dump file, its index, and the analyzed heap that the index was made of.
class IndexedDump {
public:
    IndexedDump() : dump(sampleHeap(8).out), index("") {
        unlink(index.path.c_str());
        HeapReadOptions options;
        heap.model = HprofReader::read(mapped(), options);
        heap.model->frameTexts = {"A.main"};
        heap.model->generations = {{1, "start", 5}, {4, "mark", 70}};
        heap.model->siteFrames = {{3, 0, 0, false}, {8, 3, 0, true}};
        std::vector<int> roots;
        for (const HeapRoot& root : heap.model->roots) {
            roots.push_back(root.row);
        }
        // What the narrow columns of an index can't hold, and what they just can.
        ObjectStorage& storage = *heap.model->storage;
        const int sizes[] = {-1, 65533, 65534, 65535, INT32_MAX};
        for (int i = 0; i < 5; i++) {
            storage.setSize(i + 3, sizes[i]);
            storage.setArrayLength(i + 4, sizes[i]);
        }
        storage.setAllocator(5, 8, 2);
        heap.reachedBits.assign(static_cast<size_t>(bitFieldWords(heap.model->objectCount)), 0);
        analyzeHeap(*heap.model->storage, roots.data(), static_cast<int>(roots.size()), nullptr,
                    heap.reachedBits.data(), 1);
        ensureBackwardReferences(storage, 1);
        storage.setRetainedSize(3, 0xfffffffdL);
        storage.setRetainedSize(4, 0xfffffffeL);
        storage.setRetainedSize(5, 1L << 40);
        HeapIndexFile::write(heap, 1, index.path, nullptr);
    }
    std::shared_ptr<MappedFile> mapped() const {
        return std::make_shared<MappedFile>(dump.path, "");
    }
    // Why the index was not taken, empty if it was.
    std::string read(AnalyzedHeap& result, int dumpNumber = 1) const {
        std::string why;
        bool taken = HeapIndexFile::read(index.path, mapped(), dumpNumber, result, why);
        EXPECT_EQ(taken, result.analyzed);
        return taken ? "" : why.empty() ? "absent" : why;
    }

    TemporaryFile dump;
    TemporaryFile index;
    AnalyzedHeap heap;
};

// A section of given bytes.
class BytesSection final : public LazySection {
public:
    explicit BytesSection(const std::string& bytes) : LazySection(bytes.size()), bytes(bytes) {}
    void fail(const char* what) const override { throw HeapReadError(what); }

protected:
    void load(unsigned long block) const override {
        memcpy(blockStart(block), bytes.data(), bytes.size());
        setPresent(block);
    }

private:
    std::string bytes;
};

// All that a heap has of its objects. Reads all of an index.
std::string describe(const AnalyzedHeap& heap) {
    const ObjectStorage& storage = *heap.model->storage;
    std::ostringstream text;
    for (int row = 0; row <= heap.model->rowCount(); row++) {
        const RefTable* const tables[] = {&storage.getReferences(),
                                          storage.getBackwardReferences()};
        for (const RefTable* table : tables) {
            text << " (" << table->getCount(row) << ")";
            BigIntArrayIterator64 list = table->initReferenceIterator(row);
            for (int i = 0; list.hasNext(); i++) {
                text << " " << list.next() << " " << table->getRef(row, i);
            }
        }
        for (long value :
             {long(heap.model->idOf(row)), long(storage.getDominator(row)),
              long(storage.getSize(row)), long(storage.getArrayLength(row)),
              storage.getRetainedSize(row), long(storage.getGeneration(row)),
              long(storage.getAllocatorFrame(row)), long(storage.getAllocatorThread(row)),
              storage.getRecordPosition(row), storage.getPrimitiveDataPosition(row),
              long(isMarked(heap.reachedBits.data(), row))}) {
            text << " " << value;
        }
        text << "\n";
    }
    return text.str();
}

} // namespace

TEST(HeapIndexFile, hasAllOfTheHeap) {
    IndexedDump dump;
    AnalyzedHeap read;
    ASSERT_EQ("", dump.read(read));
    EXPECT_EQ(describe(dump.heap), describe(read));
}

TEST(HeapIndexFile, differencesOfAllLengthsAreKept) {
    const unsigned long values[] = {0, 7,        8, 256, ~0UL, 1, 1UL << 63, (1UL << 63) + 1,
                                    5, 1UL << 40};
    for (unsigned long before : values) {
        for (unsigned long value : values) {
            DeltaColumn::Place place = {before, 0};
            unsigned char bytes[DeltaColumn::LONGEST_DELTA];
            const int length = DeltaColumn::encode(before, value, bytes);
            ASSERT_LE(length, DeltaColumn::LONGEST_DELTA);
            const BytesSection places(std::string(reinterpret_cast<char*>(&place), sizeof(place)));
            const BytesSection deltas(std::string(bytes, bytes + length));
            DeltaColumn column;
            column.places = &places;
            column.deltas = &deltas;
            EXPECT_EQ(value, column.get(1)) << before;
        }
    }
}

TEST(HeapIndexFile, isNotTakenForAnotherStateOfTheFile) {
    IndexedDump dump;
    AnalyzedHeap read;
    EXPECT_THAT(dump.read(read, 2), HasSubstr("another dump"));
    dump.dump.write(sampleHeap(8).out + std::string(9, '\0'));
    EXPECT_THAT(dump.read(read), HasSubstr("another state"));
    std::string changed = sampleHeap(8).out;
    changed[20] ^= 1;
    dump.dump.write(changed);
    EXPECT_THAT(dump.read(read), HasSubstr("another state"));
}

TEST(HeapIndexFile, everyCutAndEveryFlippedByteIsRejected) {
    IndexedDump dump;
    AnalyzedHeap read;
    const std::string good = TempDir::read(dump.index.path);
    for (size_t length = 50; length < good.size(); length += 7) {
        dump.index.write(good.substr(0, length));
        ASSERT_THAT(dump.read(read), HasSubstr("damaged index")) << length;
    }
    for (size_t at = 48; at < good.size(); at += 5) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x80);
        dump.index.write(bytes);
        if (dump.read(read).empty()) {
            ASSERT_THROW(describe(read), HeapIndexError) << at;
        }
    }
    dump.index.write("notes that the user wants to keep");
    EXPECT_THROW(dump.read(read), HeapReadError);
    unlink(dump.index.path.c_str());
    EXPECT_EQ("absent", dump.read(read));
}

TEST(HeapIndexFile, mayBeCutWhileItIsRead) {
    IndexedDump dump;
    AnalyzedHeap read;
    ASSERT_EQ("", dump.read(read));
    ASSERT_EQ(0, truncate(dump.index.path.c_str(), 60));
    EXPECT_THROW(describe(read), HeapIndexError);
}

// A forged index has the right checksum: only the checks of its contents stand in the way.
TEST(HeapIndexFile, forgedContentsAreRejected) {
    const struct {
        const char* message;
        void (*forge)(AnalyzedHeap& heap);
    } cases[] = {
        {"dominators are rows", [](AnalyzedHeap& h) { h.model->storage->setDominator(7, 13); }},
        {"dominators are rows", [](AnalyzedHeap& h) { h.model->storage->setDominator(7, -5); }},
        {"dominators are rows", [](AnalyzedHeap& h) { h.model->storage->setDominator(7, 7); }},
        {"references lead to rows", [](AnalyzedHeap& h) { h.model->storage->setRef(7, 99, 1); }},
        {"references lead to rows", [](AnalyzedHeap& h) { h.model->storage->setRef(7, -1, 1); }},
        {"array lengths has a number out of range",
         [](AnalyzedHeap& h) { h.model->storage->setArrayLength(7, -9); }},
        {"class row is 500", [](AnalyzedHeap& h) { h.model->classes[1].row = 500; }},
        {"superclass is", [](AnalyzedHeap& h) { h.model->classes[1].superClass = 60; }},
        {"unknown type letter", [](AnalyzedHeap& h) { h.model->classes[3].fields[0].type = 'x'; }},
        {"row of a root is", [](AnalyzedHeap& h) { h.model->roots[0].row = 500; }},
        {"thread of a root is", [](AnalyzedHeap& h) { h.model->roots[0].thread = 5; }},
        {"row of a thread is", [](AnalyzedHeap& h) { h.model->threads[0].row = -1; }},
        {"last row with an identifier", [](AnalyzedHeap& h) { h.model->lastRowWithId = 50; }},
        {"generations are not in order",
         [](AnalyzedHeap& h) { h.model->generations[1].number = 1; }},
        {"allocations are not in order", [](AnalyzedHeap& h) { h.model->siteFrames[1].frame = 3; }},
        {"caller of an allocation", [](AnalyzedHeap& h) { h.model->siteFrames[1].parent = 8; }},
        {"text of a frame", [](AnalyzedHeap& h) { h.model->siteFrames[0].text = 1; }},
        {"size of identifiers", [](AnalyzedHeap& h) { h.model->idSize = 7; }},
    };
    for (const auto& c : cases) {
        IndexedDump dump;
        c.forge(dump.heap);
        HeapIndexFile::write(dump.heap, 1, dump.index.path, nullptr);
        AnalyzedHeap read;
        std::string why = dump.read(read);
        try {
            why += why.empty() ? describe(read) : "";
        } catch (const HeapIndexError& e) {
            why = e.what();
        }
        EXPECT_THAT(why, HasSubstr(c.message));
    }
}
