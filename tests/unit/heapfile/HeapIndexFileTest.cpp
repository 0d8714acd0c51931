#include "heapfile/HeapIndexFile.h"

#include "HprofWriter.h"
#include "TempDir.h"
#include "heapfile/HeapReadError.h"
#include "offline/HeapAnalysis.h"
#include "offline/Reachability.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
        heap.reachedBits.assign(static_cast<size_t>(bitFieldWords(heap.model->objectCount)), 0);
        analyzeHeap(*heap.model->storage, roots.data(), static_cast<int>(roots.size()), nullptr,
                    heap.reachedBits.data(), 1);
        HeapIndexFile::write(heap, 1, index.path, nullptr);
    }
    std::shared_ptr<MappedFile> mapped() const {
        return std::make_shared<MappedFile>(dump.path, "");
    }
    // Why the index was not taken, empty if it was.
    std::string read(AnalyzedHeap& result, int dumpNumber = 1) const {
        std::string why;
        bool taken = HeapIndexFile::read(index.path, mapped(), dumpNumber, result, why, nullptr);
        EXPECT_EQ(taken, result.analyzed);
        return taken ? "" : why.empty() ? "absent" : why;
    }

    TemporaryFile dump;
    TemporaryFile index;
    AnalyzedHeap heap;
};

} // namespace

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
        ASSERT_NE("", dump.read(read)) << at;
    }
    dump.index.write("notes that the user wants to keep");
    EXPECT_THROW(dump.read(read), HeapReadError);
    unlink(dump.index.path.c_str());
    EXPECT_EQ("absent", dump.read(read));
}

// A forged index has the right checksum: only the checks of its contents stand in the way.
TEST(HeapIndexFile, forgedContentsAreRejected) {
    const struct {
        const char* message;
        void (*forge)(AnalyzedHeap& heap);
    } cases[] = {
        {"has the dominator 13", [](AnalyzedHeap& h) { h.model->storage->setDominator(7, 13); }},
        {"has the dominator -5", [](AnalyzedHeap& h) { h.model->storage->setDominator(7, -5); }},
        {"has the dominator 7", [](AnalyzedHeap& h) { h.model->storage->setDominator(7, 7); }},
        {"references lead to rows", [](AnalyzedHeap& h) { h.model->storage->setRef(7, 99, 1); }},
        {"references lead to rows", [](AnalyzedHeap& h) { h.model->storage->setRef(7, -1, 1); }},
        {"has a negative length", [](AnalyzedHeap& h) { h.model->storage->setArrayLength(7, -9); }},
        {"references are more than there are",
         [](AnalyzedHeap& h) {
             h.model->storage->getReferences().getStartsAndCounts().set(15, 0x7fffffff);
         }},
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
        EXPECT_THAT(dump.read(read), HasSubstr(c.message));
    }
}
