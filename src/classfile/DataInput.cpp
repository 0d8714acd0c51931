#include "classfile/DataInput.h"

#include "core/ground/Logger.h"

DataInput::DataInput(const unsigned char* input, int count)
    : bytes(input), size(count), position(0) {
    Logger::assertTrue(count >= 0 && (input != nullptr || count == 0), VDK_HERE);
}

void DataInput::readFully(unsigned char* buffer, int count) {
    Logger::assertNotNULL(buffer, VDK_HERE);
    Logger::assertTrue(count >= 0, VDK_HERE);
    memcpy(buffer, take(count), static_cast<size_t>(count));
}

ZString DataInput::readString(int length) {
    Logger::assertTrue(length >= 0, VDK_HERE);
    const char* const text = reinterpret_cast<const char*>(take(length));
    return ZString(text, static_cast<int>(strnlen(text, static_cast<size_t>(length))));
}

void DataInput::failShort(int count) const {
    if (count < 0) {
        Logger::assertTrue(false, VDK_HERE);
    }
    zvectorFail("zvector::[]", size, size);
}
