#include "classfile/DataOutput.h"

#include "core/ground/Logger.h"

void DataOutput::write(const unsigned char* from, int count) {
    Logger::assertNotNULL(from, VDK_HERE);
    Logger::assertTrue(count >= 0, VDK_HERE);
    if (count > 0) {
        memcpy(bytes.extend(count), from, static_cast<size_t>(count));
    }
}
