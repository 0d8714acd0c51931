// Messages of protocol buffers, read field by field: profiles of others, and what stores answer.
#pragma once

#include "client/console/Errors.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace vdk {

[[noreturn]] inline void failMessage(const std::string& message) {
    throw ClientError(ExitCode::BadInput, "foreign.data", message);
}

// A field of a message of protocol buffers.
struct MessageField {
    int number = 0;
    uint64_t value = 0;     // of a varint
    std::string_view bytes; // of anything with a length
    bool isBytes = false;
};

// The fields of one message, each looked at once and every length checked.
class MessageFields {
public:
    explicit MessageFields(std::string_view message) : rest(message) {}

    bool next(MessageField& field) {
        if (rest.empty()) {
            return false;
        }
        const uint64_t key = varint();
        field = MessageField();
        field.number = int(std::min<uint64_t>(key >> 3, INT32_MAX));
        switch (key & 7) {
        case 0:
            field.value = varint();
            break;
        case 1:
            field.bytes = take(8);
            break;
        case 2:
            field.bytes = take(varint());
            field.isBytes = true;
            break;
        case 5:
            field.bytes = take(4);
            break;
        default:
            failMessage("the profile has a field of an unknown kind");
        }
        return true;
    }
    uint64_t varint() {
        uint64_t value = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            const uint8_t byte = uint8_t(take(1)[0]);
            value |= uint64_t(byte & 127) << shift;
            if (byte < 128) {
                return value;
            }
        }
        failMessage("the profile has a number without end");
    }
    bool isAtEnd() const { return rest.empty(); }

private:
    std::string_view take(uint64_t length) {
        if (length > rest.size()) {
            failMessage("the profile is cut");
        }
        const std::string_view part = rest.substr(0, length);
        rest.remove_prefix(length);
        return part;
    }
    std::string_view rest;
};

} // namespace vdk
