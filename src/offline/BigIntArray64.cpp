#include "offline/BigIntArray64.h"

#include "core/ground/Logger.h"
#include "core/ground/Options.h"
#include "db/AbstractWriter.h"
#include "offline/MemAllocator.h"

#include <cstring>

BigIntArray64::BigIntArray64(const char* arrayName)
    : fillValue(0), allocatedPages(0), name(arrayName) {}

BigIntArray64::~BigIntArray64() {
    for (int i = 0; i < size; i++) {
        MemAllocator::release(values[i], PAGE_BYTES);
    }
}

void BigIntArray64::failIndex(int index) {
    ZString text("negative index ");
    text.appendLong(index);
    Logger::error(text, VDK_HERE);
}

int* BigIntArray64::createPage(int page) {
    const bool debug = Options::isDebug("alloc");
    if (debug) {
        ZString line("BIA64: ");
        line.append(name);
        line.append(" page=");
        line.appendLong(page);
        Logger::message(line);
    }
    while (size <= page) {
        push(nullptr);
    }
    // The first page of an array is all that a small heap has.
    int* created = static_cast<int*>(MemAllocator::allocateZeroed(PAGE_BYTES, page > 0));
    if (fillValue != 0) {
        for (int i = 0; i < PAGE_SIZE; i++) {
            created[i] = fillValue;
        }
    }
    allocatedPages++;
    values[page] = created;
    if (debug) {
        ZString line("BIA64: ");
        line.append(name);
        line.append(" pages=");
        line.appendLong(allocatedPages);
        line.append(" size=");
        line.appendLong(static_cast<long>(allocatedPages) * PAGE_BYTES);
        Logger::message(line);
    }
    return created;
}

void BigIntArray64::copyTo(int* to, int from, int count) const {
    checkIndex(from);
    while (count > 0) {
        const int page = from >> PAGE_BITS;
        const int at = from & PAGE_MASK;
        const int length = count < PAGE_SIZE - at ? count : PAGE_SIZE - at;
        if (page < size && values[page] != nullptr) {
            memcpy(to, values[page] + at, static_cast<size_t>(length) * sizeof(int));
        } else {
            for (int i = 0; i < length; i++) {
                to[i] = fillValue;
            }
        }
        to += length;
        from += length;
        count -= length;
    }
}

void BigIntArray64::ensure(long count) {
    for (long i = 0; i < count; i += PAGE_SIZE) {
        getBuffer(static_cast<int>(i), true);
    }
}

long BigIntArray64::getArraySizeOnDisk() const {
    return 8 + static_cast<long>(allocatedPages) * 4 * (PAGE_SIZE + 2);
}

void BigIntArray64::writeArray(AbstractWriter& writer) const {
    for (int page = 0; page < size; page++) {
        const int* elements = values[page];
        if (elements == nullptr) {
            continue;
        }
        const unsigned start = static_cast<unsigned>(page) << PAGE_BITS;
        writer.writeInt(static_cast<int>(start));
        writer.writeInt(static_cast<int>(start + PAGE_SIZE));
        for (int i = 0; i < PAGE_SIZE; i++) {
            writer.writeInt(elements[i]);
        }
    }
    writer.writeInt(-1);
    writer.writeInt(-1);
}

void fillArray(BigIntArray64& array, const int* data, int from, int to) {
    for (int i = from; i < to; i++) {
        const int value = data[i - from];
        if (value != array.getFillValue()) {
            array.set(i, value);
        }
    }
}
