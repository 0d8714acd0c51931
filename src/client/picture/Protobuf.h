// Messages of protocol buffers as bytes, for the forms of profiles that are made of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vdk {

// A message of protocol buffers under construction.
class Message {
public:
    Message& number(int field, int64_t value) {
        key(field, 0);
        varint(uint64_t(value));
        return *this;
    }
    Message& bytes(int field, const std::string& content) {
        key(field, 2);
        varint(content.size());
        data += content;
        return *this;
    }
    // Eight bytes, the least first.
    Message& fixed(int field, uint64_t value) {
        key(field, 1);
        for (int i = 0; i < 8; i++, value >>= 8) {
            data += char(value & 255);
        }
        return *this;
    }
    Message& message(int field, const Message& content) { return bytes(field, content.data); }
    Message& numbers(int field, const std::vector<int64_t>& values) {
        Message packed;
        for (int64_t value : values) {
            packed.varint(uint64_t(value));
        }
        return bytes(field, packed.data);
    }

    std::string data;

private:
    void key(int field, unsigned type) { varint(uint64_t(unsigned(field) << 3 | type)); }
    void varint(uint64_t value) {
        for (; value > 127; value >>= 7) {
            data += char((value & 127) | 128);
        }
        data += char(value);
    }
};

} // namespace vdk
