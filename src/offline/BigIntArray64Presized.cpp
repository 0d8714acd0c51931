#include "offline/BigIntArray64Presized.h"

#include "core/ground/Options.h"
#include "offline/MemAllocator.h"

namespace {

int* allocateElements(const ZString& name, long size) {
    Logger::assertTrue(size >= 0, VDK_HERE);
    const bool debug = Options::isDebug("alloc");
    ZString line("BIA64P: ");
    line.append(name);
    if (debug) {
        ZString before(line);
        before.append(" ");
        before.appendLong(size);
        Logger::message(before);
    }
    void* block = MemAllocator::allocateZeroed(static_cast<size_t>(size) * sizeof(int));
    if (debug) {
        line.append(" OK");
        Logger::message(line);
    }
    return static_cast<int*>(block);
}

} // namespace

BigIntArray64Presized::BigIntArray64Presized(const char* arrayName, long elements)
    : buffer(nullptr), name(arrayName), size(elements) {
    buffer = allocateElements(name, elements);
}

BigIntArray64Presized::~BigIntArray64Presized() {
    MemAllocator::release(buffer, static_cast<size_t>(size) * sizeof(int));
}

void fillArray(BigIntArray64Presized& array, const int* data, int from, int to) {
    Logger::assertTrue(to <= array.size, VDK_HERE);
    for (int i = from; i < to; i++) {
        const int value = data[i - from];
        if (value != 0) {
            array.set(i, value);
        }
    }
}
