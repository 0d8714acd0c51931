#include "heapfile/SnapshotHeapReader.h"

#include "HprofWriter.h"
#include "db/DB.h"
#include "db/Progress.h"
#include "db/SnapshotWriter.h"
#include "heapfile/HeapReadError.h"
#include "heapfile/SnapshotHeapSections.h"
#include "offline/HeapIndexWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

namespace {

// Collects what the writers of the database produce.
class MemoryWriter : public AbstractWriter {
public:
    MemoryWriter() : AbstractWriter(4096, true, -1) {}
    void flush() override {
        bytes.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(used));
        used = 0;
    }
    std::string bytes;
};

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
        header.resize(static_cast<size_t>(lseek(fd, 0, SEEK_END)));
        EXPECT_EQ(ssize_t(header.size()), pread(fd, &header[0], header.size(), 0));
        close(fd);
    }

    int name(const char* text) { return db.stringPool->getDBIndex(text, true); }

    void object(int tag, int row, int type, long size, int length) {
        w.writeByte(tag);
        w.writeInt(row);
        w.writeInt(type);
        w.writeLong(size);
        w.writeInt(3); // generation
        w.writeInt(length);
    }
    void type(int row, const char* text, int super, const std::vector<const char*>& references,
              const char* primitiveField, char primitiveType) {
        w.writeByte(40);
        w.writeInt(name(text));
        w.writeInt(row);
        w.writeInt(super);
        w.writeLong(112);
        w.writeInt(3);
        w.writeLong(0);
        w.writeInt(0); // interfaces
        w.writeInt(0); // static references
        w.writeInt(static_cast<int>(references.size()));
        for (const char* field : references) {
            w.writeInt(name(field));
            w.writeInt(0);
        }
        w.writeInt(0); // static primitives
        w.writeInt(primitiveField ? 1 : 0);
        if (primitiveField) {
            w.writeInt(name(primitiveField));
            w.writeByte(primitiveType);
        }
        w.writeInt(0);
        w.writeInt(0);
    }
    void reference(int tag, int from, int to, int slot) {
        w.writeByte(tag);
        w.writeInt(from);
        w.writeInt(to);
        if (tag != 11 && tag != 12 && tag != 13) {
            w.writeInt(slot);
        }
    }
    void root(int row, int kind, int trn, int threadRow) {
        w.writeByte(43);
        w.writeInt(row);
        w.writeInt(kind);
        w.writeInt(trn);
        w.writeInt(threadRow);
        w.writeInt(0);
        w.writeInt(0);
    }
    void heapHeader(int count) {
        w.writeByte(25);
        w.writeInt(count);
        w.writeInt(0);
        w.writeInt(1);
    }
    void sampleRecords() {
        heapHeader(8);
        object(3, 5, 2, 24, 1);
        w.writeByte(8);
        w.writeInt(5);
        w.writeInt(9);  // thread
        w.writeInt(77); // frame
        object(3, 6, 2, 24, 1);
        object(5, 7, 3, 24, 3);
        object(4, 8, 4, 32, 2);
        type(2, "demo.Node", 0, {"next"}, "number", 'I');
        type(1, "java.lang.Class", 0, {}, nullptr, 0);
        type(3, "byte[]", 0, {}, nullptr, 0);
        type(4, "java.lang.Object[]", 0, {}, nullptr, 0);
        root(8, 2, 0, 0);
        root(6, 8, 4, 6);
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
        w.writeInt(50);
        w.writeInt(60);
        w.writeByte('a');
        w.writeByte('b');
        w.writeByte('c');
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
        w.flush();
        return header + w.bytes;
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

TEST(SnapshotHeapReader, objectsKeepTheirNumbersAndAttributes) {
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
}

TEST(SnapshotHeapReader, referencesStandAtTheirSlots) {
    auto model = readSnapshot(sampleSnapshot());
    EXPECT_EQ(2, model->storage->getRef(5, 0));
    EXPECT_EQ(6, model->storage->getRef(5, 1));
    EXPECT_EQ("next", model->referenceName(5, 1));
    EXPECT_EQ(0, model->storage->getRef(8, 1));
    EXPECT_EQ(7, model->storage->getRef(8, 2));
    EXPECT_EQ(6, model->storage->getRef(2, 1)); // the loader
    EXPECT_EQ(5, model->storage->getRef(2, 4)); // the static field
    EXPECT_EQ("<static field 0>", model->referenceName(2, 4));
    ASSERT_EQ(1u, model->remarks.size());
    EXPECT_THAT(model->remarks[0], HasSubstr("1 references stand outside"));
}

TEST(SnapshotHeapReader, valuesAreReadBack) {
    TemporaryFile file(sampleSnapshot());
    auto model =
        SnapshotHeapReader::read(std::make_shared<MappedFile>(file.path, ""), HeapReadOptions());
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
    std::vector<std::pair<int, uint32_t>> roots;
    for (const HeapRoot& root : model->roots) {
        roots.emplace_back(root.row, root.kind);
    }
    EXPECT_THAT(roots,
                testing::UnorderedElementsAre(std::make_pair(8, uint32_t(HEAP_ROOT_JNI_GLOBAL)),
                                              std::make_pair(6, uint32_t(HEAP_ROOT_STACK_LOCAL)),
                                              std::make_pair(1, uint32_t(HEAP_ROOT_SYSTEM_CLASS)),
                                              std::make_pair(3, uint32_t(HEAP_ROOT_SYSTEM_CLASS)),
                                              std::make_pair(4, uint32_t(HEAP_ROOT_SYSTEM_CLASS))));
}

TEST(SnapshotHeapReader, badRecordsAreToldWithTheirPlace) {
    struct Case {
        const char* message;
        void (*write)(SnapshotBuilder& builder);
    };
    const Case cases[] = {
        {"an object count of 2000000000", [](SnapshotBuilder& b) { b.heapHeader(2000000000); }},
        {"an object count of -1", [](SnapshotBuilder& b) { b.heapHeader(-1); }},
        {"object is object 9 of 8",
         [](SnapshotBuilder& b) {
             b.heapHeader(8);
             b.object(3, 9, 1, 16, 0);
         }},
        {"class is object 0 of 8",
         [](SnapshotBuilder& b) {
             b.heapHeader(8);
             b.object(3, 1, 0, 16, 0);
         }},
        {"object 1 is there twice",
         [](SnapshotBuilder& b) {
             b.heapHeader(8);
             b.object(3, 1, 2, 16, 0);
             b.object(3, 1, 2, 16, 0);
         }},
        {"an object of negative size",
         [](SnapshotBuilder& b) {
             b.heapHeader(8);
             b.object(4, 1, 2, 16, -1);
         }},
        {"more references than can be",
         [](SnapshotBuilder& b) {
             b.heapHeader(8);
             b.object(4, 1, 2, 16, 0x7fffffff);
         }},
        {"unknown record tag 99",
         [](SnapshotBuilder& b) {
             b.heapHeader(8);
             b.w.writeByte(99);
         }},
        {"interfaces: a count of 2147483647",
         [](SnapshotBuilder& b) {
             b.heapHeader(8);
             b.w.writeByte(40);
             b.w.writeInt(0);
             b.w.writeInt(1);
             b.w.writeInt(0);
             b.w.writeLong(0);
             b.w.writeInt(0);
             b.w.writeLong(0);
             b.w.writeInt(0x7fffffff);
         }},
    };
    for (const Case& c : cases) {
        SnapshotBuilder builder;
        c.write(builder);
        std::string error = errorOf(builder.finish());
        EXPECT_THAT(error, HasSubstr(c.message));
        EXPECT_THAT(error, HasSubstr("at offset"));
    }
}

TEST(SnapshotHeapReader, cutsAndFlipsDoNotCrash) {
    std::string good = sampleSnapshot();
    for (size_t length = 1; length < good.size(); length += 3) {
        errorOf(good.substr(0, length));
    }
    uint64_t seed = 42;
    for (int round = 0; round < 400; round++) {
        std::string bytes = good;
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
        // Behind the header, where the heap is.
        size_t at = 100 + (seed >> 20) % (bytes.size() - 100);
        bytes[at] = static_cast<char>(seed >> 50);
        errorOf(bytes);
    }
}

TEST(SnapshotHeapReader, aSnapshotWithoutHeapIsToldSo) {
    SnapshotBuilder builder;
    EXPECT_THAT(errorOf(builder.finish()), HasSubstr("holds no heap"));
}

TEST(SnapshotHeapReader, closingSectionsFillTheArrays) {
    auto heap = readSnapshot(sampleSnapshot());
    heap->storage->setDominator(6, 5);
    heap->storage->setRetainedSize(5, 0x123456789L);
    TemporaryFile file;
    int fd = open(file.path.c_str(), O_RDWR);
    DB db(-1, -1);
    {
        SnapshotWriter writer(fd);
        Progress progress;
        writeHeapSnapshot(db, *heap->storage, writer, &progress, SNAPSHOT_WITH_HEAP);
    }
    close(fd);
    MappedFile mapped(file.path, "");
    HeapModel model(nullptr);
    SnapshotHeapSections sections(mapped, model, false, nullptr);
    DB read(-1, -1);
    MemorySource source(mapped.data(), static_cast<long>(mapped.size()));
    SnapshotReader(&read, source, &sections).read();
    ASSERT_TRUE(sections.hasClosingSections());
    EXPECT_FALSE(sections.hasObjects());
    EXPECT_EQ(4u, sections.closingClassRows().size());
    EXPECT_EQ(9, model.objectCount);
    EXPECT_EQ(5, model.storage->getDominator(6));
    EXPECT_EQ(0x123456789L, model.storage->getRetainedSize(5));
    EXPECT_EQ(24, model.storage->getSize(7));
    EXPECT_EQ(-1, model.storage->getArrayLength(5));
    MemoryWriter first, second;
    writeHeapIndex(*heap->storage, first);
    writeHeapIndex(*model.storage, second);
    first.flush();
    second.flush();
    EXPECT_TRUE(first.bytes == second.bytes) << "written again";
}
