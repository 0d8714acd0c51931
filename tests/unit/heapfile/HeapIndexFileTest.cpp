#include "heapfile/HeapIndexFile.h"

#include "HprofWriter.h"
#include "heapfile/HeapReadError.h"
#include "offline/HeapAnalysis.h"
#include "offline/Reachability.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

using testing::HasSubstr;

namespace {

// A dump file, its index, and the analyzed heap that the index was made of.
class IndexedDump {
public:
    IndexedDump() : dump(sampleHeap(8).out), index("") {
        unlink(index.path.c_str());
        HeapReadOptions options;
        heap.model = HprofReader::read(mapped(), options);
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
    std::string bytes() const {
        std::ifstream in(index.path, std::ios::binary);
        std::stringstream all;
        all << in.rdbuf();
        return all.str();
    }

    TemporaryFile dump;
    TemporaryFile index;
    AnalyzedHeap heap;
};

} // namespace

TEST(HeapIndexFile, bringsBackTheWholeHeap) {
    IndexedDump dump;
    AnalyzedHeap read;
    ASSERT_EQ("", dump.read(read));
    const HeapModel& a = *dump.heap.model;
    const HeapModel& b = *read.model;
    ASSERT_EQ(a.rowCount(), b.rowCount());
    for (int row = 1; row <= a.rowCount(); row++) {
        EXPECT_EQ(a.idOf(row), b.idOf(row));
        EXPECT_EQ(a.classNameOf(row), b.classNameOf(row));
        EXPECT_EQ(a.storage->getSize(row), b.storage->getSize(row));
        EXPECT_EQ(a.storage->getDominator(row), b.storage->getDominator(row));
        EXPECT_EQ(a.storage->getRetainedSize(row), b.storage->getRetainedSize(row));
        EXPECT_EQ(a.storage->getArrayLength(row), b.storage->getArrayLength(row));
        ASSERT_EQ(a.storage->getRefCount(row), b.storage->getRefCount(row));
        for (int i = 0; i < a.storage->getRefCount(row); i++) {
            EXPECT_EQ(a.storage->getRef(row, i), b.storage->getRef(row, i));
            EXPECT_EQ(a.referenceName(row, i), b.referenceName(row, i));
        }
        EXPECT_EQ(a.storage->getBackwardReferences()->getCount(row),
                  b.storage->getBackwardReferences()->getCount(row));
    }
    EXPECT_EQ(dump.heap.reachedBits, read.reachedBits);
    EXPECT_EQ(a.roots.size(), b.roots.size());
    EXPECT_EQ(a.sizeReport, b.sizeReport);
    std::string text;
    ASSERT_TRUE(b.stringValue(b.rowOfId(TEXT), text));
    EXPECT_EQ("hello", text);
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

TEST(HeapIndexFile, anAbsentIndexIsNoError) {
    IndexedDump dump;
    unlink(dump.index.path.c_str());
    AnalyzedHeap read;
    EXPECT_EQ("absent", dump.read(read));
}

TEST(HeapIndexFile, aFileThatIsNoIndexIsLeftAlone) {
    IndexedDump dump;
    dump.index.write("notes that the user wants to keep");
    AnalyzedHeap read;
    EXPECT_THROW(dump.read(read), HeapReadError);
}

TEST(HeapIndexFile, everyCutIsRejected) {
    IndexedDump dump;
    std::string good = dump.bytes();
    for (size_t length = 50; length < good.size(); length += 7) {
        dump.index.write(good.substr(0, length));
        AnalyzedHeap read;
        ASSERT_THAT(dump.read(read), HasSubstr("damaged index")) << length;
    }
}

TEST(HeapIndexFile, everyFlippedByteIsRejected) {
    IndexedDump dump;
    std::string good = dump.bytes();
    for (size_t at = 48; at < good.size(); at += 5) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x80);
        dump.index.write(bytes);
        AnalyzedHeap read;
        ASSERT_NE("", dump.read(read)) << at;
    }
}

// A forged index has the right checksum: only the checks of its contents stand in the way.
TEST(HeapIndexFile, forgedContentsAreRejected) {
    struct Case {
        const char* message;
        void (*forge)(AnalyzedHeap& heap);
    };
    const Case cases[] = {
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
        {"size of identifiers", [](AnalyzedHeap& h) { h.model->idSize = 7; }},
    };
    for (const Case& c : cases) {
        IndexedDump dump;
        c.forge(dump.heap);
        HeapIndexFile::write(dump.heap, 1, dump.index.path, nullptr);
        AnalyzedHeap read;
        EXPECT_THAT(dump.read(read), HasSubstr(c.message));
    }
}
