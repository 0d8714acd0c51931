#include "heapfile/SnapshotHeapReader.h"

#include "HprofWriter.h"
#include "MemoryWriter.h"
#include "TempDir.h"
#include "db/ByteReader.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotCommon.h"
#include "db/SnapshotWriter.h"
#include "heapfile/HeapReadError.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

using testing::HasSubstr;

namespace {

// A snapshot with the objects: 1 java.lang.Class, 2 Node, 3 byte[], 4 Object[], 5 and 6 nodes, 7
// a byte array, 8 an array of references.
class SnapshotBuilder {
public:
    SnapshotBuilder() : db(-1, -1) {
        TemporaryFile file;
        int fd = open(file.path.c_str(), O_RDWR);
        {
            SnapshotWriter writer(fd);
            writeSnapshotHeader(1000, "test", writer, SNAPSHOT_WITH_HEAP, SNAPSHOT_FORMAT_VALUE);
        }
        close(fd);
        header = TempDir::read(file.path);
    }

    int name(const char* text) { return db.stringPool->getDBIndex(text, true); }

    void ints(std::initializer_list<int> values) {
        for (int value : values) {
            w.writeInt(value);
        }
    }
    void object(int tag, int row, int type, long size, int length) {
        w.writeByte(tag);
        ints({row, type});
        w.writeLong(size);
        ints({3, length}); // generation
    }
    void type(int row, const char* text, int super, const std::vector<const char*>& references,
              const char* primitiveField, char primitiveType) {
        w.writeByte(40);
        ints({name(text), row, super});
        w.writeLong(112);
        w.writeInt(3);
        w.writeLong(0);
        ints({0, 0, static_cast<int>(references.size())}); // no interfaces, no static references
        for (const char* field : references) {
            ints({name(field), 0});
        }
        ints({0, primitiveField ? 1 : 0}); // no static primitives
        if (primitiveField) {
            w.writeInt(name(primitiveField));
            w.writeByte(primitiveType);
        }
        ints({0, 0});
    }
    void reference(int tag, int from, int to, int slot) {
        w.writeByte(tag);
        ints({from, to});
        if (tag != 11 && tag != 12 && tag != 13) {
            w.writeInt(slot);
        }
    }
    void root(int row, int kind, int trn, int threadRow, const char* variable = nullptr) {
        w.writeByte(43);
        ints({row, kind, trn, threadRow, 0, variable == nullptr ? 0 : name(variable)});
    }
    void heapHeader(int count) {
        w.writeByte(25);
        ints({count, 0, 1});
    }
    void sampleRecords() {
        heapHeader(8);
        object(3, 5, 2, 24, 1);
        w.writeByte(8);
        ints({5, 9, 77}); // thread, frame
        object(3, 6, 2, 24, 1);
        object(5, 7, 3, 24, 3);
        object(4, 8, 4, 32, 2);
        type(2, "demo.Node", 0, {"next"}, "number", 'I');
        type(1, "java.lang.Class", 0, {}, nullptr, 0);
        type(3, "byte[]", 0, {}, nullptr, 0);
        type(4, "java.lang.Object[]", 0, {}, nullptr, 0);
        root(8, 2, 0, 0);
        root(6, 8, 4, 6, "cart");
        reference(14, 2, 5, 0);
        reference(11, 2, 6, 0);
        reference(9, 5, 6, 0);
        reference(10, 8, 7, 1);
        reference(10, 8, 7, 2); // behind the end: dropped
        primitives();
    }
    // Numbers 50 and 60 of the nodes, bytes "abc".
    void primitives() {
        w.flush();
        long start = static_cast<long>(header.size() + w.bytes.size()) + 9;
        w.writeByte(39);
        w.writeLong(4 + 4 + 3);
        ints({50, 60});
        w.writeBytes("abc", 3);
        w.writeInt(9);
        w.flush();
        while ((header.size() + w.bytes.size()) % 8 != 0) {
            w.writeByte(0);
            w.flush();
        }
        const long offsets[9] = {0, 0, 0, 0, 0, start, start + 4, start + 8, 0};
        for (long offset : offsets) {
            w.writeLong(offset);
        }
    }
    std::string finish() {
        Progress progress;
        writeAllTables(&db, w, 0, 0, &progress, nullptr);
        return header + w.take();
    }

    DB db;
    MemoryWriter w;
    std::string header;
};

std::string sampleSnapshot() {
    SnapshotBuilder builder;
    builder.sampleRecords();
    return builder.finish();
}

std::unique_ptr<HeapModel> readSnapshot(const std::string& bytes) {
    TemporaryFile file(bytes);
    return SnapshotHeapReader::read(std::make_shared<MappedFile>(file.path, ""), HeapReadOptions());
}

// The error of reading, empty for none.
std::string errorOf(const std::string& bytes) {
    try {
        readSnapshot(bytes);
    } catch (const HeapReadError& e) {
        return e.what();
    } catch (const BadInputException& e) {
        return e.message.c_str();
    }
    return "";
}

} // namespace

TEST(SnapshotHeapReader, objectsKeepTheirNumbersAttributesAndReferences) {
    auto model = readSnapshot(sampleSnapshot());
    EXPECT_EQ(8, model->rowCount());
    EXPECT_EQ(24, model->storage->getSize(5));
    EXPECT_EQ(3, model->storage->getGeneration(6));
    EXPECT_EQ(77, model->storage->getAllocatorFrame(5));
    EXPECT_EQ(9, model->storage->getAllocatorThread(5));
    EXPECT_EQ(3, model->storage->getArrayLength(7));
    EXPECT_EQ(-1, model->storage->getArrayLength(6));
    EXPECT_EQ(112, model->storage->getSize(2));
    EXPECT_EQ("demo.Node", model->classNameOf(5));
    EXPECT_EQ("java.lang.Class", model->classNameOf(2));
    EXPECT_EQ(6, model->rowOfId(6));
    const int references[][3] = {
        {5, 0, 2}, {5, 1, 6}, {8, 1, 0}, {8, 2, 7}, {2, 1, 6}, // the loader
        {2, 4, 5},                                             // the static field
    };
    for (const auto& reference : references) {
        EXPECT_EQ(reference[2], model->storage->getRef(reference[0], reference[1]));
    }
    EXPECT_EQ("next", model->referenceName(5, 1));
    EXPECT_EQ("<static field 0>", model->referenceName(2, 4));
    ASSERT_EQ(1u, model->remarks.size());
    EXPECT_THAT(model->remarks[0], HasSubstr("1 references stand outside"));
}

TEST(SnapshotHeapReader, valuesAreReadBack) {
    auto model = readSnapshot(sampleSnapshot());
    uint64_t bits = 0;
    ASSERT_TRUE(model->primitiveField(6, "number", bits));
    EXPECT_EQ(60u, bits);
    const uint8_t* elements = nullptr;
    uint32_t count = 0;
    char type = 0;
    ASSERT_TRUE(model->primitiveArray(7, elements, count, type));
    EXPECT_EQ(3u, count);
    EXPECT_EQ('B', type);
    EXPECT_EQ(uint64_t('c'), model->element(elements, 2, type));
}

TEST(SnapshotHeapReader, classesWithoutLoaderAreRoots) {
    auto model = readSnapshot(sampleSnapshot());
    std::set<std::pair<int, uint32_t>> roots;
    for (const HeapRoot& root : model->roots) {
        roots.insert({root.row, root.kind});
        ASSERT_EQ(root.kind == HEAP_ROOT_STACK_LOCAL, root.name >= 0);
        EXPECT_EQ(root.name < 0 ? "" : "cart",
                  root.name < 0 ? "" : model->frameTexts.at(static_cast<size_t>(root.name)));
    }
    EXPECT_EQ(5u, model->roots.size());
    const uint32_t loaderless = HEAP_ROOT_SYSTEM_CLASS;
    EXPECT_EQ(roots, (std::set<std::pair<int, uint32_t>>{{8, HEAP_ROOT_JNI_GLOBAL},
                                                         {6, HEAP_ROOT_STACK_LOCAL},
                                                         {1, loaderless},
                                                         {3, loaderless},
                                                         {4, loaderless}}));
}

TEST(SnapshotHeapReader, badRecordsAreToldWithTheirPlace) {
    const struct {
        const char* message;
        int count; // of the header of the heap
        void (*write)(SnapshotBuilder& builder);
    } cases[] = {
        {"an object count of 2000000000", 2000000000, [](SnapshotBuilder&) {}},
        {"an object count of -1", -1, [](SnapshotBuilder&) {}},
        {"object is object 9 of 8", 8, [](SnapshotBuilder& b) { b.object(3, 9, 1, 16, 0); }},
        {"class is object 0 of 8", 8, [](SnapshotBuilder& b) { b.object(3, 1, 0, 16, 0); }},
        {"object 1 is there twice", 8,
         [](SnapshotBuilder& b) {
             b.object(3, 1, 2, 16, 0);
             b.object(3, 1, 2, 16, 0);
         }},
        {"an object of negative size", 8, [](SnapshotBuilder& b) { b.object(4, 1, 2, 16, -1); }},
        {"more references than can be", 8,
         [](SnapshotBuilder& b) { b.object(4, 1, 2, 16, 0x7fffffff); }},
        {"unknown record tag 99", 8, [](SnapshotBuilder& b) { b.w.writeByte(99); }},
        {"interfaces: a count of 2147483647", 8,
         [](SnapshotBuilder& b) {
             b.w.writeByte(40);
             b.ints({0, 1, 0, 0, 0, 0, 0, 0, 0x7fffffff});
         }},
    };
    for (const auto& c : cases) {
        SnapshotBuilder builder;
        builder.heapHeader(c.count);
        c.write(builder);
        std::string error = errorOf(builder.finish());
        EXPECT_THAT(error, HasSubstr(c.message));
        EXPECT_THAT(error, HasSubstr("at offset"));
    }
    SnapshotBuilder withoutHeap;
    EXPECT_THAT(errorOf(withoutHeap.finish()), HasSubstr("holds no heap"));
}
