#include "HprofWriter.h"
#include "heapfile/HeapReadError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

using testing::HasSubstr;

namespace {

// Reads bytes that may be anything. Every object of a heap that comes out must be usable.
void readAnything(const std::string& bytes) {
    try {
        auto model = readHeap(bytes, 2);
        std::string text;
        uint64_t bits = 0;
        for (int row = 1; row <= model->rowCount(); row++) {
            for (int i = 0; i < model->storage->getRefCount(row); i++) {
                int target = model->storage->getRef(row, i);
                ASSERT_GE(target, 0);
                ASSERT_LE(target, model->rowCount());
                model->referenceName(row, i);
            }
            model->classNameOf(row);
            model->stringValue(row, text);
            model->primitiveField(row, "number", bits);
            model->idOf(row);
        }
    } catch (const HeapReadError& e) {
        ASSERT_STRNE("", e.what());
    }
}

std::string errorOf(const std::string& path) {
    try {
        HprofReader::read(std::make_shared<MappedFile>(path, ""), HeapReadOptions());
    } catch (const HeapReadError& e) {
        return e.what();
    }
    return "";
}

long peakResidentKb() {
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

} // namespace

TEST(HprofDamage, everyCutOfASmallFileIsToldOrRead) {
    for (uint32_t idSize : {4u, 8u}) {
        std::string bytes = sampleHeap(idSize).out;
        for (size_t length = 1; length < bytes.size(); length += idSize == 8 ? 1 : 11) {
            SCOPED_TRACE(length);
            readAnything(bytes.substr(0, length));
        }
    }
}

TEST(HprofDamage, whatCanBeReadIsReadAndTheRestIsTold) {
    HprofWriter endless(8); // a segment without a length
    endless.beginDump();
    endless.byteArray(0x2000, "first");
    endless.byteArray(ARRAY, "second");
    HprofWriter unknownTag(8);
    unknownTag.beginDump();
    unknownTag.byteArray(0x2000, "first");
    unknownTag.u1(0x77);
    unknownTag.endDump();
    unknownTag.beginDump();
    unknownTag.byteArray(ARRAY, "second");
    unknownTag.endDump();
    const std::string good = sampleHeap(8).out;
    std::string badText = good;
    badText[good.find("number") - 8 - 4] = '\x7f';
    const std::string cases[][2] = {
        {endless.out, "has a length that cannot be"},
        {unknownTag.out, "unknown heap record tag at offset"},
        {badText, "the file is read on from offset"},
        {good.substr(0, good.size() - 40), "the file is truncated"},
    };
    for (const auto& c : cases) {
        auto model = readHeap(c[0]);
        EXPECT_NE(0, model->rowOfId(ARRAY)) << c[1];
        ASSERT_FALSE(model->remarks.empty()) << c[1];
        EXPECT_THAT(model->remarks[0], HasSubstr(c[1]));
        EXPECT_THAT(model->remarks[0], HasSubstr("at offset")) << c[1];
    }
}

TEST(HprofDamage, hostileLengthsTakeNoMemory) {
    // Lengths of 0xffffffff at all places that have one.
    std::vector<std::string> files;
    for (uint8_t tag : {HPROF_INSTANCE_DUMP, HPROF_OBJECT_ARRAY_DUMP, HPROF_PRIMITIVE_ARRAY_DUMP,
                        HPROF_CLASS_DUMP}) {
        HprofWriter w(8);
        w.beginDump();
        w.byteArray(0x2000, "x");
        w.u1(tag);
        w.out += std::string(100, '\xff');
        w.endDump();
        files.push_back(w.out);
    }
    HprofWriter w(8);
    w.head(HPROF_HEAP_DUMP_SEGMENT, 0xffffffff);
    w.byteArray(0x2000, "x");
    files.push_back(w.out);
    HprofWriter names(8);
    names.head(HPROF_STRING, 0xffffffff);
    files.push_back(names.out);
    readAnything(sampleHeap(8).out); // pages that any reading takes
    long before = peakResidentKb();
    for (const std::string& bytes : files) {
        readAnything(bytes);
    }
    EXPECT_LT(peakResidentKb() - before, 64 * 1024);
}

TEST(HprofDamage, shortInstancesOfAWideClassAreRefused) {
    // Each instance claims 60000 reference fields by its class and has none.
    HprofWriter w(8);
    w.string(1, "f");
    w.loadClass(NODE_CLASS, "demo/Wide");
    w.beginDump();
    w.classDump(NODE_CLASS, 0, 0, {}, std::vector<HprofWriter::Field>(60000, {1, 2, 0}));
    for (uint64_t i = 0; i < 20000; i++) {
        w.instance(0x100000 + i * 16, NODE_CLASS, {});
    }
    w.endDump();
    EXPECT_THROW(readHeap(w.out), HeapReadError);
}

TEST(HprofDamage, superclassesInACircleEnd) {
    HprofWriter w(8);
    w.string(1, "f");
    w.beginDump();
    w.classDump(0x1000, 0x1100, 0, {}, {{1, 2, 0}});
    w.classDump(0x1100, 0x1000, 0, {}, {{1, 10, 0}});
    w.instance(0x2000, 0x1000, {{0x2000, 8}, {1, 4}});
    w.endDump();
    auto model = readHeap(w.out);
    EXPECT_EQ("f", model->referenceName(model->rowOfId(0x2000), 1));
    uint64_t bits = 0;
    EXPECT_FALSE(model->primitiveField(model->rowOfId(0x2000), "absent", bits));
}

TEST(HprofDamage, scatteredIdentifiersTakeMemoryByTheirNumber) {
    HprofWriter w(8);
    w.beginDump();
    uint64_t id = 1;
    for (int i = 0; i < 5000; i++) {
        id = id * 6364136223846793005ULL + 1442695040888963407ULL;
        w.byteArray(id | 1, "x");
    }
    w.endDump();
    long before = peakResidentKb();
    auto model = readHeap(w.out, 2);
    EXPECT_EQ(5001, model->rowCount());
    EXPECT_LT(peakResidentKb() - before, 64 * 1024);
}

TEST(HprofDamage, whatIsNoDumpIsTold) {
    EXPECT_THAT(errorOf("/tmp/vdk-there-is-no-such-file"), HasSubstr("cannot open"));
    EXPECT_THAT(errorOf("/tmp"), HasSubstr("is a directory"));
    EXPECT_THAT(errorOf("/dev/null"), HasSubstr("not a regular file"));
    const std::string cases[][2] = {
        {"", "is empty"},
        {"PK\x03\x04 something else", "wrong magic at offset 0"},
        {std::string("JAVA PROFILE 1.0.9\0\0\0\0\x08", 23), "unknown HPROF version at offset 17"},
        {std::string("JAVA PROFILE 1.0.2\0\0\0\0\x03\0\0\0\0\0\0\0\0", 31),
         "identifiers of 3 bytes"},
        {HprofWriter(8).out, "holds no heap dump"},
    };
    for (const auto& c : cases) {
        EXPECT_THAT(errorOf(TemporaryFile(c[0]).path), HasSubstr(c[1]));
    }
    TemporaryFile unreadable(HprofWriter(8).out);
    if (geteuid() != 0) {
        chmod(unreadable.path.c_str(), 0);
        EXPECT_THAT(errorOf(unreadable.path), HasSubstr("Permission denied"));
    }
}
