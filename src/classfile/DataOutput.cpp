#include "classfile/DataOutput.h"

#include "core/ground/Logger.h"

void DataOutput::write(const unsigned char* from, int count) {
    Logger::assertNotNULL(from, "DataOutput", __LINE__);
    Logger::assertTrue(count >= 0, "DataOutput", __LINE__);
    if (count > 0) {
        memcpy(bytes.extend(count), from, static_cast<size_t>(count));
    }
}
