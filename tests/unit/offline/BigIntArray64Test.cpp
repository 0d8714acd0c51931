#include "offline/BigIntArray64.h"

#include "core/ground/Exceptions.h"
#include "core/ground/Logger.h"
#include "db/AbstractWriter.h"
#include "offline/BigIntArray64Presized.h"
#include "offline/MemAllocator.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int PAGE = BigIntArray64::PAGE_SIZE;

// Collects what is written.
class MemoryWriter : public AbstractWriter {
public:
    MemoryWriter() : AbstractWriter(1 << 16, true, -1) {}
    void flush() override {
        bytes.insert(bytes.end(), buffer, buffer + used);
        used = 0;
    }
    std::vector<int> ints() {
        flush();
        std::vector<int> result(bytes.size() / 4);
        for (size_t i = 0; i < result.size(); i++) {
            const unsigned char* at = bytes.data() + 4 * i;
            result[i] = static_cast<int>(at[0] | at[1] << 8 | at[2] << 16 |
                                         static_cast<unsigned>(at[3]) << 24);
        }
        return result;
    }

private:
    std::vector<unsigned char> bytes;
};

} // namespace

TEST(BigIntArray64, freshArrayReadsTheFillValueAndHasNoPage) {
    BigIntArray64 array("x");
    array.setFillValue(-1);
    for (int index : {0, 1, PAGE - 1, PAGE, 0x7fffffff}) {
        EXPECT_EQ(array.get(index), -1);
        EXPECT_EQ(array.getBuffer(index, false), nullptr);
    }
    EXPECT_EQ(array.getAllocatedPages(), 0);
    EXPECT_EQ(array.getArraySizeOnDisk(), 8);
}

TEST(BigIntArray64, setCreatesTheOnePageFilledWithTheFillValue) {
    BigIntArray64 array("x");
    array.setFillValue(7);
    array.set(PAGE, 5);
    EXPECT_EQ(array.getBuffer(0, false), nullptr);
    EXPECT_EQ(array.getAllocatedPages(), 1);
    EXPECT_EQ(array.get(PAGE), 5);
    EXPECT_EQ(array.get(PAGE + 1), 7);
    EXPECT_EQ(array.get(2 * PAGE - 1), 7);
    EXPECT_EQ(array.get(0), 7);
}

TEST(BigIntArray64, incrementStartsFromTheFillValue) {
    BigIntArray64 array("x");
    array.setFillValue(-1);
    array.increment(3);
    array.increment(3);
    EXPECT_EQ(array.get(3), 1);
}

TEST(BigIntArray64, longsKeepTheHighHalfFirst) {
    BigIntArray64 array("x");
    for (long value : {0L, -1L, 0x123456789abcdef0L, 0x80000000L, -0x80000000L}) {
        array.setLong(PAGE / 2, value);
        EXPECT_EQ(array.getLong(PAGE / 2), value);
        EXPECT_EQ(array.get(PAGE), static_cast<int>(value >> 32));
        EXPECT_EQ(array.get(PAGE + 1), static_cast<int>(value));
    }
}

TEST(BigIntArray64, negativeIndexIsAnInternalError) {
    Logger::setSink([](const char*) {});
    BigIntArray64 array("x");
    EXPECT_THROW(array.set(-1, 1), VDKRuntimeException);
    EXPECT_THROW(array.get(-1), VDKRuntimeException);
    EXPECT_THROW(array.getBuffer(-0x7fffffff - 1, true), VDKRuntimeException);
    BigIntArray64Presized presized("y", 4);
    EXPECT_THROW(presized.get(-1), VDKRuntimeException);
    EXPECT_THROW(presized.set(-1, 1), VDKRuntimeException);
    EXPECT_THROW(BigIntArray64Presized("z", -1), VDKRuntimeException);
    Logger::setSink(nullptr);
}

TEST(BigIntArray64, lastIndexIsUsable) {
    BigIntArray64 array("x");
    array.set(0x7fffffff, 9);
    EXPECT_EQ(array.get(0x7fffffff), 9);
    EXPECT_EQ(array.getPageCount(), 2048);
    EXPECT_EQ(array.getAllocatedPages(), 1);
}

TEST(BigIntArray64, fillArraySkipsFillValues) {
    BigIntArray64 array("x");
    array.setFillValue(-1);
    std::vector<int> data(10, -1);
    fillArray(array, data.data(), 100, 110);
    EXPECT_EQ(array.getAllocatedPages(), 0);
    data[4] = 0;
    fillArray(array, data.data(), PAGE - 2, PAGE + 8);
    EXPECT_EQ(array.getAllocatedPages(), 1);
    EXPECT_EQ(array.get(PAGE + 2), 0);
    EXPECT_EQ(array.get(PAGE + 1), -1);
}

TEST(BigIntArray64, fillArrayOfPresizedSkipsZerosAndChecksTheEnd) {
    Logger::setSink([](const char*) {});
    BigIntArray64Presized array("y", 5);
    array.set(1, 8);
    const std::vector<int> data{0, 0, 3};
    fillArray(array, data.data(), 0, 3);
    EXPECT_EQ(array.get(1), 8);
    EXPECT_EQ(array.get(2), 3);
    EXPECT_THROW(fillArray(array, data.data(), 3, 6), VDKRuntimeException);
    Logger::setSink(nullptr);
}

TEST(BigIntArray64, presizedReadsAsZeroWhateverTheSize) {
    for (int size : {0, 1, 1000, 300000, 3000001}) {
        BigIntArray64Presized array("y", size);
        for (int i = 0; i < size; i += 997) {
            ASSERT_EQ(array.get(i), 0);
        }
        if (size > 0) {
            array.set(size - 1, 1);
            EXPECT_EQ(array.get(size - 1), 1);
        }
    }
}

TEST(BigIntArray64, writeArrayWritesExistingPagesInFull) {
    BigIntArray64 array("x");
    array.set(PAGE + 3, 33);
    array.set(3 * PAGE, -4);
    MemoryWriter writer;
    array.writeArray(writer);
    const std::vector<int> ints = writer.ints();
    ASSERT_EQ(ints.size() * 4, static_cast<size_t>(array.getArraySizeOnDisk()));
    EXPECT_EQ(array.getArraySizeOnDisk(), 8 + 8L * 1048578);
    EXPECT_EQ(ints[0], PAGE);
    EXPECT_EQ(ints[1], 2 * PAGE);
    EXPECT_EQ(ints[2 + 3], 33);
    EXPECT_EQ(ints[PAGE + 2], 3 * PAGE);
    EXPECT_EQ(ints[PAGE + 3], 4 * PAGE);
    EXPECT_EQ(ints[PAGE + 4], -4);
    EXPECT_EQ(ints[ints.size() - 2], -1);
    EXPECT_EQ(ints[ints.size() - 1], -1);
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
    char path[] = "/tmp/vdk-map-XXXXXX";
    const int file = mkstemp(path);
    ASSERT_GE(file, 0);
    unlink(path);
    std::vector<char> content(20000);
    for (size_t i = 0; i < content.size(); i++) {
        content[i] = static_cast<char>(i * 7);
    }
    ASSERT_EQ(write(file, content.data(), content.size()), 20000);
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
    char changed = 0;
    ASSERT_EQ(pread(file, &changed, 1, 5000), 1);
    EXPECT_EQ(changed, 'x');
    close(file);
    EXPECT_EQ(MemAllocator::map(1023, 0, 10, &pageOffset, &mappedLength, false), nullptr);
}

TEST(MemAllocator, failsWithoutMemoryByException) {
    EXPECT_THROW(MemAllocator::allocateZeroed(~static_cast<size_t>(0)), std::bad_alloc);
    EXPECT_THROW(MemAllocator::allocateZeroed(static_cast<size_t>(1) << 60), std::bad_alloc);
}
