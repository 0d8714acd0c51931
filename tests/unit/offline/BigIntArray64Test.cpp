#include "offline/BigIntArray64.h"

#include "LogLines.h"
#include "TempDir.h"
#include "core/ground/Exceptions.h"
#include "offline/BigIntArray64Presized.h"
#include "offline/MemAllocator.h"

#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

static constexpr int PAGE = BigIntArray64::PAGE_SIZE;

TEST(BigIntArray64, pagesAreMadeAsTheyAreWrittenAndFilledWithTheFillValue) {
    BigIntArray64 array("x");
    array.setFillValue(-1);
    for (int index : {0, 1, PAGE - 1, PAGE, 0x7fffffff}) {
        EXPECT_EQ(array.get(index), -1);
        EXPECT_EQ(array.getBuffer(index, false), nullptr);
    }
    EXPECT_EQ(array.getArraySizeOnDisk(), 8);
    const std::vector<int> data{-1, -1, 0, -1};
    fillArray(array, data.data(), 100, 102);
    EXPECT_EQ(array.getAllocatedPages(), 0) << "fill values are skipped";
    fillArray(array, data.data(), PAGE - 2, PAGE + 2);
    EXPECT_EQ(array.getAllocatedPages(), 1);
    EXPECT_EQ(array.get(PAGE), 0);
    EXPECT_EQ(array.get(PAGE + 1), -1);
    EXPECT_EQ(array.get(2 * PAGE - 1), -1);
    EXPECT_EQ(array.getBuffer(0, false), nullptr);
    array.increment(PAGE + 1);
    array.increment(PAGE + 1);
    EXPECT_EQ(array.get(PAGE + 1), 1);
    array.set(0x7fffffff, 9);
    EXPECT_EQ(array.get(0x7fffffff), 9);
    EXPECT_EQ(array.getPageCount(), 2048);
    EXPECT_EQ(array.getAllocatedPages(), 2);
}

TEST(BigIntArray64, badIndexIsAnInternalError) {
    BigIntArray64 array("x");
    EXPECT_THROW(array.set(-1, 1), VDKRuntimeException);
    EXPECT_THROW(array.get(-1), VDKRuntimeException);
    EXPECT_THROW(array.getBuffer(-0x7fffffff - 1, true), VDKRuntimeException);
}

TEST(BigIntArray64, presizedReadsAsZeroAndChecksItsEnds) {
    for (int size : {0, 5, 1000, 300000, 3000001}) {
        BigIntArray64Presized array("y", size);
        for (int i = 0; i < size; i += 997) {
            ASSERT_EQ(array.get(i), 0);
        }
    }
    BigIntArray64Presized array("y", 5);
    array.set(1, 8);
    const std::vector<int> data{0, 0, 3};
    fillArray(array, data.data(), 0, 3);
    EXPECT_EQ(array.get(1), 8) << "zeros are skipped";
    EXPECT_EQ(array.get(2), 3);
    EXPECT_THROW(fillArray(array, data.data(), 3, 6), VDKRuntimeException);
    EXPECT_THROW(array.get(-1), VDKRuntimeException);
    EXPECT_THROW(array.set(-1, 1), VDKRuntimeException);
    EXPECT_THROW(BigIntArray64Presized("z", -1), VDKRuntimeException);
}

TEST(BigIntArrayIterator64, walksAcrossPagesAndReadsMissingOnesAsZero) {
    BigIntArray64 array("x");
    array.setFillValue(-1);
    array.set(PAGE, 5);
    array.set(PAGE + 2, 6);
    BigIntArrayIterator64 iterator(array, PAGE - 2, PAGE + 3);
    std::vector<int> seen;
    while (iterator.hasNext()) {
        seen.push_back(iterator.next());
    }
    EXPECT_EQ(seen, (std::vector<int>{0, 0, 5, -1, 6}));
    BigIntArrayIterator64 beyond(array, 5 * PAGE, 5 * PAGE + 2);
    EXPECT_EQ(beyond.next(), 0);
    EXPECT_EQ(beyond.index(), 5 * PAGE + 1);
}

TEST(MemAllocator, mapsAFileFromAnyOffset) {
    TempDir dir;
    std::string content(20000, 0);
    for (size_t i = 0; i < content.size(); i++) {
        content[i] = static_cast<char>(i * 7);
    }
    dir.write("file", content);
    const int file = open(dir.file("file").c_str(), O_RDWR);
    long pageOffset = -1;
    long mappedLength = -1;
    char* mapped =
        static_cast<char*>(MemAllocator::map(file, 5000, 9000, &pageOffset, &mappedLength, true));
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(pageOffset, 5000 % sysconf(_SC_PAGESIZE));
    EXPECT_EQ(mappedLength, pageOffset + 9000);
    EXPECT_EQ(0, memcmp(mapped + pageOffset, content.data() + 5000, 9000));
    mapped[pageOffset] = 'x';
    MemAllocator::unmap(mapped, mappedLength);
    content[5000] = 'x';
    EXPECT_EQ(content, TempDir::read(dir.file("file")));
    close(file);
    EXPECT_EQ(MemAllocator::map(1023, 0, 10, &pageOffset, &mappedLength, false), nullptr);
    EXPECT_THROW(MemAllocator::allocateZeroed(~static_cast<size_t>(0)), std::bad_alloc);
    EXPECT_THROW(MemAllocator::allocateZeroed(static_cast<size_t>(1) << 60), std::bad_alloc);
}
