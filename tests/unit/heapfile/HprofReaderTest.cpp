#include "HprofWriter.h"
#include "heapfile/HeapReadError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

using testing::HasSubstr;

namespace {

std::vector<int> references(const HeapModel& model, uint64_t id) {
    int row = model.rowOfId(id);
    std::vector<int> result;
    for (int i = 0; i < model.storage->getRefCount(row); i++) {
        result.push_back(model.storage->getRef(row, i));
    }
    return result;
}

std::string gzipMember(const std::string& text) {
    z_stream stream = {};
    deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    std::string out(compressBound(text.size()) + 100, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(&out[0]);
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_FINISH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

// Contents of a model as text, for comparison.
std::string describe(const HeapModel& model) {
    std::string text;
    for (int row = 1; row <= model.rowCount(); row++) {
        text += std::to_string(model.idOf(row)) + " " + model.classNameOf(row) + " " +
                std::to_string(model.storage->getSize(row));
        for (int i = 0; i < model.storage->getRefCount(row); i++) {
            text += " " + model.referenceName(row, i) + "=" +
                    std::to_string(model.storage->getRef(row, i));
        }
        text += "\n";
    }
    for (const HeapRoot& root : model.roots) {
        text += std::to_string(root.row) + ":" + std::to_string(root.kind) + "\n";
    }
    return text;
}

} // namespace

class HprofReaderIds : public testing::TestWithParam<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(BothSizes, HprofReaderIds, testing::Values(4u, 8u));

TEST_P(HprofReaderIds, rowsFollowTheOrderOfIdentifiersAndHaveReferencesAndNames) {
    auto model = readHeap(sampleHeap(GetParam()).out);
    EXPECT_EQ(12, model->rowCount());
    EXPECT_EQ(OBJECT_CLASS, model->idOf(1));
    EXPECT_EQ(THREAD_NODE, model->idOf(12));
    EXPECT_EQ(8, model->rowOfId(SECOND_NODE));
    EXPECT_EQ(0, model->rowOfId(SECOND_NODE + 8));
    EXPECT_TRUE(model->remarks.empty());
    ASSERT_EQ(3u, model->roots.size());
    EXPECT_EQ(uint32_t(HEAP_ROOT_SYSTEM_CLASS), model->roots[0].kind);
    EXPECT_EQ(uint32_t(HEAP_ROOT_JNI_GLOBAL), model->roots[1].kind);
    EXPECT_EQ(uint32_t(HEAP_ROOT_THREAD), model->roots[2].kind);
    EXPECT_EQ(0, model->roots[2].thread);
    EXPECT_EQ(model->rowOfId(THREAD_NODE), model->threads[0].row);
    const struct {
        SampleId id;
        const char* className;
        std::vector<int> references;
        int named;
        const char* name; // of that reference
    } objects[] = {
        {FIRST_NODE, "demo.Node$Link", {4, 8, 0}, 1, "next"},
        {SECOND_NODE, "demo.Node$Link", {4, 0, 9}, 2, "label"},
        {TEXT_BYTES, "byte[]", {6}, 0, "<class>"},
        {ARRAY, "java.lang.Object[]", {5, 7, 8, 0}, 2, "[1]"},
        {NODE_CLASS, "java.lang.Class", {1, 0, 0, 0, 7}, 4, "head"},
    };
    for (const auto& object : objects) {
        const int row = model->rowOfId(object.id);
        EXPECT_EQ(object.className, model->classNameOf(row));
        EXPECT_EQ(object.references, references(*model, object.id)) << object.className;
        EXPECT_EQ(object.name, model->referenceName(row, object.named));
    }
}

TEST_P(HprofReaderIds, valuesAreReadBack) {
    // The file must stay mapped but may be unlinked meanwhile.
    auto model = readHeap(sampleHeap(GetParam()).out);
    std::string text;
    ASSERT_TRUE(model->stringValue(model->rowOfId(TEXT), text));
    EXPECT_EQ("hello", text);
    uint64_t bits = 0;
    ASSERT_TRUE(model->primitiveField(model->rowOfId(SECOND_NODE), "number", bits));
    EXPECT_EQ(6u, bits);
    EXPECT_FALSE(model->primitiveField(model->rowOfId(SECOND_NODE), "absent", bits));
    EXPECT_FALSE(model->stringValue(model->rowOfId(FIRST_NODE), text));
    EXPECT_EQ(77u, model->classes[3].statics[1].bits);
}

TEST_P(HprofReaderIds, segmentsOldVersionsAndGzipMakeTheSameHeap) {
    const std::string bytes = sampleHeap(GetParam()).out;
    const std::string whole = describe(*readHeap(bytes));
    EXPECT_EQ(whole, describe(*readHeap(sampleHeap(GetParam(), "1.0.2", true).out, 2)));
    auto old = readHeap(sampleHeap(GetParam(), "1.0.1", false, HPROF_HEAP_DUMP).out);
    EXPECT_EQ("HPROF 1.0.1", old->formatName);
    EXPECT_EQ(whole, describe(*old));
    const std::string packed = gzipMember(bytes.substr(0, 300)) + gzipMember(bytes.substr(300));
    auto unpacked = readHeap(packed);
    EXPECT_EQ(whole, describe(*unpacked));
    EXPECT_THAT(unpacked->formatName, HasSubstr("gzip"));
    auto cut = readHeap(packed.substr(0, packed.size() - 30));
    ASSERT_FALSE(cut->remarks.empty());
    EXPECT_THAT(cut->remarks[0], HasSubstr("compressed data ends early"));
}

TEST(HprofReader, oneOfSeveralDumpsIsChosenByNumber) {
    HprofWriter w = sampleHeap(8, "1.0.1", false, HPROF_HEAP_DUMP);
    w.beginDump(HPROF_HEAP_DUMP);
    w.byteArray(0x9000, "second");
    w.endDump();
    EXPECT_EQ(12, readHeap(w.out, 1, 1)->rowCount());
    auto second = readHeap(w.out, 1, 2);
    // The array, and its class, which only the first dump holds.
    EXPECT_EQ(2, second->rowCount());
    EXPECT_THAT(second->remarks.back(), HasSubstr("holds 2 heap dumps; this is number 2"));
    EXPECT_THROW(readHeap(w.out, 1, 3), HeapReadError);
}

TEST(HprofReader, classesWithoutRecordsGetRows) {
    HprofWriter w(8);
    w.beginDump();
    w.instance(0x2000, 0x5550, {{1, 4}});
    w.byteArray(0x2018, "x");
    w.endDump();
    auto model = readHeap(w.out);
    EXPECT_EQ(4, model->rowCount());
    EXPECT_EQ("<class 0x5550>", model->classNameOf(1));
    EXPECT_EQ("byte[]", model->classNameOf(2));
    EXPECT_EQ(0u, model->idOf(3));
}

TEST(HprofReader, theFirstOfTwoObjectsWithOneIdentifierIsKept) {
    HprofWriter w(8);
    w.beginDump();
    w.byteArray(0x2000, "first");
    w.byteArray(0x2000, "second");
    w.endDump();
    auto model = readHeap(w.out, 2);
    EXPECT_EQ(5, model->storage->getArrayLength(1));
    EXPECT_THAT(model->remarks[0], HasSubstr("1 objects have the identifier of another"));
}

TEST(HprofReader, referencesToAbsentObjectsAreDamageOnlyWhereThereIsDamage) {
    HprofWriter w(8);
    w.beginDump();
    w.objectArray(0x2000, 0x1000, {0x2000, 0x7770, 0x7778});
    w.endDump();
    auto model = readHeap(w.out);
    EXPECT_TRUE(model->remarks.empty());
    EXPECT_THAT(model->notes[0], HasSubstr("2 references lead to objects"));
    auto cut = readHeap(w.out + "x");
    EXPECT_TRUE(cut->notes.empty());
    EXPECT_THAT(cut->remarks.back(), HasSubstr("2 references lead to objects"));
    std::vector<uint64_t> many(10000, 0x7770);
    w.beginDump();
    w.objectArray(0x4000, 0x1000, many);
    w.endDump();
    EXPECT_THAT(readHeap(w.out)->remarks.back(), HasSubstr("10002 references lead to objects"));
}

TEST(HprofReader, aPaddedSizeGivesWayToTheSmallestDistanceOfAll) {
    HprofWriter w(8);
    w.string(1, "a");
    w.loadClass(NODE_CLASS, "demo/Regular");
    w.beginDump();
    w.classDump(NODE_CLASS, 0, 0, {}, {{1, 10, 0}});
    // The samples share a distance that looks like padding; one of the others is nearer.
    for (uint64_t i = 0; i < 40; i++) {
        w.instance(0x10000 + i * 32 - (i == 30 ? 16 : 0), NODE_CLASS, {{i, 4}});
    }
    w.endDump();
    auto model = readHeap(w.out);
    EXPECT_EQ(16, model->sizeOf(model->rowOfId(0x10000)));
    EXPECT_EQ(16, model->classes[0].instanceSize);
}

TEST(HprofReader, stacksOfThreadsAreText) {
    HprofWriter w(8);
    w.strings(1, {"run", "()V", "Main.java"});
    w.loadClass(NODE_CLASS, "demo/Main");
    w.head(HPROF_FRAME, 4 * 8 + 8);
    w.put({{0x77, 8}, {1, 8}, {2, 8}, {3, 8}, {1, 4}, {12, 4}});
    w.head(HPROF_TRACE, 12 + 8);
    w.put({{9, 4}, {4, 4}, {1, 4}, {0x77, 8}});
    w.beginDump();
    w.byteArray(0x2000, "x");
    w.rootFrame(0x2000, 4, 0);
    w.rootThread(0x2000, 4, 9);
    w.rootThread(0x2000, 5, 9);
    w.endDump();
    auto model = readHeap(w.out);
    ASSERT_EQ(2u, model->threads.size());
    EXPECT_TRUE(model->frameTexts.empty());
    EXPECT_EQ(std::vector<std::string>{"demo.Main.run(Main.java:12)"}, model->stackOf(0));
    EXPECT_EQ(model->stackOf(0), model->stackOf(1));
    EXPECT_EQ(0, model->roots[0].thread);
    EXPECT_EQ(0, model->roots[0].frame);
}
