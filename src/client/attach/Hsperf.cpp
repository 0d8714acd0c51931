#include "client/attach/Hsperf.h"

#include <cstdint>

namespace vdk {

// HsperfHeader {
//   u4 magic 0xcafec0c0 (always big-endian); u1 byteOrder (0 big, 1 little); u1 major; u1 minor;
//   u1 accessible; u4 used; u4 overflow; u8 modified; u4 entryOffset; u4 entryCount; }
// Entry {
//   u4 length; u4 nameOffset; u4 vectorLength; u1 type; u1 flags; u1 units; u1 variability;
//   u4 dataOffset; name, zero-terminated; data }
// Offsets within an entry count from its start; a vector of type 'B' is a text.
std::optional<std::map<std::string, std::string>> parseHsperf(std::string_view bytes) {
    auto byte = [&](size_t at) { return static_cast<unsigned char>(bytes[at]); };
    if (bytes.size() < 32 || byte(0) != 0xca || byte(1) != 0xfe || byte(2) != 0xc0 ||
        byte(3) != 0xc0 || byte(5) != 2) {
        return std::nullopt;
    }
    bool little = byte(4) == 1;
    auto word = [&](size_t at) {
        uint32_t value = 0;
        for (int i = 0; i < 4; i++) {
            value = value << 8 | byte(little ? at + size_t(3 - i) : at + size_t(i));
        }
        return value;
    };
    std::map<std::string, std::string> values;
    size_t entry = word(24);
    for (uint32_t left = word(28); left > 0 && entry + 20 <= bytes.size(); left--) {
        size_t length = word(entry);
        if (length < 20 || length > bytes.size() - entry) {
            break;
        }
        std::string_view body = bytes.substr(entry, length);
        size_t name = word(entry + 4), vector = word(entry + 8), data = word(entry + 16);
        char type = body[12];
        if (type == 'B' && name < length && data < length && vector <= length - data) {
            std::string_view nameText = body.substr(name);
            std::string_view text = body.substr(data, vector);
            values[std::string(nameText.substr(0, nameText.find('\0')))] =
                text.substr(0, text.find('\0'));
        }
        entry += length;
    }
    return values;
}

} // namespace vdk
