#include "classfile/DataInput.h"

#include "core/ground/Logger.h"

DataInput::DataInput(const unsigned char* input, int count)
    : bytes(input), size(count), position(0) {
    Logger::assertTrue(count >= 0 && (input != nullptr || count == 0), "DataInput", __LINE__);
}

void DataInput::readFully(unsigned char* buffer, int count) {
    Logger::assertNotNULL(buffer, "DataInput", __LINE__);
    Logger::assertTrue(count >= 0, "DataInput", __LINE__);
    memcpy(buffer, take(count), static_cast<size_t>(count));
}

ZString DataInput::readString(int length) {
    Logger::assertTrue(length >= 0, "DataInput", __LINE__);
    const char* const text = reinterpret_cast<const char*>(take(length));
    return ZString(text, static_cast<int>(strnlen(text, static_cast<size_t>(length))));
}

void DataInput::failShort(int count) const {
    if (count < 0) {
        Logger::assertTrue(false, "DataInput", __LINE__);
    }
    zvectorFail("zvector::[]", size, size);
}
